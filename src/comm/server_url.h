// The host inside a URL of the form scheme://[user@]host[:port]/path; a host may be an IPv6 address in
// brackets. Pure functions, but for the settings that one reads; a text without "://" is taken to
// begin with its host.
#pragma once

#include "util/string.h"

namespace korvane {

class ServerSettings;

STRING hostOfUrl(const STRING& url);

// The same URL with another host: scheme, port and path stay.
STRING withHost(const STRING& url, const STRING& host);

// The server that exchanges go to: the current one, or the configured URL's host without a list.
STRING serverInUse(const ServerSettings& settings);

}  // namespace korvane
