// An event record as the agent's other rooms use it: parsed from one line, its fields as
// STRING. It is an adapter over the byte core (event_record.h, field_map.h), which log
// forwarding uses directly.
//
// A record is used by one thread; machine and clock outlive it. Errors: parseLog throws AgentError
// 16 for a line of more than 49 fields; a line of a wrong event type is reported as event 10135 and
// rejected.
//
//   FixedFormatLog record(HIDS_RT_LOG, settings.machine, clock);
//   PropertyList values;
//   if (record.parseLog(line)) record.getFieldMap(values);
#pragma once

#include <vector>

#include "config/log_type.h"
#include "logs/log.h"
#include "platform/fwd.h"
#include "util/property_list.h"

namespace korvane {

class MachineFacts;

class FixedFormatLog : public Log {
 public:
  FixedFormatLog(LogType type, const MachineFacts& machine, platform::Clock& clock);

  bool parseLog(const STRING& line) override;
  void setFields(const std::vector<STRING>& values) override;
  bool shouldForward() const override;
  LogType getLogType() const override { return _type; }
  size_t getExtraFieldCount() const override { return _extra.size(); }
  size_t getFieldMap(PropertyList& map) const override;
  STRING getField(size_t n) const override;

 private:
  const LogType _type;
  const MachineFacts& _machine;
  platform::Clock& _clock;
  std::vector<STRING> _extra;
};

}  // namespace korvane
