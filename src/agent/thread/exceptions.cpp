#include "agent/thread/exceptions.h"

#include <utility>

namespace korvane {

Exception::Exception(std::string method, int number)
    : _method(std::move(method)),
      _number(number),
      _what(_method + " failed (" + std::to_string(number) + ")") {}

}  // namespace korvane
