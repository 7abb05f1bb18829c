#include "comm/section.h"

#include <string>

#include "util/utf8.h"

namespace korvane {
namespace {

std::string narrowLines(const PropertyList& pairs) {
  std::string lines;
  for (const Property& pair : pairs) {
    appendUtf8(lines, pair.first.utf16());
    lines += '=';
    appendUtf8(lines, pair.second.utf16());
    lines += '\n';
  }
  return lines;
}

// The same lines in UTF-16LE.
std::string wideLines(const PropertyList& pairs) {
  std::string lines;
  for (char16_t unit : utf8ToUtf16(narrowLines(pairs))) {
    lines += static_cast<char>(unit & 0xFF);
    lines += static_cast<char>(unit >> 8);
  }
  return lines;
}

}  // namespace

Section::Section() = default;
Section::Section(const Section&) = default;
Section& Section::operator=(const Section&) = default;
Section::~Section() = default;

Section::Section(const STRING& sectionType, const STRING& sectionName, void* sectionData)
    : type(sectionType), name(sectionName), data(sectionData) {}

void Section::writeTextSection(StringBuffer& buffer) const {
  if (name != STRING("properties") || !data) return;
  const PropertyList& pairs = *static_cast<const PropertyList*>(data);
  buffer.addSection(type.toUtf8(), name.toUtf8(), wide ? wideLines(pairs) : narrowLines(pairs));
}

void Section::writeXMLSection(StringBuffer& buffer) const {
  writeBytes(buffer);
}

void Section::writeBinarySection(StringBuffer& buffer) const {
  writeBytes(buffer);
}

void Section::writeBytes(StringBuffer& buffer) const {
  const std::string* bytes = static_cast<const std::string*>(data);
  buffer.addSection(type.toUtf8(), name.toUtf8(), bytes ? std::string_view(*bytes) : "");
}

}  // namespace korvane
