// Turns queued records into one message and hands it to the destination. One thread; the message's
// memory is kept from batch to batch until releaseMemory().
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "config/agent_config.h"
#include "logs/log_destination.h"

namespace korvane {

class LogWriter {
 public:
  // destination: may be null, then nothing can be delivered.
  LogWriter(LogType type, std::unique_ptr<LogDestination> destination);

  // 0 when the destination has the records, its error code otherwise. kNoDestination without one.
  [[nodiscard]] int write(const RecordQueue& queue);
  void tend();
  void setMeanwhile(std::function<void()> meanwhile);
  void releaseMemory() { _body.reset(); }

  static constexpr int kNoDestination = -2;

 private:
  const LogType _type;
  AgentConfig* const _config;
  std::unique_ptr<LogDestination> _destination;
  std::optional<MessageBody> _body;  // the last message, for its memory
};

}  // namespace korvane
