// A forwarder that is as simple as it can be, and kinds of it that break one promise each: what the model is
// proved with. It reads the whole log in every pass and keeps its position in a file of its own.
#pragma once

#include "tests/logs/model/forwarder.h"

namespace korvane::log_model {

enum class Fault {
  none,
  savesBeforeDelivery,   // loses the batch in flight
  savesTooLate,          // sends the batch before the last one again after every start
  tearsAtOnce,           // takes an unfinished line at first sight
  forgetsNames,          // keeps no names over a restart
  looksAtTheNewestName,  // passes by names that came in between
  deletesEqualLogs,      // removes a next log of the finished one's size and time
  deletesEarly,          // removes a finished log before its last batch is delivered
  keepsFinishedLogs,
  swapsRecords,
  countsOneTooMany,      // in summaries
  losesOpenRuns,         // drops the summary that is open at a log's end
  dropsRefused,          // takes every answer for a delivery
  followsNoReplacement,  // goes on at its position in a log that took another's place
};
constexpr int kFaults = 14;

std::unique_ptr<Forwarder> makeNaiveForwarder(Machine& machine, Receiver& receiver, Fault fault);

}  // namespace korvane::log_model
