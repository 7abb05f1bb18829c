// Frames of the simulator's sockets, cut out of a byte stream; the layout is in
// platform/simulator_frames.h. A FrameReader belongs to one connection and one thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane::simulator {

struct Frame {
  uint32_t kind = 0;
  uint32_t number = 0;
  uint32_t code = 0;
  uint32_t size = 0;
  std::string payload;
};

std::string encode(const Frame& frame);

class FrameReader {
 public:
  void append(std::string_view bytes) { _buffer += bytes; }
  // The next whole frame, or nothing. broken() is set, for good, by a length beyond the bound.
  std::optional<Frame> next();
  bool broken() const { return _broken; }

 private:
  std::string _buffer;
  bool _broken = false;
};

}  // namespace korvane::simulator
