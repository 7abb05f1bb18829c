#include <fmt/args.h>
#include <fmt/printf.h>

#include "eventlog/record.h"
#include "util/utf8.h"

namespace korvane::eventlog {

std::string Arg::text() const {
  switch (_kind) {
    case Kind::signedInt:
      return std::to_string(signedNumber());
    case Kind::unsignedInt:
      return std::to_string(unsignedNumber());
    case Kind::utf8:
      return std::string(_utf8);
    case Kind::utf16:
      break;
  }
  return utf16ToUtf8(_utf16);
}

namespace {

using Arguments = fmt::dynamic_format_arg_store<fmt::printf_context>;

// Numbers keep their width, so that a negative int shown with %u or %x has 32 bits.
void push(Arguments& arguments, const Arg& arg) {
  const bool isSigned = arg.kind() == Arg::Kind::signedInt;
  if (!isSigned && arg.kind() != Arg::Kind::unsignedInt)
    arguments.push_back(arg.text());
  else if (arg.wide() && isSigned)
    arguments.push_back(arg.signedNumber());
  else if (arg.wide())
    arguments.push_back(arg.unsignedNumber());
  else if (isSigned)
    arguments.push_back(static_cast<int>(arg.signedNumber()));
  else
    arguments.push_back(static_cast<unsigned>(arg.unsignedNumber()));
}

// The format with "l" before an integer conversion written as "ll": a long has 32 bits on one
// system and 64 on the other, and the number is to be shown as it is on both.
std::string widened(std::string_view format) {
  std::string wide(format);
  for (size_t at = wide.find('%'); at != std::string::npos; at = wide.find('%', at)) {
    at = wide.find_first_not_of("-+ #0123456789.*", at + 1);
    if (at == std::string::npos) break;
    if (wide[at] == 'l' && std::string_view("diuxXo").find(wide[at + 1]) != std::string_view::npos)
      wide.insert(at, 1, 'l');
    ++at;
  }
  return wide;
}

}  // namespace

std::string formatPrintf(const char* format, std::initializer_list<Arg> arguments) {
  try {
    Arguments pushed;
    for (const Arg& argument : arguments) push(pushed, argument);
    return fmt::vsprintf(fmt::string_view(widened(format)),
                         fmt::basic_format_args<fmt::printf_context>(pushed));
  } catch (const fmt::format_error&) {
    std::string plain = format;
    for (const Arg& argument : arguments) plain += " [" + argument.text() + "]";
    return plain;
  }
}

}  // namespace korvane::eventlog
