#include "logs/log_pointer_factory.h"

#include <new>

#include "logs/file_log_pointer.h"

namespace korvane {

std::unique_ptr<LogPointer> LogPointerFactory::createLogPointer(LogType type,
                                                                const STRING& pointerFilePath) {
  if (static_cast<int>(type) > HIDS_RT_LOG) return nullptr;
  try {
    return std::make_unique<FileLogPointer>(pointerFilePath);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace korvane
