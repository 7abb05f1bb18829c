// A shutdown step: whatever it throws, the remaining steps are carried out.
#pragma once

#include <exception>

#include "eventlog/event_log.h"

namespace korvane {

// `what` names the step in event 10562.
template <class Step>
void stopStep(const char* what, Step step) noexcept {
  constexpr char kSource[] = "KorvaneAgent";
  try {
    step();
  } catch (const std::exception& error) {
    eventlog::event(EventId::shutdownStepFailed, kSource, {what, error.what()});
  } catch (...) {
    eventlog::event(EventId::shutdownStepFailed, kSource, {what, "unknown exception"});
  }
}

}  // namespace korvane
