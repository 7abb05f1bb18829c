// The host inside a URL of the form scheme://host[:port]/path; a host may be an IPv6 address in
// brackets. Pure functions; a text without "://" is taken to begin with its host.
#pragma once

#include "util/string.h"

namespace korvane {

STRING hostOfUrl(const STRING& url);

// The same URL with another host: scheme, port and path stay.
STRING withHost(const STRING& url, const STRING& host);

}  // namespace korvane
