#include "eventlog/catalogue.h"

#include <charconv>
#include <utility>

#include "util/utf8.h"

namespace korvane::eventlog {
namespace {

constexpr size_t kMaxLines = 10000;
constexpr size_t kMaxCatalogueTextBytes = 1024;
constexpr int kMaxNumber = 99999;

// The part of `rest` before the next blank; `rest` becomes what follows the blank.
std::string_view nextWord(std::string_view& rest) {
  const size_t blank = rest.find(' ');
  const std::string_view word = rest.substr(0, blank);
  rest = blank == std::string_view::npos ? std::string_view() : rest.substr(blank + 1);
  return word;
}

bool isInsertion(char c) {
  return c >= '1' && c <= '9';
}

const char* textError(std::string_view text) {
  if (text.empty()) return "no text";
  if (text.size() > kMaxCatalogueTextBytes) return "the text is longer than 1024 bytes";
  if (!isValidUtf8(text)) return "the text is not UTF-8";
  for (size_t i = 0; i < text.size(); ++i) {
    if (static_cast<unsigned char>(text[i]) < 0x20) return "a control character";
    if (text[i] != '%') continue;
    if (++i == text.size() || (text[i] != '%' && !isInsertion(text[i])))
      return "a percent sign not followed by 1 to 9 or %";
  }
  return nullptr;
}

// Null, or what is wrong with the line.
const char* parseLine(std::string_view line, Catalogue& out) {
  const std::string_view word = nextWord(line);
  int number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc() || end != word.data() + word.size() || number < 1 || number > kMaxNumber)
    return "the event number is not from 1 to 99999";
  const std::string_view type = nextWord(line);
  if (type != "AINF" && type != "AWRN" && type != "AERR")
    return "the event type is not AINF, AWRN or AERR";
  if (const char* wrong = textError(line)) return wrong;
  if (!out.try_emplace(number, CatalogueEntry{std::string(type), std::string(line)}).second)
    return "duplicate event number";
  return nullptr;
}

}  // namespace

std::string CatalogueError::describe() const {
  return line == 0 ? text : "line " + std::to_string(line) + ": " + text;
}

std::optional<CatalogueError> parseCatalogue(std::string_view bytes, Catalogue& out) {
  out.clear();
  if (bytes.size() > kMaxCatalogueBytes) return CatalogueError{0, "larger than 1 MiB"};
  Catalogue read;
  for (size_t number = 1; !bytes.empty(); ++number) {
    if (number > kMaxLines) return CatalogueError{number, "more than 10000 lines"};
    const size_t end = bytes.find('\n');
    std::string_view line = bytes.substr(0, end);
    bytes = end == std::string_view::npos ? std::string_view() : bytes.substr(end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    if (const char* wrong = parseLine(line, read)) return CatalogueError{number, wrong};
  }
  if (read.empty()) return CatalogueError{0, "it holds no event"};
  out = std::move(read);
  return std::nullopt;
}

std::string expandInsertions(std::string_view text, std::span<const std::string> insertions) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    const char next = text[++i];
    const auto index = static_cast<size_t>(next - '1');
    if (!isInsertion(next))
      out += next;
    else if (index < insertions.size())
      out += insertions[index];
  }
  return out;
}

}  // namespace korvane::eventlog
