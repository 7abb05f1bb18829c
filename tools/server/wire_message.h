// The body of a protocol message, both ways: a strict reader and a writer of the section framing
// that docs/protocol.md describes. It is the server's own reading of that page, deliberately
// independent of the agent's code, so that the two check each other.
//
// A WireMessage refers into the bytes it was read from, which must outlive it. Nothing is locked;
// one thread uses an object at a time. Errors are values: `error` names what was wrong and the
// offset in bytes.
//
//   WireMessage message = readMessage(body);
//   if (!message.error.empty()) refuse(message.error);
//   for (const WireSection& section : message.sections) use(section);
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvane::server {

struct WireSection {
  std::string_view format;  // "text/plain", "text/xml" or "binary/zip"
  std::string_view name;
  std::string_view payload;  // exactly the announced bytes

  bool isProperties() const { return format == "text/plain" && name == "properties"; }
};

struct WireMessage {
  std::vector<WireSection> sections;
  std::string error;  // empty when the whole body was in order
};

// One line of a properties payload, cut at its first "=".
using WireProperty = std::pair<std::string, std::string>;
using WireProperties = std::vector<WireProperty>;

// Reads a whole body. Refused are: a header line missing or out of order, an unknown format, a
// length that is not a plain decimal number or goes beyond the body, a section without its closing
// line feed, a properties payload that is not UTF-8 or has a line without "=" or line feed, a
// missing end marker, and anything behind it. Empty lines between sections are allowed.
WireMessage readMessage(std::string_view body);

// The pairs of a properties payload that readMessage has accepted, in order.
WireProperties readProperties(std::string_view payload);

// The value of the first line "NAME=..." of a properties payload; empty when there is none.
std::string_view propertyIn(std::string_view payload, std::string_view name);

// The first value with this name, or an empty text.
std::string propertyOf(const WireProperties& properties, std::string_view name);

// Writers; each appends to `out`.
void writeSection(std::string& out, std::string_view format, std::string_view name,
                  std::string_view payload);
void writeProperties(std::string& out, const WireProperties& properties);
void writeEnd(std::string& out);

// Changes every "Data-Length=" value of a written body to `value`, to make a body that lies.
std::string withDataLength(const std::string& body, std::string_view value);

}  // namespace korvane::server
