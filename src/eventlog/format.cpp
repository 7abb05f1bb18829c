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

}  // namespace

std::string formatPrintf(const char* format, std::initializer_list<Arg> arguments) {
  try {
    Arguments pushed;
    for (const Arg& argument : arguments) push(pushed, argument);
    return fmt::vsprintf(fmt::string_view(format),
                         fmt::basic_format_args<fmt::printf_context>(pushed));
  } catch (const fmt::format_error&) {
    std::string plain = format;
    for (const Arg& argument : arguments) plain += " [" + argument.text() + "]";
    return plain;
  }
}

}  // namespace korvane::eventlog
