#include "simulate/oracle/message.h"

#include <zlib.h>

#include <algorithm>
#include <sstream>

namespace korvane::simulation {

namespace {

// One line without its line feed, which must be there.
bool nextLine(std::string_view& rest, std::string& line) {
  const size_t end = rest.find('\n');
  if (end == std::string_view::npos) return false;
  line = rest.substr(0, end);
  rest.remove_prefix(end + 1);
  return true;
}

bool isUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    const int more = lead < 0x80         ? 0
                     : lead >> 5 == 0x6  ? 1
                     : lead >> 4 == 0xE  ? 2
                     : lead >> 3 == 0x1E ? 3
                                         : -1;
    if (more < 0) return false;
    for (int k = 0; k < more; ++k, ++i)
      if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return false;
  }
  return true;
}

std::string readHeaders(const std::string& headers, Message& out) {
  static const char* const names[] = {"Korvane-Format-Version", "Content-Type", "Korvane-Charset",
                                      "Korvane-GUID"};
  size_t next = 0;
  std::istringstream lines(headers);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t colon = line.find(':');
    const std::string name = line.substr(0, colon);
    const auto* const known = std::find(std::begin(names), std::end(names), name);
    if (known == std::end(names)) continue;
    if (next == std::size(names) || name != names[next])
      return "the header " + name + " is misplaced";
    if (colon == std::string::npos) return "the header " + name + " has no colon";
    std::string value = line.substr(colon + 1);
    if (!value.empty() && value.front() == ' ') value.erase(0, 1);
    if (next == 0 && value != "1.0") return "format version " + value;
    if (next == 1 && value != "application/x-korvane") return "content type " + value;
    if (next == 3) out.guid = value;
    ++next;
  }
  const bool anonymous = out.word == "register" || out.word == "testConnection";
  if (next != (anonymous ? 3u : 4u)) return std::to_string(next) + " headers";
  return !anonymous && out.guid.empty() ? "an empty Korvane-GUID" : "";
}

std::string readPairs(Part& part) {
  if (!isUtf8(part.payload)) return "properties that are not UTF-8";
  std::string_view rest = part.payload;
  for (std::string line; nextLine(rest, line);) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos || equals == 0) return "the line \"" + line + "\"";
    part.pairs.emplace_back(line.substr(0, equals), line.substr(equals + 1));
  }
  return rest.empty() ? "" : "properties that do not end in a line feed";
}

std::string readPart(std::string_view& rest, const std::string& first, Part& part) {
  std::string type, length, empty;
  if (!first.starts_with("Data-Format=")) return "\"" + first + "\" begins a section";
  part.format = first.substr(12);
  if (!nextLine(rest, type) || !type.starts_with("Data-Type=")) return "no Data-Type";
  part.name = type.substr(10);
  if (!nextLine(rest, length) || !length.starts_with("Data-Length=")) return "no Data-Length";
  length.erase(0, 12);
  if (length.empty() || length.size() > 9 ||
      length.find_first_not_of("0123456789") != std::string::npos ||
      (length.size() > 1 && length[0] == '0'))
    return "Data-Length=" + length;
  if (!nextLine(rest, empty) || !empty.empty()) return "no empty line behind Data-Length";
  const size_t size = std::stoul(length);
  if (size + 1 > rest.size()) return "a payload of " + length + " bytes is cut short";
  part.payload = rest.substr(0, size);
  if (rest[size] != '\n') return "no line feed behind a payload of " + length + " bytes";
  rest.remove_prefix(size + 1);
  if (part.format == "text/plain" && part.name == "properties") return readPairs(part);
  if (part.format == "binary/zip" && part.name == "policy") return "";
  return "a section " + part.format + " " + part.name;
}

std::string section(const std::string& format, const std::string& name,
                    const std::string& payload) {
  return "Data-Format=" + format + "\nData-Type=" + name +
         "\nData-Length=" + std::to_string(payload.size()) + "\n\n" + payload + "\n";
}

std::string widened(const std::string& text, bool wide) {
  if (!wide) return text;
  std::string out;
  for (const char letter : text) out += {letter, '\0'};
  return out;
}

}  // namespace

const std::string& valueOf(const Pairs& pairs, std::string_view name) {
  static const std::string none;
  for (const auto& [key, value] : pairs)
    if (key == name) return value;
  return none;
}

std::string readRequest(const std::string& path, const std::string& headers,
                        const std::string& body, Message& out) {
  out.word = path.substr(path.rfind('/') + 1);
  if (const std::string fault = readHeaders(headers, out); !fault.empty()) return fault;
  std::string_view rest = body;
  for (std::string line; nextLine(rest, line);) {
    const std::string place = "section " + std::to_string(out.parts.size() + 1) + ": ";
    if (line == "EOF_FLAG") return rest.empty() ? "" : "bytes behind the end marker";
    if (line.empty()) return place + "an empty line before it";
    Part part;
    const std::string fault = readPart(rest, line, part);
    if (!fault.empty()) return place + fault;
    out.parts.push_back(std::move(part));
  }
  return "no end marker";
}

std::string textSection(const Pairs& pairs, bool wide) {
  std::string lines;
  for (const auto& [name, value] : pairs) lines += name + "=" + value + "\n";
  return section("text/plain", "properties", widened(lines, wide));
}

std::string errorSection(const std::string& text, bool wide) {
  return section("text/plain", "stacktrace", widened(text, wide));
}

std::string binarySection(const std::string& bytes, const std::string& name) {
  return section("binary/zip", name, bytes);
}

std::string storedZip(const std::vector<std::pair<std::string, std::string>>& entries) {
  const auto number = [](uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
    return text;
  };
  std::string archive, directory;
  for (const auto& [name, content] : entries) {
    const auto* const bytes = reinterpret_cast<const Bytef*>(content.data());
    const uLong crc = crc32(0, bytes, static_cast<uInt>(content.size()));
    const std::string common = number(20, 2) + number(0x0800, 2) + number(0, 2) +
                               number(0x5c210000, 4) + number(crc, 4) + number(content.size(), 4) +
                               number(content.size(), 4) + number(name.size(), 2) + number(0, 2);
    directory += "PK\1\2" + number(20, 2) + common + number(0, 2) + number(0, 2) + number(0, 2) +
                 number(0, 4) + number(archive.size(), 4) + name;
    archive += "PK\3\4" + common + name + content;
  }
  return archive + directory + "PK\5\6" + number(0, 4) + number(entries.size(), 2) +
         number(entries.size(), 2) + number(directory.size(), 4) + number(archive.size(), 4) +
         number(0, 2);
}

}  // namespace korvane::simulation
