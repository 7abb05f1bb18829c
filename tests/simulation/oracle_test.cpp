// The oracle's own checks: faults fed in by hand must be found, and what is right must not be.
#include <gtest/gtest.h>

#include "simulate/oracle/invariants.h"
#include "tests/support/protocol_page.h"

namespace korvane::simulation {
namespace {

constexpr char kRoot[] = "/opt/korvane";
const std::string kHeaders =
    "Korvane-Format-Version: 1.0\nContent-Type: application/x-korvane\nKorvane-Charset:\n";

// An episode without an agent: its part is played by the test.
struct Stage {
  int64_t now = 0;
  Findings findings{1, [this] { return now; }};
  Policies policies;
  EventAccount account{findings};
  DriverModel driver{findings, policies};
  ModelServer server{1, findings, policies, account};
  std::map<std::string, std::string> disk;
  Invariants invariants{findings, server, account, driver, policies, view(), kRoot};

  Stage() { server.goodWeather(true); }
  DiskView view() {
    return {[this](const std::string& path) { return read(path); },
            [this] {
              std::vector<std::string> paths;
              for (const auto& [path, bytes] : disk) paths.push_back(path);
              return paths;
            },
            [](const std::string&) { return std::string(); }};
  }
  std::optional<std::string> read(const std::string& path) {
    const auto found = disk.find(path);
    return found == disk.end() ? std::nullopt : std::optional(found->second);
  }

