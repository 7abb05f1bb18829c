#include "logs/log_writer.h"

#include "platform/clock.h"

namespace korvane {

LogWriter::LogWriter(const MachineFacts& machine, platform::Clock& clock, std::string logName,
                     std::unique_ptr<LogDestination> destination)
    : _machine(machine),
      _clock(clock),
      _logName(std::move(logName)),
      _destination(std::move(destination)) {}

RecordNotes LogWriter::notes() const {
  return RecordNotes::take(_machine, _logName, _clock.wallMs());
}

int LogWriter::write(const RecordQueue& queue) {
  return _destination->writeLog({queue, notes()});
}

void LogWriter::setMeanwhile(std::function<void()> meanwhile) {
  _destination->setMeanwhile(std::move(meanwhile));
}

}  // namespace korvane
