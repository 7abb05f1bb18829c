// docs/discovery.xsd and the reader agree on what a definition is: each document is judged by both.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/common/Grammar.hpp>

#include "discovery/definition.h"

namespace korvane {
namespace {

class Counting final : public xercesc::DefaultHandler {
 public:
  void error(const xercesc::SAXParseException&) override { ++errors; }
  void fatalError(const xercesc::SAXParseException&) override { ++errors; }
  int errors = 0;
};

xercesc::MemBufInputSource asSource(const std::string& text) {
  return {reinterpret_cast<const XMLByte*>(text.data()), text.size(), "document"};
}

bool isValid(const std::string& text) {
  using xercesc::XMLUni;
  const std::unique_ptr<xercesc::SAX2XMLReader> reader(
      xercesc::XMLReaderFactory::createXMLReader());
  reader->setFeature(XMLUni::fgSAX2CoreNameSpaces, true);
  reader->setFeature(XMLUni::fgSAX2CoreValidation, true);
  reader->setFeature(XMLUni::fgXercesSchema, true);
  reader->setFeature(XMLUni::fgXercesUseCachedGrammarInParse, true);
  Counting counting;
  reader->setErrorHandler(&counting);
  std::ifstream page(KORVANE_DOCS "/discovery.xsd");
  const std::string schema((std::istreambuf_iterator<char>(page)), {});
  reader->loadGrammar(asSource(schema), xercesc::Grammar::SchemaGrammarType, true);
  reader->parse(asSource(text));
  return counting.errors == 0;
}

TEST(DefinitionSchema, judgesAsTheReaderDoes) {
  xercesc::XMLPlatformUtils::Initialize();
  const struct {
    const char* inside;
    bool accepted;
  } table[] = {
      {"", true},
      {"<ports/><files root='/a'/><services/><files root='/b' hash='false'/>", true},
      {"<files root='/a' pattern='*' depth='64' minSize='0' maxSize='9223372036854775807' "
       "hashLimit='0' "
       "fileVersion='false' signer='true'><exclude pattern='a'/><exclude pattern='b'/></files>",
       true},
      {"<registry key='a' depth='32' value='*'/><limits share='100' rows='10000000' "
       "seconds='604800'/>",
       true},
      {"<limits share='1' rows='1' seconds='1'/>", true},
      {"<drivers/>", false},
      {"text", false},
      {"<ports a='1'/>", false},
      {"<ports><exclude pattern='a'/></ports>", false},
      {"<files/>", false},
      {"<files root=''/>", false},
      {"<files root='/a' depth='65'/>", false},
      {"<files root='/a' depth='+1'/>", false},
      {"<files root='/a' minSize='9223372036854775808'/>", false},
      {"<files root='/a' hash='1'/>", false},
      {"<files root='/a' patterns='a'/>", false},
      {"<files root='/a'><exclude/></files>", false},
      {"<files root='/a'><exclude pattern=''/></files>", false},
      {"<registry/>", false},
      {"<registry key='a' depth='33'/>", false},
      {"<limits share='0'/>", false},
      {"<limits share='101'/>", false},
      {"<limits rows='10000001'/>", false},
      {"<limits seconds='0'/>", false},
  };
  for (const auto& row : table) {
    const std::string text = std::string("<discovery version='2'>") + row.inside + "</discovery>";
    Definition unused;
    EXPECT_EQ(readDefinition(text, 2, unused).empty(), row.accepted) << text;
    EXPECT_EQ(isValid(text), row.accepted) << text;
  }
  EXPECT_FALSE(isValid("<discovery version='3'/>"));
  xercesc::XMLPlatformUtils::Terminate();
}

}  // namespace
}  // namespace korvane