  WireAnswer ask(const std::string& word, const std::string& body, bool arrives = true) {
    const bool named = word != "register" && word != "testConnection";
    const WireAnswer answer =
        server.exchange({"s", "/korvane/agent/" + word,
                         kHeaders + (named ? "Korvane-GUID: " + guid + "\n" : ""), body},
                        now);
    if (arrives) server.arrived(answer.id, now);
    return answer;
  }
  void enrol() {
    ask("register", textSection({{"agent.name", "a"}}) + textSection({}) + kEndMark);
    guid = "agent-1";
  }
  void status(const std::string& name, const std::string& path, const std::string& id,
              int code = 0) {
    ask("result", textSection({{"result.type", "policy"},
                               {"result.errorcode", std::to_string(code)},
                               {"result.errormessage", ""},
                               {"rid.applied", id},
                               {"rid.group", ""},
                               {"policy.name", name},
                               {"policy.path", path},
                               {"agent.timezone", "UTC"},
                               {"agent.domain.name", ""},
                               {"agent.osversion", "1"}}) +
                      kEndMark);
  }
  void run(int64_t ms) {
    for (const int64_t end = now + ms; now < end; now += 1000) invariants.tick(now);
  }
  std::string found() const { return findings.empty() ? "" : findings.texts().front(); }
  std::string guid;
};

using Fields = std::vector<std::string>;

Part record(int last, int count, const Fields& fields, const std::string& lastTime = "t") {
  Part part{"text/plain", "properties", "", {{"v2", std::to_string(last)}, {"v3", fields[2]}}};
  part.pairs.emplace_back("v1", fields[0]);
  for (size_t i = 3; i < fields.size(); ++i)
    part.pairs.emplace_back("v" + std::to_string(i + 1), fields[i]);
  part.pairs.emplace_back("a5", std::to_string(count));
  part.pairs.emplace_back("a6", lastTime);
  return part;
}

TEST(Wire, WhatThePageShowsIsRightAndNoByteOfItIsOptional) {
  int requests = 0;
  for (const auto& block : tests::blocksOf(KORVANE_PROTOCOL_PAGE)) {
    if (block.label.empty() || block.label[0] != "request") continue;
    const std::string& word = block.label[1];
    const std::string& body = block.text;
    const std::string headers =
        kHeaders + (word == "register" || word == "testConnection" ? "" : "Korvane-GUID: g\n");
    Message message;
    EXPECT_EQ(readRequest("/k/" + word, headers, body, message), "") << body;
    for (size_t i = 0; i < body.size(); ++i) {
      Message cut;
      EXPECT_NE(readRequest("/k/" + word, headers, body.substr(0, i), cut), "") << i << "\n"
                                                                                << body;
    }
    ++requests;
  }
  EXPECT_GT(requests, 5);
}

TEST(Wire, ARequestThatThePageForbidsIsFound) {
  const auto update = [](const Pairs& pairs) { return textSection(pairs) + kEndMark; };
  const std::vector<std::pair<std::string, std::string>> wrong = {
      {"update",
       update({{"update.policy", "true"}, {"update.configuration", "true"}, {"agent.name", "a"}})},
      {"update", update({{"update.configuration", "true"}})},  // attributes after a start
      {"update", update({{"update.configuration", "true"}, {"colour", "red"}})},
      {"result", update({{"result.type", "policy"}, {"result.errorcode", "0"}})},
      {"result",
       update({{"result.type", "colour"}, {"result.errorcode", "0"}, {"result.errormessage", ""}})},
      {"log", update({{"v2", "1"}, {"v1", "TFIL"}, {"v3", "t"}, {"a5", "1"}})},
      {"log", kEndMark},
      {"register", update({{"agent.name", "a"}})},
      {"colour", kEndMark},
      {"testConnection", kEndMark + "\n"},
  };
  for (const auto& [word, body] : wrong) {
    Stage stage;
    stage.enrol();
    EXPECT_EQ(stage.found(), "");
    stage.ask(word, body);
    EXPECT_NE(stage.found().find("wire: "), std::string::npos) << word << "\n" << body;
  }
}

TEST(Events, EachWayToLoseRepeatOrChangeOneIsFound) {
  const Fields a = {"TFIL", "", "t1", "x"}, b = {"TFIL", "", "t2", "x"},
               c = {"TNET", "", "t3", "y"};
  using A = EventAccount;
  const auto story = [&](const std::function<void(A&)>& does) {
    Findings findings(1, [] { return 0; });
    A account(findings);
    account.beginLog("log");
    for (const Fields& fields : {a, b, c}) account.becameWhole(account.add(0, fields));
    does(account);
    return findings.empty() ? "" : findings.texts().front().substr(17);
  };
  const auto send = [](A& x, const std::vector<Part>& records) { x.settle(x.sent(records)); };
  const Part one = record(1, 1, a), two = record(2, 1, b), three = record(3, 1, c);
  const auto whole = [&](A& x) { send(x, {one, two, three}); };
  const std::vector<std::pair<std::function<void(A&)>, std::string>> stories = {
      {[&](A& x) { whole(x), x.look({}); }, ""},
      {[&](A& x) {
         send(x, {record(2, 2, a, "t2"), three});
       },
       ""},
      {[&](A& x) { x.sent({one}), whole(x); }, ""},  // the first answer did not arrive
      {[&](A& x) { whole(x), x.forgotLastBatches(), whole(x); }, ""},
      {[&](A& x) {
         x.becameWhole(x.add(0, {"TNET", "", "t4", "y", ""}));  // no field is an empty field
         send(x, {one, two, record(4, 2, c, "t4")});
       },
       ""},
      {[&](A& x) { send(x, {two}); }, "event 1 was passed over"},
      {[&](A& x) { send(x, {one}), x.look({}); }, "log was removed with event 2"},
      {[&](A& x) { whole(x), send(x, {three}); }, "event 3 is sent again"},
      {[&](A& x) {
         send(x, {two, one});
       },
       "event 1 stands behind event 2"},
      {[&](A& x) { send(x, {record(2, 2, a, "t1")}); }, "event 1 to 2 is not as it was written"},
      {[&](A& x) { send(x, {record(3, 3, a, "t3")}); }, "event 1 to 3 is not as it was written"},
      {[&](A& x) { send(x, {record(1, 1, c)}); }, "event 1 is not as it was written"},
      {[&](A& x) { send(x, {record(4, 1, c)}); }, "a record that nobody wrote"}};
  for (const auto& [does, finding] : stories) {
    const std::string found = story(does);
    EXPECT_TRUE(finding.empty() ? found.empty() : found.find(finding) != std::string::npos)
        << finding << "\n"
        << found;
  }
}

TEST(StateFiles, AByteThatIsWrongIsFound) {
  const std::string ini = "[Polling]\npolling.interval=60\n";
  const std::string journal =
      "korvane-policy-change 1\nnew.plus=\nplus=\npath=\nversion=\nid=\nbuiltin=0\ndriver.filter=\n"
      "driver.builtin=0\nhad.minus=0\nhad.items=0\n";
  const std::string next = "korvane-next-logs 1\nnamed /a\n";
  EXPECT_EQ(fnv1a("a"), 0xaf63dc4c8601ec8cu);
  std::string hash(17, '\0');
  hash.resize(static_cast<size_t>(
      std::snprintf(hash.data(), 17, "%016llx", static_cast<unsigned long long>(fnv1a(next)))));
  const auto iniFault = [](const std::string& bytes) { return readIni(bytes).fault; };
  const std::vector<std::pair<std::function<std::string(const std::string&)>, std::string>> files =
      {{iniFault, ini + "[Checksum]\nagentini.checksum=" + sha256(ini) + "\n"},
       {journalFault, journal + "end " + sha256(journal) + "\n"},
       {nextLogsFault, next + "end " + hash + "\n"},
       {itemsFault, "korvane-items 1\npath\tpresent\t/a\nend 1\n"}};
  for (const auto& [fault, bytes] : files) {
    EXPECT_EQ(fault(bytes), "") << bytes;
    EXPECT_NE(fault(bytes.substr(0, bytes.size() / 2)), "") << bytes;
    std::string changed = bytes;
    changed[changed.size() - 3] = changed[changed.size() - 3] == 'x' ? 'y' : 'x';
    EXPECT_NE(fault(changed), "") << changed;
  }
}

TEST(Invariants, WhatIsRightIsLetThroughAndEachBreachFound) {
  const auto begin = [](Stage& s) {
    s.disk[std::string(kRoot) + "/IPS/agent.ini"] = "[Polling]\npolling.interval=60\n";
    s.server.lifeBegan();
    s.invariants.started(0);
    s.enrol();
    s.status("", "builtin", "");
  };
  const std::vector<std::pair<std::function<void(Stage&)>, std::string>> stories = {
      {[](Stage& s) { s.run(100000), s.status("", "builtin", ""), s.run(100000); }, ""},
      {[](Stage& s) { s.run(200000); }, "heartbeat: no status"},
      {[](Stage& s) { s.invariants.machineWeather(0, false), s.run(200000); }, ""},
      // A countdown that began with the interval before runs on, whatever is reported meanwhile.
      {[](Stage& s) {
         s.disk[std::string(kRoot) + "/IPS/agent.ini"] = "[Polling]\npolling.interval=9\n";
         s.status("", "builtin", ""), s.run(60000), s.status("", "builtin", ""), s.run(20000);
       },
       ""},
      {[](Stage& s) {
         s.disk[std::string(kRoot) + "/IPS/agent.ini"] = "[Polling]\npolling.interval=9\n";
         s.status("", "builtin", ""), s.run(200000);
       },
       "heartbeat: no status"},
      {[](Stage& s) { s.status("Base 1 1.1", "/policies/1", "policy-1"); }, "names no policy"},
      {[](Stage& s) {
         s.run(20000), s.policies.make(PolicyKind::good, false);
         s.status("Base 1 1.1", "/policies/1", "policy-1");
       },
       "the driver has builtin-id"},
      {[](Stage& s) { s.invariants.stopAsked(0), s.run(1900), s.invariants.stopped(s.now, 0, 0); },
       ""},
      {[](Stage& s) { s.invariants.stopAsked(0), s.run(5000); }, "stop: it takes more"},
      {[](Stage& s) { s.invariants.stopAsked(0), s.invariants.stopped(0, 1, 0); }, "1 threads"},
      {[](Stage& s) { s.invariants.stopped(0, 0, 0); }, "ended by itself"},
      {[](Stage& s) { s.invariants.identityRefused(0, "agent-1"), s.run(63000); },
       "registration: none"},
      {[](Stage& s) {
         s.invariants.identityRefused(0, "agent-1"), s.run(20000);
         s.status("", "builtin", "");
       },
       "which was refused"},
      {[](Stage& s) {
         s.invariants.package(0, "qel", true), s.run(100000);
         s.status("", "builtin", ""), s.run(100000);
       },
       "report: none of qel"},
      {[](Stage& s) {
         s.invariants.configuration(0, {{"x.note", "1"}}, false, false);
         s.invariants.result(0, "config", 0);
       },
       "settings: x.note= instead of 1"},
      {[](Stage& s) {
         s.disk[std::string(kRoot) + "/IPS/driver/policy.journal"] = "half";
         s.invariants.killed(0, false), s.invariants.afterKill(s.view());
       },
       "policy.journal"},
  };
  for (const auto& [does, finding] : stories) {
    Stage stage;
    begin(stage);
    does(stage);
    EXPECT_TRUE(finding.empty() ? stage.found().empty()
                                : stage.found().find(finding) != std::string::npos)
        << finding << "\n"
        << stage.found();
  }
}

}  // namespace
}  // namespace korvane::simulation
