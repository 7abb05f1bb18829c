#include "agent/registration_codes.h"

#include <algorithm>
#include <iterator>

#include "eventlog/event_log.h"

namespace korvane {
namespace {

struct RetryCode {
  int code;
  const char* meaning;
};

constexpr RetryCode kRetryCodes[] = {
    {5, "couldnt resolve proxy -- retry"},
    {6, "couldnt resolve host -- retry"},
    {7, "couldnot connect -- retry"},
    {28, "operation timed out -- retry"},
    {35, "ssl connect error -- retry"},
    {45, "http port failed -- retry"},
    {47, "too many redirects -- retry"},
    {53, "SSL engine not found -- retry"},
    {54, "ssl engine failed -- retry"},
    {55, "send error -- retry"},
    {56, "recieve error -- retry"},
    {58, "problem with the cert -- retry"},
    {59, "ssl cipher error -- retry"},
    {60, "problem with the CA cert -- retry"},
    {300, "database error -- retry"},
    {301, "bad policy -- retry"},
    {400,
     "HTTPS Bad Request Error (caused by configuring the agent to use the console port) -- retry"},
    {600, "unknown error -- retry"},
};

}  // namespace

RegistrationVerdict classifyRegistration(int code, const STRING& text) {
  eventlog::trace("MainThread", "Registering return code %d -- string %s", code, text);
  if (code == 0) return RegistrationVerdict::done;
  const auto* found = std::find_if(std::begin(kRetryCodes), std::end(kRetryCodes),
                                   [code](const RetryCode& row) { return row.code == code; });
  if (found != std::end(kRetryCodes)) {
    eventlog::trace("MainThread", found->meaning);
    return RegistrationVerdict::retry;
  }
  eventlog::event(EventId::registrationFailed, "MainThread", {STRING::fromInt(code), text});
  return RegistrationVerdict::notRetried;
}

}  // namespace korvane
