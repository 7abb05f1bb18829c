#include "rpc/json_text.h"

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <istream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <vector>

#include "rpc/json_escapes.h"

namespace korvane {
namespace {

// Reads a text where it lies.
class TextBuffer : public std::streambuf {
 public:
  explicit TextBuffer(std::string_view text) {
    char* begin = const_cast<char*>(text.data());  // get areas are read only
    setg(begin, begin, begin + text.size());
  }
};

// Steps over a string that begins at `at`; gives the place of its closing quote, or the text's end.
size_t endOfString(std::string_view text, size_t at) {
  for (size_t quote = text.find('"', at + 1); quote < text.size();
       quote = text.find('"', quote + 1)) {
    size_t before = quote;
    while (before - 1 > at && text[before - 1] == '\\') --before;
    if ((quote - before) % 2 == 0) return quote;
  }
  return text.size();
}

bool withinBounds(std::string_view text) {
  size_t depth = 0, values = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    switch (text[i]) {
      case '"':
        i = endOfString(text, i);
        break;
      case '{':
      case '[':
        if (++depth > kMaxJsonDepth || ++values > kMaxJsonValues) return false;
        break;
      case '}':
      case ']':
        if (depth > 0) --depth;
        break;
      case ',':
        if (++values > kMaxJsonValues) return false;
        break;
      default:
        break;
    }
  }
  return true;
}

bool parseBounded(std::string_view text, JsonTree& out) {
  try {
    TextBuffer buffer(text);
    std::istream stream(&buffer);
    JsonTree tree;
    boost::property_tree::read_json(stream, tree);
    out.swap(tree);
    return true;
  } catch (const boost::property_tree::json_parser_error&) {
    return false;
  }
}

// What stands for a long text in what Boost sees. Nobody can guess it, so no other text is
// taken for it.
const std::string& placeholder() {
  static const std::string text = [] {
    std::random_device random;
    std::string made = "long text";
    for (int i = 0; i < 8; ++i) made += " " + std::to_string(random());
    return made;
  }();
  return text;
}

struct Span {
  size_t begin = 0, end = 0;  // without the quotes
  size_t size() const { return end - begin; }
};

// The long texts that are values.
std::vector<Span> longTexts(std::string_view text) {
  std::vector<Span> found;
  for (size_t i = text.find('"'); i < text.size(); i = text.find('"', i)) {
    const size_t end = endOfString(text, i);
    const size_t next =
        end < text.size() ? text.find_first_not_of(" \t\r\n", end + 1) : text.size();
    const bool isKey = next < text.size() && text[next] == ':';
    if (end < text.size() && !isKey && end - i > kLongTextBytes) found.push_back({i + 1, end});
    i = std::min(end + 1, text.size());
  }
  return found;
}

std::string withoutLongTexts(std::string_view text, const std::vector<Span>& spans) {
  std::string out;
  size_t at = 0;
  for (const Span& span : spans) {
    out.append(text.substr(at, span.begin - at)).append(placeholder());
    at = span.end;
  }
  out.append(text.substr(at));
  return out;
}

// The values in the tree that `wanted` names, in the order of the text.
template <class Wanted>
void collect(JsonTree& tree, const Wanted& wanted, std::vector<std::string*>& out) {
  if (tree.empty() && wanted(tree.data())) out.push_back(&tree.data());
  for (auto& [name, child] : tree) collect(child, wanted, out);
}

// Copies of all long texts but the longest, which keeps the memory of the message.
bool putBack(std::string&& text, const std::vector<Span>& spans,
             const std::vector<std::string*>& values) {
  if (values.size() != spans.size()) return false;
  const auto longest = static_cast<size_t>(
      std::max_element(spans.begin(), spans.end(),
                       [](const Span& a, const Span& b) { return a.size() < b.size(); }) -
      spans.begin());
  for (size_t i = 0; i < spans.size(); ++i) {
    if (i == longest) continue;
    values[i]->assign(text, spans[i].begin, spans[i].size());
    if (!unescape(*values[i])) return false;
  }
  text.resize(spans[longest].end);
  text.erase(0, spans[longest].begin);
  *values[longest] = std::move(text);
  return unescape(*values[longest]);
}

// Takes the long texts out of the tree.
std::vector<std::string> extractLongTexts(JsonTree& tree) {
  std::vector<std::string*> values;
  collect(
      tree, [](const std::string& text) { return text.size() >= kLongTextBytes; }, values);
  std::vector<std::string> taken;
  for (std::string* value : values) taken.push_back(std::exchange(*value, placeholder()));
  return taken;
}

}  // namespace

bool parseJson(std::string_view text, JsonTree& out) {
  return withinBounds(text) && parseBounded(text, out);
}

bool parseJson(std::string&& text, JsonTree& out) {
  if (!withinBounds(text)) return false;
  const std::vector<Span> spans = longTexts(text);
  if (spans.empty()) return parseBounded(text, out);
  JsonTree tree;
  if (!parseBounded(withoutLongTexts(text, spans), tree)) return false;
  std::vector<std::string*> values;
  collect(
      tree, [](const std::string& value) { return value == placeholder(); }, values);
  if (!putBack(std::move(text), spans, values)) return false;
  out.swap(tree);
  return true;
}

void markEmpty(std::string& text, size_t fromDepth) {
  std::string marked;
  size_t depth = 0, taken = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') i = endOfString(text, i);
    if (i >= text.size()) break;
    if ((text[i] == '}' || text[i] == ']') && depth > 0) --depth;
    if ((text[i] != '{' && text[i] != '[') || ++depth < fromDepth) continue;
    const size_t end = text.find_first_not_of(" \t\r\n", i + 1);
    if (end == std::string::npos || text[end] != (text[i] == '{' ? '}' : ']')) continue;
    marked.append(text, taken, i - taken).append("[\"\"]");
    taken = end + 1;
    i = end;
    --depth;
  }
  if (taken > 0) text = std::move(marked.append(text, taken));
}

std::string writeJson(const JsonTree& tree) {
  std::ostringstream stream;
  boost::property_tree::write_json(stream, tree, /*pretty=*/false);
  std::string text = std::move(stream).str();
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string writeJson(JsonTree&& tree, size_t mostBytes) {
  JsonTree taken;
  taken.swap(tree);
  std::vector<std::string> texts = extractLongTexts(taken);
  std::string around = writeJson(taken);
  taken.clear();
  size_t size = around.size() - texts.size() * placeholder().size();
  for (const std::string& text : texts) size += escapedSize(text);
  if (size > mostBytes)
    throw std::length_error("a message of " + std::to_string(size) + " bytes is too long");
  if (texts.empty()) return around;
  std::string out;
  out.reserve(size);
  size_t at = 0;
  for (std::string& text : texts) {
    const size_t next = around.find(placeholder(), at);
    out.append(around, at, next - at);
    appendEscaped(out, text);
    text = {};
    at = next + placeholder().size();
  }
  out.append(around, at);
  return out;
}

}  // namespace korvane
