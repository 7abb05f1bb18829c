#include "outside.h"

using korvane::Section;
using korvane::StringBuffer;

void useSection() {
  Pairs pairs{{text("agent.name"), text("a")}, {text("b"), text("")}};
  std::string zip("PK\0x", 4);
  Section properties(text("text/plain"), text("properties"), &pairs);
  Section other(text("text/plain"), text("other"), &pairs);
  Section binary(text("binary/zip"), text("policy"), &zip);
  Section xml(text("text/xml"), text("x"), &zip);
  Section copy(properties);
  Section assigned;
  assigned = binary;

  StringBuffer written;
  copy.writeTextSection(written);
  other.writeTextSection(written);
  assigned.writeBinarySection(written);
  xml.writeXMLSection(written);
  const std::string framed =
      "Data-Format=text/plain\nData-Type=properties\nData-Length=16\n\nagent.name=a\nb=\n"
      "Data-Format=binary/zip\nData-Type=policy\nData-Length=4\n\n" +
      zip + "Data-Format=text/xml\nData-Type=x\nData-Length=4\n\n" + zip;
  expect(std::string(written.bytes()) == framed,
         "three sections are framed as the protocol says, the fourth is not written");
}
