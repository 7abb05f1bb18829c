#include "logs/log_source.h"

namespace korvane {

void LogSource::setPointerFile(const STRING& path) {
  if (pointer()) pointer()->setPointerFile(path);
}

STRING LogSource::getCurrentLogName() const {
  return pointer() ? pointer()->getCurrentLogName() : STRING();
}

STRING LogSource::getStartTimeStamp() {
  return pointer() ? pointer()->getStartTimeStamp() : STRING();
}

STRING LogSource::getEndTimeStamp() {
  return pointer() ? pointer()->getEndTimeStamp() : STRING();
}

void LogSource::setStartTimeStamp(const STRING& text) {
  if (pointer()) pointer()->setStartTimeStamp(text);
}

void LogSource::setEndTimeStamp(const STRING& text) {
  if (pointer()) pointer()->setEndTimeStamp(text);
}

}  // namespace korvane
