// Pieces that the texts about failed exchanges are made of. Pure functions; any thread;
// texts are UTF-8.
#pragma once

#include <cstdint>
#include <string>

namespace korvane {

// Text of the other end as it may be shown: one line without control characters, at most 80 bytes.
std::string shown(const std::string& text);
// The same in double quotes.
std::string quoted(const std::string& text);
// The place that a URL names, "127.0.0.1 port 8443", with the scheme's port when it names none.
std::string placeOf(const std::string& url);
std::string hostOf(const std::string& url);
bool isHttps(const std::string& url);
bool isPlainHttp(const std::string& url);
// "reset" or "closed", when libcurl's text is about the end of a connection; else empty.
std::string howItEnded(const std::string& errorText);
// Bytes of an unknown protocol: in double quotes when they are text, else in hexadecimal.
std::string bytesShown(const std::string& bytes);
// "10 s", "1.5 s".
std::string seconds(uint64_t milliseconds);
// Whether `text` has `part` in it, ASCII letters compared without case; `part` is in small letters.
bool contains(const std::string& text, const char* part);

}  // namespace korvane
