// Makes the C library's getaddrinfo, as libcurl calls it, hang for one name while the object lives. One
// object at a time. Its destructor lets the hanging calls go and returns when they have left.
#pragma once

#include <string>

namespace korvane::tests {

class HangingResolver {
 public:
  explicit HangingResolver(const std::string& name);
  ~HangingResolver();
  // False when nobody has asked for the name within 20 seconds.
  bool waitUntilAsked();

  // For the look-up that takes the library's place: true when the call hung, and is to fail then.
  static bool hang(const char* host);
};

}  // namespace korvane::tests
