#include "comm/response_parser.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace korvane {
namespace {

// What was read, as one line.
std::string describe(ResponseParser& response) {
  if (!response.finish(false)) return "fault";
  std::string out = fmt::format("error={}", response.errorCode());
  for (const PropertyList& list : response.properties()) {
    out += " [";
    for (const Property& pair : list)
      out += "(" + pair.first.toUtf8() + "=" + pair.second.toUtf8() + ")";
    out += "]";
  }
  if (response.errorText()) out += " text{" + response.errorText()->toUtf8() + "}";
  for (const Property& xml : response.texts())
    out += " xml:" + xml.first.toUtf8() + "{" + xml.second.toUtf8() + "}";
  for (const auto& part : response.binaries())
    out += fmt::format(" {}:{}", part.name, part.bytes.size());
  return out;
}

std::string section(const std::string& format, const std::string& name,
                    const std::string& payload) {
  return fmt::format("Data-Format={}\nData-Type={}\nData-Length={}\n\n{}\n", format, name,
                     payload.size(), payload);
}
std::string properties(const std::string& lines) {
  return section("text/plain", "properties", lines);
}
std::string wideText(std::u16string_view text) {
  std::string bytes;
  for (char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

void expectRead(const char* what, const std::vector<std::string>& headers, const std::string& body,
                const std::string& expected) {
  ResponseParser response;
  for (const std::string& line : headers) response.addHeaderLine(line);
  response.addBody(body);
  EXPECT_EQ(describe(response), expected) << what << ": " << response.fault();
}

TEST(ResponseParser, ReadsHeadersAndSections) {
  const std::string end = "EOF_FLAG\n";
  expectRead("nothing", {}, "", "error=0");
  expectRead("end marker", {}, end, "error=0");
  expectRead("end marker behind empty lines, without its own", {}, "\n\nEOF_FLAG", "error=0");
  expectRead("error code", {"Korvane-Error: 12\r\n"}, end, "error=12");
  expectRead("lower case, no line end", {"korvane-error: 400"}, end, "error=400");
  expectRead("no blank behind the colon", {"Korvane-Error:400\r\n"}, end, "error=400");
  expectRead("empty value", {"Korvane-Error: \r\n"}, end, "error=0");
  expectRead("nothing behind the colon", {"Korvane-Error:"}, end, "error=0");
  expectRead("non-digits end the number", {"Korvane-Error: 30x1"}, end, "error=30");
  expectRead("no digits", {"Korvane-Error: x"}, end, "error=0");
  expectRead("negative", {"Korvane-Error: -3"}, end, "error=0");
  expectRead("too large a code is still one", {"Korvane-Error: 99999999999"}, end,
             "error=2147483647");
  expectRead("no colon", {"Korvane-Error 12\r\n", "\r\n", ""}, end, "error=0");
  expectRead("another name", {"X-Korvane-Error: 12", "Korvane-Errors: 13"}, end, "error=0");
  expectRead(
      "only the last block counts",
      {"HTTP/1.1 100 Continue\r\n", "Korvane-Error: 1\r\n", "\r\n", "HTTP/1.1 200 OK\r\n", "\r\n"},
      end, "error=0");
  expectRead("code of the last block",
             {"HTTP/1.1 200 Connection: established\r\n", "\r\n", "HTTP/1.1 200 OK\r\n",
              "KORVANE-ERROR: 7\r\n", "\r\n"},
             end, "error=7");
  expectRead("properties", {}, properties("a=b\n#no=pair\nno pair\n=x\nc=d=e\nlast=1") + end,
             "error=0 [(a=b)(=x)(c=d=e)(last=1)]");
  expectRead("empty properties", {}, properties("") + end, "error=0 []");
  expectRead("two lists", {}, properties("a=1\n") + properties("a=2\n") + end,
             "error=0 [(a=1)] [(a=2)]");
  expectRead("UTF-8", {}, properties("n=\xC3\xA4\n") + end, "error=0 [(n=\xC3\xA4)]");
  expectRead("error text", {}, section("text/plain", "stacktrace", "no") + end, "error=0 text{no}");
  expectRead("empty error text", {}, section("text/plain", "stacktrace", "") + end,
             "error=0 text{Server did not return any error string.}");
  expectRead("wide properties and text", {"Korvane-Charset: UTF-16LE\r\n"},
             properties(wideText(u"a=\u00e4\n")) +
                 section("text/plain", "stacktrace", wideText(u"no") + "x"),
             "error=0 [(a=\xC3\xA4)] text{no}");
  expectRead("wide leaves XML in UTF-8", {"korvane-charset: UTF-16LE"},
             section("text/xml", "rules", "<\xC3\xA4/>"), "error=0 xml:rules{<\xC3\xA4/>}");
  expectRead("another text is skipped", {}, section("text/plain", "other", "Data-Length=9") + end,
             "error=0");
  expectRead("kept binaries", {},
             section("binary/zip", "policy", "PK\n\n") + section("binary/zip", "zipdata", "") + end,
             "error=0 policy:4 zipdata:0");
  expectRead("a dropped binary is read on inside", {},
             section("binary/zip", "logrule", section("text/plain", "properties", "in=1\n")) + end,
             "error=0 [(in=1)]");
  expectRead("a dropped binary's bytes count as header lines of what follows", {},
             section("binary/zip", "logrule", "hello") + properties("c=d\n") + end,
             "error=0 [(c=d)]");
  expectRead("and swallow the end marker", {},
             properties("a=b\n") + section("binary/zip", "logrule", "hello") + end,
             "error=0 [(a=b)]");
  expectRead("an unknown format ends the walk", {},
             section("image/png", "x", "1") + properties("a=b\n"), "error=0");
  expectRead("a header block without a format ends the walk", {}, "junk\n\n" + properties("a=b\n"),
             "error=0");
  expectRead("sections behind the end marker", {}, end + properties("a=b\n"), "error=0");
  expectRead("keys are found anywhere, their values cut at a fixed place", {},
             "xData-Format=text/plain\nData-Type=properties\nData-Length=0\n\n", "error=0");
  expectRead("other header lines and any order", {},
             "Data-Length= 4 \nX=1\nData-Type=properties\nData-Format=text/plain\n\na=b\n\n" + end,
             "error=0 [(a=b)]");
  expectRead("a header block that does not end", {"HTTP/1.1 200 OK\r\n", "Korvane-Err"}, end,
             "fault");
  expectRead("length unknown, end marker missing", {"HTTP/1.1 200 OK", ""}, properties("a=b\n"),
             "fault");
  expectRead("length unknown, end marker there", {"HTTP/1.1 200 OK", ""},
             properties("a=b\n") + "EOF_FLAG", "error=0 [(a=b)]");
  expectRead("length known, end marker missing", {"HTTP/1.1 200 OK", "content-length: 64", ""},
             properties("a=b\n"), "error=0 [(a=b)]");
  expectRead("length unknown, no body", {"HTTP/1.1 200 OK", ""}, "", "error=0");
  expectRead("no length", {}, "Data-Format=text/plain\nData-Type=properties\n\na=b\n", "fault");
  expectRead("empty length", {}, "Data-Format=text/plain\nData-Length=\n\n", "fault");
  expectRead("length without its value", {}, "Data-Format=text/plain\nData-Length\n\n", "fault");
  expectRead("negative", {}, "Data-Format=text/plain\nData-Length=-1\n\nabc", "fault");
  expectRead("no number", {}, "Data-Format=text/plain\nData-Length=4x\n\nabcd", "fault");
  expectRead("beyond the body", {}, "Data-Format=text/xml\nData-Length=5\n\nabcd", "fault");
  expectRead("overflowing", {}, "Data-Format=text/xml\nData-Length=18446744073709551617\n\nabcd",
             "fault");
  expectRead("largest", {}, "Data-Format=text/xml\nData-Length=18446744073709551615\n\nabcd",
             "fault");
  expectRead("a dropped binary that is not all there", {},
             "Data-Format=binary/zip\nData-Type=logrule\nData-Length=9\n\nabcd", "fault");
  expectRead("CR LF framing", {}, "Data-Format=text/plain\r\nData-Length=0\r\n\r\n", "fault");
}

std::string fullBody() {
  return properties("a=b\nagent.id=7\n") + section("text/plain", "stacktrace", "why") +
         section("text/xml", "x", "<a/>") + section("binary/zip", "zipdata", "PK12") + "EOF_FLAG\n";
}

// Between sections a body may end; anywhere else a cut is a fault, and nothing of it is used.
TEST(ResponseParser, CutAtEveryByte) {
  const std::string body = fullBody();
  std::set<size_t> borders{0};
  for (size_t at = body.find("Data-Format"); at != std::string::npos;
       at = body.find("Data-Format", at + 1)) {
    borders.insert({at - (at > 0), at});
  }
  const size_t marker = body.find("EOF_FLAG");
  borders.insert({marker - 1, marker, marker + 8, marker + 9});
  for (size_t length = 0; length <= body.size(); ++length) {
    ResponseParser response;
    response.addBody(body.substr(0, length));
    EXPECT_EQ(response.finish(false), borders.count(length) > 0) << length << response.fault();
    if (response.refused()) {
      EXPECT_TRUE(response.properties().empty() && response.binaries().empty()) << length;
      EXPECT_NE(response.fault().find("section "), std::string::npos) << response.fault();
    }
  }
}

// Where HTTP tells the end of the body, nothing but that counts.
TEST(ResponseParser, ABodyOfKnownLengthNeedsNoEndMarker) {
  for (const auto& [header, whole] : {std::pair("Content-Length: 9", true),
                                      {"transfer-encoding: chunked", true},
                                      {"X: y", false}}) {
    ResponseParser response;
    for (const char* line : {"HTTP/1.1 200 OK", header, ""}) response.addHeaderLine(line);
    response.addBody(properties("a=b\n"));
    EXPECT_EQ(response.finish(false), whole) << header;
    EXPECT_EQ(response.brokenOff(), !whole) << header;
  }
}

TEST(ResponseParser, BoundsHold) {
  const ResponseLimits limits{.headerBytes = 100,
                              .headerCount = 4,
                              .bodyBytes = 400,
                              .textBytes = 30,
                              .errorTextBytes = 6,
                              .sections = 3,
                              .properties = 5};
  const auto fault = [&](int headerLines, const std::string& line, const std::string& body) {
    ResponseParser response(limits);
    for (int i = 0; i < headerLines; ++i) response.addHeaderLine(line);
    response.addBody(body);
    return response.finish(false) ? std::string() : response.fault();
  };
  EXPECT_EQ(fault(4, "a: b\r\n", properties("a=b\n")), "");
  EXPECT_EQ(fault(5, "a: b\r\n", ""), "more than 100 bytes or 4 lines of headers");
  EXPECT_EQ(fault(2, std::string(60, 'x'), ""), "more than 100 bytes or 4 lines of headers");
  EXPECT_EQ(fault(0, "", std::string(400, '\n')), "");
  EXPECT_EQ(fault(0, "", std::string(401, '\n')), "a body of more than 400 bytes");
  std::string many;
  for (int i = 0; i < 4; ++i) many += properties("");
  EXPECT_NE(fault(0, "", many).find("more than 3 sections"), std::string::npos);
  EXPECT_NE(fault(0, "", properties("a=\na=\na=\na=\na=\na=\n")).find("more than 5 properties"),
            std::string::npos);
  EXPECT_EQ(fault(0, "", properties("a=" + std::string(27, 'x') + "\n")), "");
  EXPECT_NE(fault(0, "", properties("a=b\n") + properties("a=" + std::string(27, 'x') + "\n"))
                .find("more than 30 bytes of text"),
            std::string::npos);
  ResponseParser long_(limits);
  long_.addBody("Data-Format=text/plain\nData-Type=stacktrace\nData-Length=40\n\n" +
                std::string(40, 'x') + "\nEOF_FLAG\n");
  ASSERT_TRUE(long_.finish(false)) << long_.fault();
  EXPECT_EQ(long_.errorText(), STRING("xxxxxx"));
  // A declared length costs no memory, and the fault says what and where.
  EXPECT_EQ(fault(0, "", "\nData-Format=text/xml\nData-Length=9000000000\n\nab"),
            "section 1 at byte 1 of the body: it declares 9000000000 bytes and 2 are there");
}

}  // namespace
}  // namespace korvane
