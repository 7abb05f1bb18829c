// Makes the read pointer of a log.
#pragma once

#include <memory>

#include "config/log_type.h"
#include "logs/log_pointer.h"

namespace korvane {

class LogPointerFactory {
 public:
  // None for a type above 4, or when memory runs out.
  [[nodiscard]] static std::unique_ptr<LogPointer> createLogPointer(LogType type,
                                                                    const STRING& pointerFilePath);
};

}  // namespace korvane
