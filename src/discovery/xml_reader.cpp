#include "discovery/xml_reader.h"

#include <algorithm>
#include <memory>
#include <new>
#include <stdexcept>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PanicHandler.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "util/process_mutex.h"
#include "util/utf8.h"

namespace korvane {
namespace {

// Of what the parser itself gives no place.
constexpr char kSomewhere[] = "line 1, column 1: ";

constexpr char kNoDocumentType[] = "a document type declaration is not allowed";

ProcessMutex xmlLock;  // the parser's state is the process's

std::string narrowText(const XMLCh* text) {
  static_assert(sizeof(XMLCh) == sizeof(char16_t));
  return utf16ToUtf8(reinterpret_cast<const char16_t*>(text));
}

// Ends a reading from inside the parser, which hands it through.
struct Refused {
  std::string text;
};

// The parser's own handler would end the process.
class ThrowingPanic final : public xercesc::PanicHandler {
 public:
  void panic(const PanicReasons reason) override {
    throw std::runtime_error(getPanicReasonString(reason));
  }
};

class XercesSession {
 public:
  XercesSession() {
    xercesc::XMLPlatformUtils::Initialize(xercesc::XMLUni::fgXercescDefaultLocale, nullptr,
                                          &_panic);
  }
  ~XercesSession() { xercesc::XMLPlatformUtils::Terminate(); }
  XercesSession(const XercesSession&) = delete;
  XercesSession& operator=(const XercesSession&) = delete;

 private:
  ThrowingPanic _panic;
};

class Forwarding final : public xercesc::DefaultHandler {
 public:
  explicit Forwarding(XmlHandler& to) : _to(to) {}

  void setDocumentLocator(const xercesc::Locator* const locator) override { _locator = locator; }

  void startElement(const XMLCh* const, const XMLCh* const, const XMLCh* const name,
                    const xercesc::Attributes& given) override {
    XmlAttributes attributes;
    for (XMLSize_t i = 0; i < given.getLength(); ++i)
      attributes.emplace_back(narrowText(given.getQName(i)), narrowText(given.getValue(i)));
    judge(_to.startElement(narrowText(name), attributes));
  }
  void endElement(const XMLCh* const, const XMLCh* const, const XMLCh* const) override {
    judge(_to.endElement());
  }
  void characters(const XMLCh* const text, const XMLSize_t length) override {
    static_assert(sizeof(XMLCh) == sizeof(char16_t));
    judge(_to.text(utf16ToUtf8({reinterpret_cast<const char16_t*>(text), length})));
  }
  // Comes before anything that the declaration holds or names is looked at.
  void startDTD(const XMLCh* const, const XMLCh* const, const XMLCh* const) override {
    judge(kNoDocumentType);
  }

  void warning(const xercesc::SAXParseException&) override {}
  void error(const xercesc::SAXParseException& at) override { refuse(at); }
  void fatalError(const xercesc::SAXParseException& at) override { refuse(at); }

 private:
  static std::string place(XMLFileLoc line, XMLFileLoc column) {
    return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": ";
  }
  static void refuse(const xercesc::SAXParseException& at) {
    throw Refused{place(at.getLineNumber(), at.getColumnNumber()) + narrowText(at.getMessage())};
  }
  void judge(const std::string& reason) const {
    if (reason.empty()) return;
    throw Refused{(_locator ? place(_locator->getLineNumber(), _locator->getColumnNumber()) : "") +
                  reason};
  }

  XmlHandler& _to;
  const xercesc::Locator* _locator = nullptr;
};

// The first line that is no UTF-8, from 1; 0 when all are.
size_t malformedLine(std::string_view document) {
  if (isValidUtf8(document)) return 0;
  size_t line = 1;
  for (size_t begin = 0;; ++line) {
    const size_t end = std::min(document.find('\n', begin), document.size());
    if (!isValidUtf8(document.substr(begin, end - begin)) || end == document.size()) return line;
    begin = end + 1;
  }
}

// Where a document type declaration begins; npos without one. The parser tells of none that is
// empty. In front of it there may be declarations, comments and blanks alone.
size_t documentType(std::string_view document) {
  size_t at = document.starts_with("\xEF\xBB\xBF") ? 3 : 0;
  for (;;) {
    at = std::min(document.find_first_not_of(" \t\r\n", at), document.size());
    const std::string_view rest = document.substr(at);
    const std::string_view end = rest.starts_with("<?") ? "?>" : "-->";
    if (rest.starts_with("<!DOCTYPE")) return at;
    if (!rest.starts_with("<?") && !rest.starts_with("<!--")) return std::string_view::npos;
    const size_t close = rest.find(end, rest.starts_with("<?") ? 2 : 4);
    if (close == std::string_view::npos) return close;
    at += close + end.size();
  }
}

void parse(std::string_view document, XmlHandler& handler) {
  using xercesc::XMLUni;
  Forwarding forwarding(handler);
  const std::unique_ptr<xercesc::SAX2XMLReader> reader(
      xercesc::XMLReaderFactory::createXMLReader());
  reader->setFeature(XMLUni::fgSAX2CoreNameSpaces, false);
  reader->setFeature(XMLUni::fgSAX2CoreValidation, false);
  reader->setFeature(XMLUni::fgXercesSchema, false);
  reader->setFeature(XMLUni::fgXercesLoadExternalDTD, false);
  reader->setFeature(XMLUni::fgXercesDisableDefaultEntityResolution, true);
  reader->setContentHandler(&forwarding);
  reader->setErrorHandler(&forwarding);
  reader->setEntityResolver(&forwarding);
  reader->setLexicalHandler(&forwarding);
  xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(document.data()),
                                    document.size(), "definition");
  source.setEncoding(XMLUni::fgUTF8EncodingString);
  reader->parse(source);
}

}  // namespace

std::string readXml(std::string_view document, XmlHandler& handler) {
  // The parser would take the end of a malformed text for the end of the document.
  if (const size_t line = malformedLine(document))
    return "line " + std::to_string(line) + ", column 1: the text is not UTF-8";
  if (const size_t at = documentType(document); at != std::string_view::npos) {
    const std::string_view before = document.substr(0, at);
    const size_t lines = static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
    return "line " + std::to_string(lines + 1) + ", column " +
           std::to_string(at - (before.rfind('\n') + 1) + 1) + ": " + kNoDocumentType;
  }
  const ProcessLock hold(xmlLock);
  try {
    const XercesSession session;
    try {
      parse(document, handler);
      return {};
    } catch (const xercesc::OutOfMemoryException&) {
      throw std::bad_alloc();
    } catch (const xercesc::XMLException& error) {
      return kSomewhere + narrowText(error.getMessage());
    } catch (const xercesc::SAXException& error) {
      return kSomewhere + narrowText(error.getMessage());
    }
  } catch (const Refused& refused) {
    return refused.text;
  } catch (const xercesc::XMLException&) {
    return kSomewhere + std::string("the XML parser cannot be started");
  } catch (const std::runtime_error& error) {
    return kSomewhere + std::string("the XML parser cannot work: ") + error.what();
  }
}

}  // namespace korvane
