#include "logs/log_destination.h"

#include "config/service_type.h"
#include "logs/https_log_destination.h"

namespace korvane {

std::vector<PropertyList> LogBatch::pairs() const {
  std::vector<PropertyList> lists;
  for (size_t i = 0; i < records.size(); ++i) lists.push_back(fieldPairs(records.at(i), notes));
  return lists;
}

std::unique_ptr<LogDestination> makeLogDestination() {
  if (isStandardAgent()) return std::make_unique<HttpsLogDestination>();
  return nullptr;
}

}  // namespace korvane
