#include <charconv>
#include <optional>

#include "discovery/definition.h"
#include "discovery/xml_reader.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr size_t kMostFiles = 256, kMostExcludes = 64, kMostRegistry = 256;
constexpr uint64_t kMostBytes = std::numeric_limits<int64_t>::max();
constexpr uint64_t kMostDepth = 64, kMostKeyDepth = 32;
constexpr uint64_t kMostRows = 10000000, kMostSeconds = 604800;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string quoted(std::string_view text) {
  constexpr size_t kMostShown = 100;
  return '"' + std::string(text.substr(0, kMostShown)) + '"';
}

// The attributes of one element: each is taken by its name, and what nobody took is refused.
class Attributes {
 public:
  explicit Attributes(const XmlAttributes& given) : _left(given) {}

  std::optional<std::string> take(std::string_view name) {
    for (auto at = _left.begin(); at != _left.end(); ++at) {
      if (at->first != name) continue;
      std::string value = std::move(at->second);
      _left.erase(at);
      return value;
    }
    return std::nullopt;
  }

  void text(std::string_view name, bool required, std::string& out) {
    const auto value = take(name);
    if (!value && required) refuse("the attribute " + quoted(name) + " is missing");
    if (!value) return;
    if (value->empty()) refuse(quoted(name) + " is empty");
    out = *value;
  }

  template <class Number>
  void number(std::string_view name, uint64_t least, uint64_t most, Number& out) {
    const auto value = take(name);
    if (!value) return;
    uint64_t read = 0;
    const char* end = value->data() + value->size();
    const auto [stop, error] = std::from_chars(value->data(), end, read);
    if (error == std::errc() && stop == end && read >= least && read <= most) {
      out = static_cast<Number>(read);
    } else {
      refuse(quoted(name) + " is " + quoted(*value) + ", not a number from " +
             std::to_string(least) + " to " + std::to_string(most));
    }
  }

  void flag(std::string_view name, bool& out) {
    const auto value = take(name);
    if (!value) return;
    if (*value != "true" && *value != "false")
      refuse(quoted(name) + " is " + quoted(*value) + R"(, not "true" or "false")");
    out = *value == "true";
  }

  void patterns(std::string_view name, std::vector<std::string>& out) {
    std::string all;
    text(name, false, all);
    if (all.empty()) return;
    out.clear();
    for (size_t begin = 0; begin <= all.size();) {
      const size_t end = std::min(all.find(';', begin), all.size());
      if (end == begin) refuse(quoted(name) + " has an empty pattern");
      out.push_back(all.substr(begin, end - begin));
      begin = end + 1;
    }
  }

  void refuse(std::string reason) {
    if (_reason.empty()) _reason = std::move(reason);
  }
  // Why the element is refused; empty when it is not.
  std::string verdict() {
    if (!_left.empty())
      refuse("the attribute " + quoted(_left.front().first) + " is not known here");
    return _reason;
  }

 private:
  XmlAttributes _left;
  std::string _reason;
};

class DefinitionHandler final : public XmlHandler {
 public:
  explicit DefinitionHandler(int format) : _format(format) {}

  std::string startElement(const std::string& name, const XmlAttributes& given) override {
    Attributes attributes(given);
    const bool known = _depth == 0   ? startRoot(name, attributes)
                       : _depth == 1 ? startPart(name, attributes)
                                     : startExclude(name, attributes);
    if (!known) return "the element " + quoted(name) + " is not known here";
    _parent = name;
    ++_depth;
    return attributes.verdict();
  }

  std::string endElement() override {
    if (--_depth == 1) _parent = "discovery";
    if (_depth == 2) _parent = "files";
    return {};
  }

  std::string text(const std::string& piece) override {
    return piece.find_first_not_of(" \t\r\n") == std::string::npos ? "" : "text between elements";
  }

  Definition definition;

