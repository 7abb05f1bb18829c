#include "logs/log_writer.h"

#include "platform/clock.h"
#include "platform/platform.h"

namespace korvane {

LogWriter::LogWriter(LogType type, std::unique_ptr<LogDestination> destination)
    : _type(type), _config(AgentConfig::getInstance()), _destination(std::move(destination)) {}

int LogWriter::write(const RecordQueue& queue) {
  if (!_destination) return kNoDestination;
  const RecordNotes notes = RecordNotes::take(*_config, _type, platform::current().clock.wallMs());
  if (!_body) _body.emplace();
  _body->clear();
  if (_destination->takesBody()) {
    for (size_t i = 0; i < queue.size(); ++i) appendRecord(*_body, queue.at(i), notes);
    _body->finish();
  }
  return _destination->writeBatch({queue, notes, *_body});
}

void LogWriter::setMeanwhile(std::function<void()> meanwhile) {
  if (_destination) _destination->setMeanwhile(std::move(meanwhile));
}

void LogWriter::tend() {
  if (_destination) _destination->tend();
}

}  // namespace korvane
