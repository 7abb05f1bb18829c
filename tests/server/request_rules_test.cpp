// Requests that break the page in one place each, and what the server says of them.
#include "tools/server/request_rules.h"

#include <gmock/gmock.h>

#include "tests/server/server_fixture.h"

namespace korvane::server {
namespace {

using testing::HasSubstr;

const HeaderLines kHeaders = {{"Host", "h"},
                              {"Korvane-Format-Version", "1.0"},
                              {"Content-Type", "application/x-korvane"},
                              {"korvane-charset", ""},
                              {"Korvane-GUID", "g"},
                              {"Content-Length", "9"}};

TEST(RequestRules, HeadersAreEachThereOnceAndInOrder) {
  EXPECT_EQ(checkHeaders("log", kHeaders), "");
  const auto without = [](size_t index) {
    HeaderLines headers = kHeaders;
    headers.erase(headers.begin() + static_cast<ptrdiff_t>(index));
    return headers;
  };
  EXPECT_EQ(checkHeaders("register", without(4)), "");
  for (const char* word : {"register", "testConnection"})
    EXPECT_THAT(checkHeaders(word, kHeaders), HasSubstr("\"Korvane-GUID\" in a request without"));
  for (size_t index = 1; index <= 3; ++index)
    EXPECT_THAT(checkHeaders("log", without(index)), HasSubstr("too early")) << index;
  EXPECT_THAT(checkHeaders("log", without(4)), HasSubstr("\"Korvane-GUID\" is missing"));
  EXPECT_THAT(checkHeaders("log", without(5)), HasSubstr("0 headers"));
  HeaderLines headers = kHeaders;
  std::swap(headers[2], headers[3]);
  EXPECT_THAT(checkHeaders("log", headers), HasSubstr("\"korvane-charset\" too early"));
  for (const char* more : {"Transfer-Encoding", "expect", "Korvane-GUID", "content-length"}) {
    headers = kHeaders;
    headers.emplace_back(more, "x");
    EXPECT_NE(checkHeaders("log", headers), "") << more;
  }
}

// Shorthand for a body: properties sections as texts, "#" a binary one, "<" one of XML.
std::vector<WireSection> sectionsOf(const std::vector<std::string>& parts) {
  std::vector<WireSection> sections;
  for (const std::string& part : parts) {
    if (part == "#")
      sections.push_back({"binary/zip", "policy", "PK"});
    else if (part == "<")
      sections.push_back({"text/xml", "data", "<x/>"});
    else
      sections.push_back({"text/plain", "properties", part});
  }
  return sections;
}

constexpr char kState[] =
    "result.type=policy\nresult.errorcode=-100\nresult.errormessage=\nrid.applied=\nrid.group=\n"
    "policy.name=\npolicy.path=builtin\n";
constexpr char kStatusEnd[] = "agent.timezone=UTC\nagent.domain.name=\nagent.osversion=x\n";
constexpr char kData[] =
    "result.type=app.data\napplication.requestID=r\napplication.request.complete=false\n";
constexpr char kContent[] =
    "update.qel=true\nupdate.ferrolyn.revocation=true\nupdate.ferrolyn.settings=true\n"
    "update.ferrolyn.vexvt=true\n";

TEST(RequestRules, EachPathWordHasItsSectionsAndNames) {
  const std::string state = kState, status = state + kStatusEnd, data = kData, content = kContent;
  const std::string books = "ledger.accounts=1\nledger.account.1=x\n";
  const struct {
    const char* word;
    std::vector<std::string> parts;
    const char* fault;  // a part of the text; empty when the request is in order
  } cases[] = {
      {"testConnection", {}, ""},
      {"testConnection", {""}, "section 1"},
      {"register", {"agent.name=\n", ""}, ""},
      {"register", {"", "", "idslogrules=a\nidslogrules=b\n", "#", "#"}, ""},
      {"register", {""}, "1 leading"},
      {"register", {"", "", "", ""}, "4 leading"},
      {"register", {"", "", "#", ""}, "section 4"},
      {"register", {"", "", "#", "#", "#"}, "section 5"},
      {"register", {"", "", "<"}, "text/xml"},
      {"register", {"a=1\na=1\n", ""}, "occurs twice"},
      {"update", {"update.configuration=true\nupdate.configuration.ids=true\nagent.id=\n"}, ""},
      {"update", {content}, ""},
      {"update", {content + "agent.name=x\n"}, "one too many"},
      {"update", {"update.qel=true\n"}, "is missing"},
      {"update", {"update.policy=true\nupdate.configuration=true\n"}, "out of its order"},
      {"update", {"update.config=true\n"}, "unknown"},
      {"update", {"update.policy=yes\n"}, "not \"true\""},
      {"update", {"agent.id=\nupdate.policy=true\n"}, "out of its order"},
      {"update", {"agent.id=\n"}, "no update"},
      {"update", {""}, "no update"},
      {"update", {"update.policy=true\n", "#"}, "section 2"},
      {"update", {}, "first section"},
      {"result", {state}, ""},
      {"result", {status}, ""},
      {"result", {state + "agent.timezone=UTC\n"}, "\"agent.domain.name\" is missing"},
      {"result", {status + "x=1\n"}, "one too many"},
      {"result", {status + books + "ledger.entries=1\nledger.entry.1=x\n"}, ""},
      {"result", {status + books}, "\"ledger.entries\" is missing"},
      {"result", {status + books + "ledger.entries=2\nledger.entry.1=x\n"}, "entry.2\" is missing"},
      {"result", {status + books + "ledger.entries=0\nledger.entry.1=x\n"}, "one too many"},
      {"result", {status + books + "ledger.entries=-1\n"}, "is not the number"},
      {"result", {"result.errorcode=0\n" + state}, "first property"},
      {"result", {status, "#"}, "section 2"},
      {"result", {data, "#"}, ""},
      {"result", {data}, ""},
      {"result", {data, "<"}, "section 2"},
      {"result", {data + "x=\n"}, "one too many"},
      {"result",
       {"result.type=app.data\napplication.requestID=\napplication.request.complete=true\n"},
       "is empty"},
      {"result", {"result.type=qel\nresult.errorcode=36\nresult.errormessage=t\n"}, ""},
      {"result", {"result.type=qel\nresult.errorcode=x\nresult.errormessage=t\n"}, "is \"x\""},
      {"result", {"result.type=update.qel\nresult.errorcode=0\n"}, "unknown type"},
      {"result", {"result.type=config\nresult.errormessage=\nresult.errorcode=0\n"}, "property 2"},
      {"result", {"result.type=software\nsoftware.name=x\nresult.errorcode=0\n"}, ""},
      {"log", {"v2=1\nv3=t\nv1=TFIL\nv4=x\nv17=x\na1=h\na6=t\nv18=x\nv49=x\n", "v1=ATST\n"}, ""},
      {"log", {}, "no record"},
      {"log", {"v1=TFIL\n", "#"}, "section 2"},
      {"log", {"v1=TFIL\nv2=1\n"}, "record 1: \"v2\" is out of its order"},
      {"log", {"v1=TFIL\n", "v1=TFIL\nv5=\n"}, "record 2: \"v5\" is empty"},
      {"log", {"v1=TFIL\nv18=x\nv18=x\n"}, "out of its order"},
      {"log", {"v1=TFIL\nv50=x\n"}, "not the name"},
      {"log", {"v1=TFIL\nv018=x\n"}, "not the name"},
      {"log", {"v1=TFI\n"}, "event type"},
      {"log", {"v1=XFIL\n"}, "event type"},
      {"log", {"v1=TFIL\na5=0\n"}, "\"a5\""},
      {"bulk-log", {"#", "file.name=a.zip\n"}, ""},
      {"bulk-log", {"file.name=a.zip\n", "#"}, "not one binary"},
      {"bulk-log", {"#", "file.name=a\nx=1\n"}, "one too many"},
  };
  for (const auto& tried : cases) {
    const std::string fault = checkSections(tried.word, sectionsOf(tried.parts));
    const std::string shown = std::string(tried.word) + " " + testing::PrintToString(tried.parts);
    if (*tried.fault == 0)
      EXPECT_EQ(fault, "") << shown;
    else
      EXPECT_THAT(fault, HasSubstr(tried.fault)) << shown;
  }
  EXPECT_TRUE(isStatus(status));
  EXPECT_FALSE(isStatus(state));
}

TEST_F(ServerTest, ARequestThatBreaksThePageIsRefusedAndKeptOut) {
  start();
  const std::string guid = registerAgent();
  ClientHeaders swapped = headersOf(guid), other = headersOf(guid), plain = headersOf(guid);
  std::swap(swapped[0], swapped[1]);
  other[0].second = "2.0";
  plain[1].second = "text/plain";
  for (const ClientHeaders& headers : {swapped, other, plain, headersOf("")})
    EXPECT_EQ(post(*_client, "log", eventsFrom(1, 1), headers).korvaneError, 700);
  const Answer answer = post("log", messageOf({{{"v1", "TFIL"}, {"v2", "7"}}}), guid);
  EXPECT_EQ(answer.korvaneError, 700);
  EXPECT_THAT(answer.body, HasSubstr("\"log\": record 1: \"v2\" is out of its order"));
  EXPECT_EQ(get("/state")["malformed"], 5);
  for (const char* word : {"nonsense", "log/"})
    EXPECT_EQ(post(word, "EOF_FLAG\n", guid).status, 404) << word;
  EXPECT_EQ(get("/events")["received"], 0);
  EXPECT_THAT(get("/requests?word=log")[0]["fault"], HasSubstr("too early"));
}

}  // namespace
}  // namespace korvane::server
