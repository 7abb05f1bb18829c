// An answer of the server: header lines up to the first empty one, then the body.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "comm/response_parser.h"

namespace {

// Every byte of what was kept lies in memory that may be read.
size_t touch(std::string_view bytes) {
  size_t sum = 0;
  for (char c : bytes) sum += static_cast<unsigned char>(c);
  return sum;
}

void read(korvane::ResponseParser& response, std::string_view input, size_t piece) {
  response.reset();
  while (!input.empty()) {
    const std::string_view line = input.substr(0, input.find('\n') + 1);
    if (line.empty()) break;
    input.remove_prefix(line.size());
    response.addHeaderLine(line);
    if (line == "\n" || line == "\r\n") break;
  }
  for (; !input.empty(); input.remove_prefix(std::min(piece, input.size()))) {
    response.addBody(input.substr(0, piece));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  korvane::ResponseParser whole;
  korvane::ResponseParser pieces;
  read(whole, input, size + 1);
  read(pieces, input, 7);
  const bool good = whole.finish(false);
  // How an answer arrives changes nothing about it.
  if (good != pieces.finish(true) || whole.fault() != pieces.fault() ||
      whole.binaries().size() != pieces.binaries().size() ||
      whole.properties() != pieces.properties()) {
    __builtin_trap();
  }
  size_t bytes = 0;
  for (const auto& part : whole.binaries()) {
    bytes += part.bytes.size();
    touch(part.name);
    touch(part.bytes);
  }
  // What is kept was received, and a malformed answer leaves nothing behind.
  if (bytes > size || (!good && (bytes || !whole.properties().empty()))) __builtin_trap();
  return 0;
}