 private:
  bool startRoot(const std::string& name, Attributes& attributes) {
    attributes.take("xmlns:xsi");
    attributes.take("xsi:noNamespaceSchemaLocation");
    std::string version;
    attributes.text("version", true, version);
    if (name == "discovery" && version != std::to_string(_format))
      attributes.refuse("the version is " + quoted(version) + ", not " +
                        quoted(std::to_string(_format)));
    return name == "discovery";
  }

  bool startPart(const std::string& name, Attributes& attributes) {
    if (bool* const part = partOf(name)) {
      once(*part, attributes);
    } else if (name == "files") {
      startFiles(attributes);
    } else if (name == "registry" && _format > 1) {
      startRegistry(attributes);
    } else if (name == "limits" && _format > 1) {
      startLimits(attributes);
    } else {
      return false;
    }
    return true;
  }

  bool* partOf(const std::string& name) {
    Definition& all = definition;
    return name == "applications" ? &all.applications
           : name == "services"   ? &all.services
           : name == "processes"  ? &all.processes
           : name == "ports"      ? &all.ports
           : name == "shortcuts"  ? &all.shortcuts
                                  : nullptr;
  }

  static void once(bool& seen, Attributes& attributes) {
    if (seen) attributes.refuse("the element stands there twice");
    seen = true;
  }

  void startFiles(Attributes& attributes) {
    FileRoot files;
    attributes.text("root", true, files.root);
    if (!files.root.empty() && !platform::isAbsolutePath(files.root))
      attributes.refuse(R"("root" is )" + quoted(files.root) + ", not a full path");
    attributes.patterns("pattern", files.patterns);
    attributes.number("depth", 0, kMostDepth, files.depth);
    attributes.number("minSize", 0, kMostBytes, files.minSize);
    attributes.number("maxSize", 0, kMostBytes, files.maxSize);
    if (files.minSize > files.maxSize) attributes.refuse(R"("minSize" is above "maxSize")");
    if (_format > 1) {
      attributes.flag("hash", files.hash);
      attributes.number("hashLimit", 0, kMostBytes, files.hashLimit);
      attributes.flag("fileVersion", files.fileVersion);
      attributes.flag("signer", files.signer);
    }
    if (definition.files.size() == kMostFiles) attributes.refuse(R"(more than 256 "files")");
    definition.files.push_back(std::move(files));
  }

  bool startExclude(const std::string& name, Attributes& attributes) {
    if (name != "exclude" || _format < 2 || _parent != "files") return false;
    std::string pattern;
    attributes.text("pattern", true, pattern);
    std::vector<std::string>& excluded = definition.files.back().excluded;
    if (excluded.size() == kMostExcludes) attributes.refuse(R"(more than 64 "exclude")");
    excluded.push_back(std::move(pattern));
    return true;
  }

  void startRegistry(Attributes& attributes) {
    RegistryRoot root;
    attributes.text("key", true, root.key);
    attributes.number("depth", 0, kMostKeyDepth, root.depth);
    attributes.text("value", false, root.value);
    if (definition.registry.size() == kMostRegistry)
      attributes.refuse(R"(more than 256 "registry")");
    definition.registry.push_back(std::move(root));
  }

  void startLimits(Attributes& attributes) {
    once(_limited, attributes);
    attributes.number("share", 1, 100, definition.limits.share);
    attributes.number("rows", 1, kMostRows, definition.limits.rows);
    attributes.number("seconds", 1, kMostSeconds, definition.limits.seconds);
  }

  const int _format;
  size_t _depth = 0;    // of the elements that are open
  std::string _parent;  // the innermost of them
  bool _limited = false;
};

}  // namespace

std::string readDefinition(std::string_view text, int format, Definition& out) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  DefinitionHandler handler(format);
  std::string refusal = readXml(text, handler);
  if (refusal.empty()) out = std::move(handler.definition);
  return refusal;
}

}  // namespace korvane
