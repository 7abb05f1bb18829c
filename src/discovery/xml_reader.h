// Reads an XML document from memory and hands over what is in it, element by element. Nothing outside the
// document is ever looked at: a document type declaration ends the reading, and with it every entity
// but the five of XML. UTF-8 alone, whatever the declaration says.
//
// Pure but for the parser's own state of the process, which exists while a document is read; readings
// take turns. Threads: any. Errors: the refusal; only std::bad_alloc is thrown.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvane {

using XmlAttributes = std::vector<std::pair<std::string, std::string>>;

// What takes a document. A text that is not empty refuses it there, for that reason.
class XmlHandler {
 public:
  virtual ~XmlHandler() = default;
  virtual std::string startElement(const std::string& name, const XmlAttributes& attributes) = 0;
  virtual std::string endElement() = 0;
  // A piece of the text between elements, in as many as the parser likes.
  virtual std::string text(const std::string& piece) = 0;
};

// "line L, column C: reason", both from 1; a tag is refused at its end. Empty when the whole document is taken.
std::string readXml(std::string_view document, XmlHandler& handler);

}  // namespace korvane
