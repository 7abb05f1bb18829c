// What the benchmarks need from an agent: its settings in a separate folder, without a service.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "logs/log_processor.h"

namespace korvane::bench {

struct AgentSettings {
  std::string stateFolder;  // becomes the install root; made when missing
  std::string log;          // the event log
  std::string url;          // of the server; empty when nothing is sent
  std::string caFile;
  int32_t readLimit = 4000;   // records read in a pass
  int32_t batchLimit = 4000;  // records in a message
  bool folding = true;
};

// Makes the process a standard agent with these settings. Once a process.
ForwardingParts setUpAgent(const AgentSettings& settings);

// A processor of the real-time log that notes the end of the log.
class BenchProcessor : public LogProcessor {
 public:
  BenchProcessor(const ForwardingParts& parts, std::unique_ptr<LogDestination> destination,
                 bool keepLog)
      : LogProcessor(HIDS_RT_LOG, parts, std::move(destination)), _keepLog(keepLog) {}
  bool PostRealTimeProcessing(const STRING& file) override;
  bool finished() const { return _finished; }

 private:
  const bool _keepLog;
  bool _finished = false;
};

}  // namespace korvane::bench
