// The pieces of "protocol://host[:port][/path]". Pure functions; any thread. An IPv6 address as
// host stands in square brackets.
#pragma once

#include "util/string.h"

namespace korvane {

struct UrlText {
  STRING protocol;  // "https"; empty when the text has no "://"
  STRING host;
  STRING port;  // empty when there is none
  STRING path;  // with its leading separator

  static UrlText parse(const STRING& url);
  STRING text() const;  // "https" when there is no protocol; empty when there is no host
};

}  // namespace korvane
