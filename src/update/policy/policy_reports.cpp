#include "update/policy/policy_reports.h"

#include "comm/https_handler.h"
#include "comm/report_answer.h"
#include "config/policy_settings.h"
#include "config/service_type.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kReportTag[] = "sendPolicyReturnStatus";
constexpr char kNoError[] = "No Error";

const char* textOf(Reconciled found) {
  switch (found) {
    case Reconciled::nothing:
      break;
    case Reconciled::undone:
      return "The policy change was interrupted and has been rolled back.";
    case Reconciled::repaired:
      return "The policy change was interrupted and its journal is damaged.";
    case Reconciled::failed:
      return "The policy change was interrupted and could not be rolled back.";
  }
  return kNoError;
}

}  // namespace

void OwedPolicyReport::owe(int code, const STRING& text) {
  const Synchronized hold(_lock);
  _due = true;
  _code = code;
  _text = text;
}

void OwedPolicyReport::settle() {
  const Synchronized hold(_lock);
  _due = false;
}

bool OwedPolicyReport::read(int& code, STRING& text) {
  const Synchronized hold(_lock);
  code = _code;
  text = _text;
  return _due;
}

void PolicyReports::begin(Reconciled found) {
  if (found != Reconciled::nothing) {
    _parts.owed.owe(kPolicyFailure, textOf(found));
    _parts.settings.setPolicyError(kPolicyFailure, textOf(found));
    return;
  }
  const int code = _parts.settings.getPolicyErrorCode();
  if (code == kPolicyFailure || code == kDiskFailure)
    _parts.owed.owe(code, _parts.settings.getPolicyErrorStr());
  else
    _parts.owed.settle();
}

void PolicyReports::tell(const PolicyOutcome& outcome) {
  report(outcome ? 0 : outcome.code, outcome ? STRING(kNoError) : outcome.text);
}

void PolicyReports::reportOutstanding() {
  int code = 0;
  STRING text;
  if (_parts.owed.read(code, text)) report(code, text);
}

void PolicyReports::report(int code, const STRING& text) {
  _parts.settings.setPolicyError(code, text);
  // The outcome of every policy is news, also when it is the same as the last one's.
  _parts.settings.setPolicyErrorChanged(true);
  _parts.owed.owe(code, text);
  sendPolicyReturnStatus();
}

bool PolicyReports::sendOutcome() {
  HttpsHandler handler(_parts.connection);
  const int result = handler.sendAgentStatusMessage(false);
  if (reportTaken(handler, result)) return true;
  eventlog::trace(kReportTag, "The policy error could not be reported: %d", result);
  return false;
}

void PolicyReports::sendPolicyReturnStatus() {
  if (!isStandardAgent())
    _parts.news.note();
  else if (!sendOutcome())
    return;
  _parts.settings.setPolicyErrorChanged(false);
  _parts.owed.settle();
}

}  // namespace korvane
