// Which pairs are taken from whom: one table.
#include "config/incoming_settings.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "platform/fake/forwarding_files.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"

namespace korvane {
namespace {

using testing::HasSubstr;

// A disk where /opt/agent/link leads to /srv/x.
class LinkedFiles : public platform::ForwardingFiles {
  using ForwardingFiles::ForwardingFiles;
  int resolve(const std::string& path, std::string& out) override {
    const std::string link = "/opt/agent/link";
    out = path.starts_with(link) ? "/srv/x" + path.substr(link.size()) : path;
    return path == "/opt/agent/loop" ? ELOOP : 0;
  }
};

struct IncomingCase {
  const char *key, *value;
  const char *server, *local;  // words of the refusal; empty: taken
};

constexpr char kKept[] = "kept local", kOutside[] = "outside the installation",
               kTurns[] = "reading direction", kQel[] = "qel.vt.flpkg.path";

constexpr IncomingCase kCases[] = {
    {"ssl.trustStore", "/opt/agent/ca.pem", kKept, kKept},
    {"vendor.kept", "", kKept, kKept},
    {"settings.local.only", "polling.interval", kKept, kKept},
    {"vendor.other", "v", "", ""},
    {"polling.interval", "soon", "not a number", "not a number"},
    {"agent.http.url", "gopher://h/", "https://", "https://"},
    {"log.disk.upperlimit", "900", "0 to 100", ""},
    {"log.rollover.cause", "3", "0 to 2", ""},
    {"log.priority", "warp", "low, norm or high", ""},
    {"log.priority", "", "", ""},
    {"agent.http.url", "http://h/", "https://", ""},
    {"agent.http.url", "https://h", "end with /", ""},
    {"agent.name", "a\u009b31mb", kTurns, ""},
    {"vendor.\u202ekey", "", kTurns, ""},
    {kQel, "", "", ""},
    {kQel, "/opt/agent/content/qel", "", ""},
    {kQel, " content/qel ", "", ""},
    {kQel, "..content/qel..x", "", ""},
    {kQel, "/", kOutside, ""},
    {kQel, "/opt/agent", kOutside, ""},
    {kQel, "/opt/agentx/y", kOutside, ""},
    {kQel, "/OPT/agent/y", kOutside, ""},
    {kQel, "/etc/x", kOutside, ""},
    {kQel, "../x", kOutside, ""},
    {kQel, "/opt/agent/../x", kOutside, ""},
    {kQel, "a\\..\\..\\b", kOutside, ""},
    {kQel, "a/.. /b", kOutside, ""},
    {kQel, "//h/s", kOutside, ""},
    {kQel, "\\\\h\\s", kOutside, ""},
    {kQel, "C:\\Windows\\x", kOutside, ""},
    {kQel, "C:x", kOutside, ""},
    {kQel, "a:stream", kOutside, ""},
    {kQel, "/opt/agent/link/qel", kOutside, ""},
    {kQel, "/opt/agent/loop", kOutside, ""},
    {"external.log", "type=syslog at 12:30; file=/opt/agent/a b.log", "", ""},
    {"external.log", "type=x;file= /etc/passwd", kOutside, ""},
    {"external.log", "/opt/agent/a,../../x", kOutside, ""},
    {"external.log", "x /etc/passwd", kOutside, ""},
    {"external.log", "file:///etc/passwd", kOutside, ""},
};

TEST(IncomingSettings, WhoMaySetWhatToWhat) {
  platform::ManualClock clock;
  platform::MemoryFiles disk(clock);
  LinkedFiles files(disk);
  const auto judges = [&](const char* localOnly, bool plainHttp = false) {
    return IncomingSettings({files, "/opt/agent", "/opt/agent/IPS", localOnly, plainHttp});
  };
  const IncomingSettings some = judges(" ssl.trustStore ,,vendor.kept");
  for (const IncomingCase& c : kCases)
    for (const auto source :
         {SettingsSource::server, SettingsSource::cloudChannel, SettingsSource::localChannel}) {
      const std::string expected = source == SettingsSource::localChannel ? c.local : c.server;
      const SettingVerdict verdict = some.judge(source, c.key, c.value);
      SCOPED_TRACE(testing::Message() << nameOf(source) << ": " << c.key << "=" << c.value);
      EXPECT_EQ(verdict.refusal.empty(), expected.empty()) << verdict.refusal;
      EXPECT_THAT(verdict.refusal, HasSubstr(expected));
      EXPECT_EQ(verdict.forbidden, expected == kKept || expected == kOutside);
    }
  using enum SettingsSource;
  EXPECT_EQ(judges("").judge(server, "settings.local.only", "x").refusal, "") << "none is kept";
  EXPECT_EQ(judges(" , ").judge(server, "settings.local.only", "").refusal, "");
  EXPECT_EQ(judges("", true).judge(server, "agent.http.url", "http://h/").refusal, "");
  EXPECT_EQ(judges("").judge(server, "ssl.trustStore", "/etc/ssl/ca.pem").refusal,
            "names a file or folder outside the installation");
}

}  // namespace
}  // namespace korvane
