// Hands queued records to the destination, with what the agent adds to them at that time. One
// thread; machine and clock outlive the writer.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "logs/log_destination.h"
#include "platform/fwd.h"

namespace korvane {

class MachineFacts;

class LogWriter {
 public:
  // logName: as the records are to say it (logBaseName).
  LogWriter(const MachineFacts& machine, platform::Clock& clock, std::string logName,
            std::unique_ptr<LogDestination> destination);

  // 0 when the destination has the records, its error code otherwise.
  [[nodiscard]] int write(const RecordQueue& queue);
  // Of the last write: LogDestination::droppedAs().
  int droppedAs() const { return _destination->droppedAs(); }
  RecordNotes notes() const;
  LogDestination::RecordBytes recordBytes() const { return _destination->recordBytes(); }
  void tend() { _destination->tend(); }
  void setMeanwhile(std::function<void()> meanwhile);
  void releaseMemory() { _destination->releaseMemory(); }

 private:
  const MachineFacts& _machine;
  platform::Clock& _clock;
  const std::string _logName;
  const std::unique_ptr<LogDestination> _destination;
};

}  // namespace korvane
