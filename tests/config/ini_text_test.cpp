#include "config/ini_text.h"

#include <gtest/gtest.h>

#include "config/url_text.h"

namespace korvane {
namespace {

std::string join(const PropertyList& values) {
  std::string text;
  for (const auto& [key, value] : values) text += key.toUtf8() + ":" + value.toUtf8() + "|";
  return text;
}

TEST(IniTextTest, ReadsLines) {
  struct Case {
    const char* bytes;
    const char* values;
  } const cases[] = {
      {"", ""},
      {"[A]\nk=v\n", "k:v|"},
      {"\xEF\xBB\xBF[A]\r\nk=v\r\nlast=1", "k:v|last:1|"},
      {"  k = v w \n", "k:v w|"},
      {"k=a=b\n", "k:a=b|"},
      {"k=\n", "k:|"},
      {"k=first\nk=second\n", "k:first|"},
      {"; k=1\n# k=2\nno equals\n=nameless\n[k=v]\n", ""},
      {"name=\xC3\xA4\xF0\x9F\x98\x80\n", "name:\xC3\xA4\xF0\x9F\x98\x80|"},
      {"agentini.checksum=x\nk=v\n[Checksum]\nlate=1\n", "k:v|"},
  };
  for (const Case& c : cases) {
    IniText text;
    ASSERT_TRUE(parseIniText(c.bytes, text)) << c.bytes;
    EXPECT_EQ(join(text.values), c.values) << c.bytes;
  }
}

TEST(IniTextTest, RefusesWhatIsNoText) {
  using namespace std::string_literals;
  for (const std::string& bytes : {"k=v\0"s, std::string(4096, '\0'), "\xFF\xFE[\0A\0]\0"s,
                                   "k=\xC0\xAF"s, "k=\xED\xA0\x80"s}) {
    IniText text;
    EXPECT_FALSE(parseIniText(bytes, text)) << bytes;
  }
}

TEST(IniTextTest, ChecksumCoversEveryByteBeforeItsHeader) {
  const std::string body = "[A]\r\nk=v\r\n";
  // Digest from an independent tool: printf '[A]\r\nk=v\r\n' | sha256sum.
  const std::string good = "e70d4be42d58fcb2fb0fde99424ed935cd17abb9ce9a06ea06042b2a7c63280a";
  struct Case {
    std::string bytes;
    bool holds;
    bool holdsWhenItMayLack;
  } const cases[] = {
      {body + "[Checksum]\r\nagentini.checksum=" + good + "\r\n", true, true},
      {body + "[Checksum]\nagentini.checksum=Not Computed\n", true, true},
      {body + "[Checksum]\nagentini.checksum=not computed\n", false, false},
      {body + "[Checksum]\nagentini.checksum=\n", false, false},
      {"[A]\r\nk=w\r\n[Checksum]\r\nagentini.checksum=" + good + "\r\n", false, false},
      {body + " \n[Checksum]\nagentini.checksum=" + good + "\n", false, false},
      {body, false, true},
      {body + "[Checksum]\n", false, true},
      {body + "agentini.checksum=" + good + "\n", false, true},
  };
  for (const Case& c : cases) {
    IniText text;
    ASSERT_TRUE(parseIniText(c.bytes, text));
    EXPECT_EQ(checksumHolds(text, false), c.holds) << c.bytes;
    EXPECT_EQ(checksumHolds(text, true), c.holdsWhenItMayLack) << c.bytes;
  }
}

TEST(UrlTextTest, PartsAndText) {
  struct Case {
    const char* url;
    const char *protocol, *host, *port, *path;
    const char* text;
    const char* user = "";
  } const cases[] = {
      {"https://ann:p@h:1/x", "https", "h", "1", "/x", "https://ann:p@h:1/x", "ann:p"},
      {"ann@h", "", "h", "", "", "https://ann@h", "ann"},
      {"https://ann:p/w@h/x", "https", "h", "", "/x", "https://ann:p/w@h/x", "ann:p/w"},
      {"https://h/x@y", "https", "h", "", "/x@y", "https://h/x@y"},
      {"https://h:8443/agent/", "https", "h", "8443", "/agent/", "https://h:8443/agent/"},
      {"http://h", "http", "h", "", "", "http://h"},
      {"h:1/x:2", "", "h", "1", "/x:2", "https://h:1/x:2"},
      {"https://[::1]:44/p", "https", "[::1]", "44", "/p", "https://[::1]:44/p"},
      {"https://[::1]", "https", "[::1]", "", "", "https://[::1]"},
      {"", "", "", "", "", ""},
  };
  for (const Case& c : cases) {
    const UrlText url = UrlText::parse(c.url);
    EXPECT_EQ(url.protocol, STRING(c.protocol)) << c.url;
    EXPECT_EQ(url.user, STRING(c.user)) << c.url;
    EXPECT_EQ(url.host, STRING(c.host)) << c.url;
    EXPECT_EQ(url.port, STRING(c.port)) << c.url;
    EXPECT_EQ(url.path, STRING(c.path)) << c.url;
    EXPECT_EQ(url.text(), STRING(c.text)) << c.url;
  }
}

TEST(UrlTextTest, WithoutItsUser) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"https://h:1/x@y", "https://h:1/x@y"},
      {"https://[::1]:1/x@y", "https://[::1]:1/x@y"},
      {"https://ann:pw@h/", "https://***@h/"},
      {"https://ann:p@w@h/x", "https://***@h/x"},
      {"https://ann:pw@x/w@h/", "https://***@h/"},
      {"https://ann:p/w@h/", "https://***@h/"},
      {"https://ann:p?w@h/", "https://***@h/"},
      {"https://ann:p]/w@h/", "https://***@h/"},
      {"https:///ann:pw@h/", "https:///***@h/"},
      {"https:/ann:pw@h/", "***@h/"},
      {"ann:pw@h:1", "***@h:1"},
      {"ann:pw@h/?u=https://h", "***@h/?u=https://h"},
      {"https://h/?to=ann@h#x", "https://h/?***"},
      {"\xff://ann:pw@h", "***@h"},
  };
  for (const auto& [url, shown] : cases) EXPECT_EQ(withoutUser(url), shown) << url;
}

}  // namespace
}  // namespace korvane
