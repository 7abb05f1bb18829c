// The messages of the wire protocol (docs/protocol.md), read strictly and written by code that
// shares nothing with the agent.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvane::simulation {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// The first value of that name, or an empty text.
const std::string& valueOf(const Pairs& pairs, std::string_view name);

struct Part {
  std::string format, name, payload;
  Pairs pairs;  // of a properties section
};

struct Message {
  std::string word, guid;  // guid: empty when the header is absent
  std::vector<Part> parts;
};

// Reads a request, headers and body. Anything that is not as the page says is returned as a text
// that names the place; `out` then holds what was read up to there.
std::string readRequest(const std::string& path, const std::string& headers,
                        const std::string& body, Message& out);

// A section as an answer has it. `wide`: ASCII text as UTF-16LE.
std::string textSection(const Pairs& pairs, bool wide = false);
std::string errorSection(const std::string& text, bool wide = false);
std::string binarySection(const std::string& bytes, const std::string& name = "policy");
inline const std::string kEndMark = "EOF_FLAG\n";

// A zip archive with stored entries.
std::string storedZip(const std::vector<std::pair<std::string, std::string>>& entries);

}  // namespace korvane::simulation
