// What ends a command early. Every failure says what was tried and where, and the next thing to do.
#pragma once

#include <stdexcept>
#include <string>

#include "agentctl/exit_status.h"

namespace korvane::agentctl {

class Failure : public std::runtime_error {
 public:
  // `what`: one line without a full stop. `next`: a sentence of its own; may be empty.
  Failure(ExitStatus status, const std::string& what, std::string next)
      : std::runtime_error(what), _status(status), _next(std::move(next)) {}
  ExitStatus status() const { return _status; }
  const std::string& next() const { return _next; }

 private:
  ExitStatus _status;
  std::string _next;
};

}  // namespace korvane::agentctl
