// The pieces of "protocol://[user[:password]@]host[:port][/path]". Pure functions; any thread. An
// IPv6 address as host stands in square brackets.
//
// What stands before the last '@' of the part with the host is the user; in a text that is no URL
// of this form, what stands before its last '@': a host never holds what may be a password.
#pragma once

#include <string>
#include <string_view>

#include "util/string.h"

namespace korvane {

struct UrlText {
  STRING protocol;  // "https"; empty when the text has no "://"
  STRING user;      // with the password; empty when there is none
  STRING host;
  STRING port;  // empty when there is none
  STRING path;  // with its leading separator

  static UrlText parse(const STRING& url);
  STRING text() const;  // "https" when there is no protocol; empty when there is no host
};

// Where a host begins in a URL, behind its scheme and user.
struct UrlPlace {
  size_t authority;  // behind "://" and further slashes; 0 without a scheme
  size_t host;       // behind the user's '@'; the same when there is no user
};
UrlPlace placeInUrl(std::u16string_view url);

// The URL with its user and password, when it has any, as "***". A query or fragment with an '@' in
// it is left out in the same way. For texts to show: the UTF-8 need not be valid.
std::string withoutUser(std::string_view url);

}  // namespace korvane
