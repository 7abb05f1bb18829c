// An owned file descriptor. Only for the POSIX siblings of the seam.
#pragma once

#include <unistd.h>

#include <utility>

namespace korvane::platform {

class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : _descriptor(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : _descriptor(std::exchange(other._descriptor, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(_descriptor, other._descriptor);
    return *this;
  }
  ~Descriptor() {
    if (_descriptor >= 0) ::close(_descriptor);
  }

  int get() const { return _descriptor; }
  explicit operator bool() const { return _descriptor >= 0; }

 private:
  int _descriptor;
};

}  // namespace korvane::platform
