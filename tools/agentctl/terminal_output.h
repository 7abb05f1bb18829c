// Has all that a stream prints pass through terminalText(), texts and JSON alike, while it lives. Whole
// lines are handed on, and what there is when the stream is flushed.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

namespace korvane::agentctl {

class TerminalOutput final : public std::streambuf {
 public:
  explicit TerminalOutput(std::ostream& stream) : _stream(stream), _to(*stream.rdbuf(this)) {}
  ~TerminalOutput() override;
  TerminalOutput(const TerminalOutput&) = delete;
  TerminalOutput& operator=(const TerminalOutput&) = delete;

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* bytes, std::streamsize count) override;
  int sync() override;

 private:
  // The first `count` bytes of what waits.
  bool handOn(size_t count);

  std::ostream& _stream;
  std::streambuf& _to;
  std::string _waiting;
};

}  // namespace korvane::agentctl
