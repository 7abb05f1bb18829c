#include "rpc/json_text.h"

#include <boost/property_tree/json_parser.hpp>
#include <istream>
#include <sstream>
#include <streambuf>

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
  while (++at < text.size() && text[at] != '"')
    if (text[at] == '\\') ++at;
  return at;
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

}  // namespace

bool parseJson(std::string_view text, JsonTree& out) {
  if (!withinBounds(text)) return false;
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

std::string writeJson(const JsonTree& tree) {
  std::ostringstream stream;
  boost::property_tree::write_json(stream, tree, /*pretty=*/false);
  std::string text = std::move(stream).str();
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace korvane
