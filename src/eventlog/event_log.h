// The agent's own log: numbered events and trace lines, written as comma-separated records
// that FixedFormatLog reads back. docs/file-formats.md has the fields,
// docs/event-catalogue.md the events.
//
// One log serves a run of the agent; eventlog/event_log_file.h opens it. Until then, and after it
// was closed, every call is accepted and does nothing, unless records are held for the log that is
// to be opened. Any thread may call anything at any time; a line is written whole, with one write.
// Nothing here throws: a line that cannot be written is counted (EventLog::lost()).
//
//   eventlog::event(EventId::agentStarted, "KorvaneAgent", {version});
//   eventlog::trace("MainThread", "Registering return code %d -- string %s", code, text);
//
// A trace while tracing is off costs a load and a branch: nothing is converted or formatted.
#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

#include "eventlog/event_id.h"
#include "util/string.h"

namespace korvane::eventlog {

// One argument of a format or an insertion text; refers to the caller's value for the
// call's duration.
class Arg {
 public:
  enum class Kind { signedInt, unsignedInt, utf8, utf16 };

  template <class T, std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>, int> = 0>
  Arg(T number)  // NOLINT(google-explicit-constructor)
      : _kind(std::is_unsigned_v<T> ? Kind::unsignedInt : Kind::signedInt),
        _wide(sizeof(T) > sizeof(int)),
        _number(static_cast<uint64_t>(static_cast<int64_t>(number))) {}
  Arg(const char* utf8) : _kind(Kind::utf8), _utf8(utf8 ? utf8 : "") {}  // NOLINT
  Arg(std::string_view utf8) : _kind(Kind::utf8), _utf8(utf8) {}         // NOLINT
  Arg(const std::string& utf8) : _kind(Kind::utf8), _utf8(utf8) {}       // NOLINT
  Arg(const STRING& text) : _kind(Kind::utf16), _utf16(text.utf16()) {}  // NOLINT

  Kind kind() const { return _kind; }
  // True for numbers of 64 bits; those of less have at most 32, as %u and %x show them.
  bool wide() const { return _wide; }
  int64_t signedNumber() const { return static_cast<int64_t>(_number); }
  uint64_t unsignedNumber() const { return _number; }
  std::string_view utf8() const { return _utf8; }
  std::u16string_view utf16() const { return _utf16; }
  // The value as UTF-8 text.
  std::string text() const;

 private:
  Kind _kind;
  bool _wide = false;
  uint64_t _number = 0;
  std::string_view _utf8;
  std::u16string_view _utf16;
};

namespace detail {
// How many logs of the process trace.
inline std::atomic<int> tracing{0};
void writeTrace(std::string_view tag, const char* format, std::initializer_list<Arg> arguments);
}  // namespace detail

inline bool tracing() {
  return detail::tracing.load(std::memory_order_relaxed) > 0;
}

// Writes a trace line ("TRAC") under a source tag. `format` is printf-style; %d, %ld, %lld, %lu,
// %u, %x, %s, %hs and %ls are understood, and a format that does not fit its arguments is written
// as it stands, with them in brackets behind it.
template <class... T>
inline void trace(std::string_view tag, const char* format, const T&... arguments) {
  if (tracing()) detail::writeTrace(tag, format, {Arg(arguments)...});
}

// Writes a numbered event with its insertion texts under a source tag. An identifier that the
// catalogue does not hold is written with its insertions alone.
void event(int id, std::string_view source, std::initializer_list<Arg> insertions = {});
inline void event(EventId id, std::string_view source, std::initializer_list<Arg> insertions = {}) {
  event(static_cast<int>(id), source, insertions);
}

// The path of the file that the log writes to, or wrote to last before it was closed; empty
// when it was never opened.
std::string currentFile();

}  // namespace korvane::eventlog
