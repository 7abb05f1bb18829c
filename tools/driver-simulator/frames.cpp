#include "driver-simulator/frames.h"

#include "platform/simulator_frames.h"

namespace korvane::simulator {
namespace {

uint32_t number(std::string_view bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i)
    value |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
  return value;
}

void put(std::string& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out += static_cast<char>(value >> shift & 0xFF);
}

}  // namespace

std::string encode(const Frame& frame) {
  std::string out;
  put(out, static_cast<uint32_t>(frame.payload.size()));
  put(out, frame.kind);
  put(out, frame.number);
  put(out, frame.code);
  put(out, frame.size);
  return out + frame.payload;
}

std::optional<Frame> FrameReader::next() {
  if (_broken || _buffer.size() < platform::kSimulatorHeaderBytes) return std::nullopt;
  const uint32_t length = number(_buffer, 0);
  _broken =
      length > platform::kSimulatorMaxBytes || number(_buffer, 16) > platform::kSimulatorMaxBytes;
  const size_t whole = platform::kSimulatorHeaderBytes + size_t{length};
  if (_broken || _buffer.size() < whole) return std::nullopt;
  Frame frame{number(_buffer, 4), number(_buffer, 8), number(_buffer, 12), number(_buffer, 16),
              _buffer.substr(platform::kSimulatorHeaderBytes, length)};
  _buffer.erase(0, whole);
  return frame;
}

}  // namespace korvane::simulator
