// The two exception classes of the agent. They are thrown inside threads and file helpers and
// caught at each thread's body; none leaves startAgent or stopAgent. Operations of the exported
// classes may throw them to a program that calls those (FileLogPointer::writePointer).
#pragma once

#include <exception>
#include <string>

#include "util/export.h"
#include "util/string.h"

namespace korvane {

// An error of the agent: a numeric code, a text, and the context in which it arose, for example
// 51, "Corrupt HIDS result file.", "processHIDSPolicyRetranslate". what() is the text in UTF-8.
class KORVANE_EXPORT AgentError : public std::exception {
 public:
  AgentError(int code, STRING text, STRING context = {});

  int code() const { return _code; }
  const STRING& text() const { return _text; }
  const STRING& context() const { return _context; }
  const char* what() const noexcept override { return _what.c_str(); }

 private:
  int _code;
  STRING _text;
  STRING _context;
  std::string _what;
};

// A failed file operation: the errno value, the operation's name ("writePointer") and a
// message that names the file. It is an AgentError whose code is the errno value and whose
// context is the operation.
class KORVANE_EXPORT FileError : public AgentError {
 public:
  FileError(int errnoValue, STRING operation, STRING message);

  int errnoValue() const { return code(); }
  const STRING& operation() const { return context(); }
  const STRING& message() const { return text(); }
};

// Code of AgentError that STRING::toInt raises for an empty text.
inline constexpr int kErrorEmptyString = 39;

}  // namespace korvane
