#include "agentctl/terminal_output.h"

#include "util/terminal_text.h"

namespace korvane::agentctl {

TerminalOutput::~TerminalOutput() {
  handOn(_waiting.size());
  _stream.rdbuf(&_to);
}

bool TerminalOutput::handOn(size_t count) {
  const std::string text = terminalText(std::string_view(_waiting).substr(0, count));
  _waiting.erase(0, count);
  const auto size = static_cast<std::streamsize>(text.size());
  return _to.sputn(text.data(), size) == size;
}

TerminalOutput::int_type TerminalOutput::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  const char byte = traits_type::to_char_type(c);
  return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
}

std::streamsize TerminalOutput::xsputn(const char* bytes, std::streamsize count) {
  _waiting.append(bytes, static_cast<size_t>(count));
  const size_t end = _waiting.rfind('\n');
  return end == std::string::npos || handOn(end + 1) ? count : 0;
}

int TerminalOutput::sync() {
  return handOn(_waiting.size()) ? _to.pubsync() : -1;
}

}  // namespace korvane::agentctl
