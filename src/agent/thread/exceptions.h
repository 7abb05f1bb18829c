// The exceptions of the thread layer. They name the method that failed and carry an error number.
#pragma once

#include <exception>
#include <string>

#include "util/export.h"

namespace korvane {

class KORVANE_EXPORT Exception : public std::exception {
 public:
  Exception(std::string method, int number);
  const std::string& method() const { return _method; }
  int number() const { return _number; }
  const char* what() const noexcept override { return _what.c_str(); }

 private:
  std::string _method;
  int _number;
  std::string _what;  // "<method> failed (<number>)"
};

// A thread operation failed.
class KORVANE_EXPORT ThreadException : public Exception {
 public:
  using Exception::Exception;
};

// Ends the calling thread's body: raised by Thread::stop() when a thread stops itself.
class KORVANE_EXPORT ThreadDeathException : public Exception {
 public:
  using Exception::Exception;
};

}  // namespace korvane
