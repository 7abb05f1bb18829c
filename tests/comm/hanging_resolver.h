// Makes the C library's getaddrinfo, as libcurl calls it, hang for one name while the object lives.
// One object at a time. Names that end in ".invalid" fail at once, always, and no name server is
// asked for them. Its destructor lets the hanging calls go and returns when they have left.
#pragma once

#include <string>

namespace korvane::tests {

class HangingResolver {
 public:
  explicit HangingResolver(const std::string& name);
  ~HangingResolver();
  // False when nobody has asked for the name within 20 seconds.
  bool waitUntilAsked();

  // For the look-up that takes the library's place: true when the call is to fail, now that it hung
  // or because the name ends in ".invalid".
  static bool hang(const char* host);
};

}  // namespace korvane::tests
