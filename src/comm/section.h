// One part of a message body: a content kind, a name and the data.
//
// A Section refers to its data and does not own it: for "text/plain" a PropertyList, for "text/xml"
// and "binary/zip" a std::string of bytes. Copies refer to the same data. The generator, which
// makes sections from copies of what it is given, owns both. Used by one thread at a time; nothing
// here fails.
//
//   PropertyList pairs{{"update.policy", "true"}};
//   Section section("text/plain", "properties", &pairs);
//   section.writeTextSection(buffer);
#pragma once

#include <string_view>

#include "comm/message_body.h"
#include "util/export.h"
#include "util/property_list.h"
#include "util/string.h"

namespace korvane {

class KORVANE_EXPORT Section {
 public:
  Section();
  Section(const STRING& type, const STRING& name, void* data);
  Section(const Section&);
  Section& operator=(const Section&);
  ~Section();

  // Each appends the framing lines and the payload, without the line feed that follows a section.
  // writeTextSection: pairs as name=value lines in UTF-8, or in UTF-16LE when `wide` is set; a
  // section with another name than "properties" adds nothing at all.
  void writeTextSection(StringBuffer& buffer) const;
  void writeXMLSection(StringBuffer& buffer) const;
  void writeBinarySection(StringBuffer& buffer) const;

  STRING type;
  STRING name;
  void* data = nullptr;
  bool wide = false;

 private:
  void writeBytes(StringBuffer& buffer) const;
};

// The content kinds, as they stand on the wire.
inline constexpr char kTextSection[] = "text/plain";
inline constexpr char kXmlSection[] = "text/xml";
inline constexpr char kBinarySection[] = "binary/zip";

}  // namespace korvane
