// What may be shown of libcurl's own trace and error texts: everything but what authenticates
// somebody. Users and passwords of URLs and of proxies are "***" in its remarks; of a header whose
// value is not known to be harmless only the name is left. Control characters and what is not ASCII
// are dots: the trace goes to a console.
//
// Pure functions; any thread.
//
//   traceText(CURLINFO_HEADER_OUT, "POST / HTTP/1.1\r\nAuthorization: Basic eDp5\r\n\r\n")
//       // "> POST / HTTP/1.1\n> Authorization: ***\n"
#pragma once

#include <curl/curl.h>

#include <string>
#include <string_view>

namespace korvane {

// The lines of one piece of the trace; empty for the bytes of bodies and of TLS.
std::string traceText(curl_infotype type, std::string_view piece);
// A remark or an error text of libcurl's, as it may be shown.
std::string maskedRemark(std::string_view text);

}  // namespace korvane
