// Plays the conversations of this folder's *.txt files, each as a test of its own, against a whole
// agent in simulated time. FORMAT.md says how a conversation is written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/conversations/conversation.h"
#include "tests/conversations/world.h"

namespace korvane::tests {
namespace {

class Player {
 public:
  explicit Player(const Conversation& conversation) : _conversation(conversation) {}

  void play() {
    for (const Line& line : _conversation.lines) {
      SCOPED_TRACE(line.at + ": " + line.word + " " + line.rest);
      const auto found = kWords.find(line.word);
      if (found == kWords.end()) FAIL() << "no such word";
      (this->*found->second)(line);
      if (testing::Test::HasFatalFailure()) return;
    }
  }

 private:
  using Act = void (Player::*)(Line);
  static const std::map<std::string, Act> kWords;

  // Before the start these gather, later they change the running machine.
  void setting(Line line) {
    if (!_world) {
      _settings += line.rest + "\n";
      return;
    }
    const std::string key = line.rest.substr(0, line.rest.find('=') + 1);
    std::string edited;
    for (const std::string& old : split(world().machine.ini(), '\n')) {
      if (old.starts_with(key)) continue;
      edited += (old.starts_with("agentini.checksum=") ? "agentini.checksum=Not Computed" : old) +
                (old == "[Agent]" ? "\n" + line.rest : "") + "\n";
    }
    world().machine.fake.files.put(SimulatedMachine::kIni, edited);
  }
  void file(Line line) {
    std::string text;
    for (const std::string& part : line.body) text += part + "\n";
    world().machine.fake.files.put(world().machine.kRoot + ("/" + line.rest), text);
  }
  void driver(Line line) {
    DriverState state = world().driver;
    state.present = line.rest != "none";
    if (line.rest == "stalls") {
      state.stalls = true;
    } else if (line.rest.starts_with("refuses builtin ")) {
      state.builtinRefusal = static_cast<uint32_t>(std::atoi(line.rest.c_str() + 16));
    } else if (state.present) {
      state.builtin = line.rest == "builtin";
      if (!state.builtin) state.policy = Policy::parse(line.rest);
    }
    world().setDriver(state);
  }
  void translator(Line line) { world().translatorHangs = line.rest == "hangs"; }
  void prevention(Line line) { world().setPrevention(line.rest == "on"); }
  void reboot(Line line) { world().setReboot(line.rest == "outstanding"); }
  void ids(Line line) { world().ids = line.rest; }
  void always(Line line) {
    const std::string word = line.next();
    world().standing[word] = answerOf(line);
  }

  void agentSends(Line line) {
    const std::string path = line.next();
    const bool inOrder = line.rest.ends_with("in order");
    const int64_t seconds = line.next() == "within" ? std::stoll(line.next()) : 400;
    if (_open || !world().run) begin();
    world().free = false;
    answerOpen(Answer());
    for (const int64_t end = now() + seconds * 1000; !world().held && now() < end;) pass(20);
    ASSERT_TRUE(world().held) << "nothing was sent";
    _open = true;
    const auto& request = *world().held;
    ASSERT_EQ(request.path, path) << request.body;
    std::vector<std::string> lines = split(request.body, '\n');
    lines.push_back("Host=" + request.host);
    for (const auto& [name, value] : request.headers) lines.push_back(name + "=" + value);
    size_t last = 0;
    for (const std::string& wanted : line.body) {
      EXPECT_TRUE(holds(lines, wanted)) << wanted << "\n" << request.body;
      if (!inOrder) continue;
      const size_t at = request.body.find("\n" + wanted.substr(0, wanted.find_first_of("=~") + 1));
      EXPECT_GT(at, last) << wanted << "\n" << request.body;
      last = at;
    }
  }
  void serverAnswers(Line line) {
    ASSERT_TRUE(_open) << "there is nothing to answer";
    begin();
    answerOpen(answerOf(line));
    pass(10);
  }
  void answerOpen(const Answer& with) {
    if (_open) world().answer(with);
    _open = false;
  }
  // "during SECONDS word xN, word": so many exchanges of these words and none of others.
  void during(Line line) {
    begin();
    world().free = true;
    answerOpen(Answer());
    world().counts.clear();
    if (world().held) {
      const std::string word = world().held->path;
      world().counts[word] = 1;
      world().answer(world().standing[word]);
    }
    for (const int64_t end = now() + std::stoll(line.next()) * 1000; now() < end;)
      pass(world().ids.empty() ? end - now() : 100);
    std::map<std::string, size_t> counts = world().counts;
    for (const char* word : {"testConnection", "log"}) counts.erase(word);
    for (const std::string& part : split(line.rest, ',')) {
      Line one{"", "", part, {}};
      const std::string word = one.next();
      EXPECT_TRUE(Count::take(one.rest).holds(counts[word])) << word << ": " << counts[word];
      counts.erase(word);
    }
    for (const auto& [word, count] : counts) EXPECT_EQ(count, 0U) << word;
  }

  // Time passes; an exchange that is held stays so, and one that comes is held.
  void pause(Line line) {
    begin();
    world().free = false;
    for (const int64_t end = now() + std::stoll(line.rest) * 1000; now() < end;) pass(100);
  }

  // "stored key=value" in agent.ini, "fallback key=value" in fallback.ini.
  void stored(Line line) {
    const std::string ini = world().machine.fake.files.content(
        world().machine.kRoot +
        std::string(line.word == "fallback" ? "/IPS/fallback.ini" : "/IPS/agent.ini"));
    const size_t at = ini.find("\n" + line.rest.substr(0, line.rest.find_first_of("=~")) + "=");
    EXPECT_TRUE(holds(split(ini, '\n'), line.rest))
        << (at < ini.size() ? ini.substr(at + 1, ini.find('\n', at + 1) - at) : "not there");
  }
  // "event NUMBER [xN] [text]", since the step before began; "event any text" for whatever number.
  void event(Line line) {
    const std::string number = line.next();
    const Count count = Count::take(line.rest);
    const std::string found = logged(number == "any" ? "," : "," + number + ",", line.rest);
    EXPECT_TRUE(count.holds(static_cast<size_t>(std::count(found.begin(), found.end(), '\n'))))
        << logged(",", "");
  }
  void trace(Line line) { EXPECT_NE(logged("", line.rest), "") << logged("", ""); }
  // "no event 10121", "no stored policy.name=x", "no file IPS/x".
  void no(Line line) {
    const std::string what = line.next(), text = line.rest;
    if (what == "event")
      EXPECT_EQ(logged("," + text + ",", ""), "");
    else if (what == "trace")
      EXPECT_EQ(logged("", text), "");
    else if (what == "stored")
      EXPECT_FALSE(holds(split(world().machine.ini(), '\n'), text));
    else if (what == "file")
      EXPECT_EQ(world().machine.fake.files.content(world().machine.kRoot + ("/" + text)), "");
    else
      FAIL() << "no such thing";
  }
  void runs(Line line) {
    const DriverState& state = world().driver;
    EXPECT_EQ(state.builtin ? "builtin" : state.policy.text(), line.rest);
  }
  // "asked CODE xN": driver requests since the step before began.
  void asked(Line line) {
    const auto code = static_cast<uint32_t>(std::stoul(line.next(), nullptr, 16));
    const auto calls = world().machine.fake.devices.calls();
    const auto found = static_cast<size_t>(
        std::count_if(calls.begin() + static_cast<std::ptrdiff_t>(_callsBefore), calls.end(),
                      [&](const auto& call) { return call.controlCode == code; }));
    EXPECT_TRUE(Count::take(line.rest).holds(found)) << found;
  }

  void kill(Line) { startAgain(world().remains()); }
  void restart(Line) {
    world().free = true;
    if (world().held) world().answer(Answer());
    world().run.reset();
    startAgain(world().remains());
  }
  void notify(Line line) {
    std::unique_ptr<platform::Socket> socket;
    ASSERT_EQ(world().machine.fake.sockets.createTcp(socket), 0);
    ASSERT_EQ(socket->connect("127.0.0.1", 2222, 1000), 0);
    const auto byte = static_cast<char>(std::atoi(line.rest.c_str()));
    size_t sent = 0;
    ASSERT_EQ(socket->send(&byte, 1, sent), 0);
  }

  void startAgain(const Remains& left) {
    _world.reset();
    make(&left);
    _linesBefore = _callsBefore = 0;
    _open = false;
  }
  void make(const Remains* remains) {
    MachineOptions options;
    options.settings =
        _settings + "agent.id=guid-7\npolling.interval=60\nautoretrans.enabled=false\n";
    _world.emplace(options, remains);
  }
  World& world() {
    if (!_world) make(nullptr);
    return *_world;
  }
  void begin() {
    _linesBefore = world().machine.lines().size();
    _callsBefore = world().machine.fake.devices.calls().size();
    if (!world().run) world().start();
  }
  void pass(int64_t milliseconds) {
    world().machine.sim.runFor(milliseconds);
    world().serveIds();
  }
  int64_t now() { return world().machine.now(); }
  // The log's lines with both texts since the step before began.
  std::string logged(const std::string& first, const std::string& second) {
    std::string found;
    const std::vector<std::string> lines = world().machine.lines();
    for (size_t i = _linesBefore; i < lines.size(); ++i)
      if (lines[i].find(first) != std::string::npos && lines[i].find(second) != std::string::npos &&
          (first.empty() || !lines[i].starts_with("TRAC")))
        found += lines[i] + "\n";
    return found;
  }

  const Conversation& _conversation;
  std::string _settings;
  std::optional<World> _world;
  bool _open = false;  // the exchange that is held has been looked at
  size_t _linesBefore = 0, _callsBefore = 0;
};

const std::map<std::string, Player::Act> Player::kWords = {{"setting", &Player::setting},
                                                           {"file", &Player::file},
                                                           {"driver", &Player::driver},
                                                           {"translator", &Player::translator},
                                                           {"prevention", &Player::prevention},
                                                           {"reboot", &Player::reboot},
                                                           {"ids", &Player::ids},
                                                           {"always", &Player::always},
                                                           {"->", &Player::agentSends},
                                                           {"<-", &Player::serverAnswers},
                                                           {"during", &Player::during},
                                                           {"pause", &Player::pause},
                                                           {"stored", &Player::stored},
                                                           {"event", &Player::event},
                                                           {"trace", &Player::trace},
                                                           {"no", &Player::no},
                                                           {"runs", &Player::runs},
                                                           {"asked", &Player::asked},
                                                           {"kill", &Player::kill},
                                                           {"restart", &Player::restart},
                                                           {"notify", &Player::notify},
                                                           {"fallback", &Player::stored}};

class Conversations : public testing::TestWithParam<Conversation> {};

TEST_P(Conversations, Agree) {
  Player(GetParam()).play();
}

std::string nameOf(const testing::TestParamInfo<Conversation>& info) {
  std::string name = info.param.subject + "_" + info.param.name;
  for (char& letter : name)
    if (!std::isalnum(static_cast<unsigned char>(letter))) letter = '_';
  return name;
}

// A conversation drawn from a seed: policies that are taken and refused, with settings and without,
// the built-in policy, lost answers, kills. Every status names the policy that is in force.
std::string drawn(unsigned seed) {
  std::mt19937 draw(seed);
  const auto one = [&draw](std::vector<std::string> of) { return of[draw() % of.size()]; };
  bool builtin = draw() % 2 == 0;
  int inForce = 0, last = 0;
  std::string owed;  // the code of a report that was lost: told again before the next status
  std::string text =
      "== drawn\nsetting polling.interval=15\nsetting policy.path=/policies/0\ndriver " +
      std::string(builtin ? "builtin" : "Base|0|policy-0") + "\n";
  for (int step = 0; step < 8; ++step) {
    const std::string n = std::to_string(inForce);
    text += "during 3 result x0..4\n-> result within 20\n   agent.timezone=*\n";
    if (!owed.empty()) text += "   result.errorcode=" + owed + "\n-> result within 5\n";
    owed.clear();
    text += builtin ? "   policy.path=builtin\n"
                    : "   policy.name=Base " + n + "\n   policy.path=/policies/" + n +
                          "\n   rid.applied=policy-" + n + "\n";
    const std::string what = one({"policy", "policy", "both", "both", "built-in", "nothing"});
    const bool settings = what == "both" || what == "built-in";
    const bool policy = what == "both" || what == "policy";
    if (what == "nothing") {
      text +=
          one({"<- ok\n", "<- fail 7\n", "<- code 200\n", "<- code 700\n", "kill\n", "restart\n"});
      continue;
    }
    text += std::string("<-\n   update.configuration=") + (settings ? "true" : "false") +
            "\n   update.policy=" + (policy ? "true" : "false") + "\n-> update\n<-\n";
    if (settings)
      text += "   update.configuration=true\n   mod.time=1\n   rid.applied=config-" +
              std::to_string(step) + "\n";
    if (what == "built-in") text += "   use.builtin.policy=true\n";
    const std::string fault = one({"", "", " !driver no", " !translator no"});
    if (policy) {
      const std::string offered = std::to_string(++last);
      text += "   update.policy=true\n   policy.name=Base " + offered +
              "\n   policy.path=/policies/" + offered + "\n   [policy Base|" + offered +
              "|policy-" + offered + fault + "]\n";
    }
    if (settings) text += "-> result\n   result.type=config\n   result.errorcode=0\n";
    if (what == "both" && draw() % 4 == 0) {
      text += "kill\n";  // before the policy was tried
      continue;
    }
    if (policy && fault.empty()) {
      inForce = last;
      builtin = false;
    }
    if (what == "built-in") builtin = true;
    const std::string code = fault.empty() ? "0" : "66";
    if (policy) text += "-> result within 10\n   result.errorcode=" + code + "\n";
    const std::string end = one({"<- ok\n", "<- ok\n", "<- fail 7\n", "kill\n", "restart\n"});
    if (policy && end == "<- fail 7\n") owed = code;
    text += end;
  }
  return text;
}

TEST(DrawnConversations, NameThePolicyInForceInEveryStatus) {
  for (unsigned seed = 0; seed < 40 && !HasFailure(); ++seed) {
    const std::string text = drawn(seed);
    SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + text);
    std::istringstream file(text);
    std::vector<Conversation> conversations;
    read(file, "drawn", conversations);
    Player(conversations[0]).play();
  }
}

INSTANTIATE_TEST_SUITE_P(All, Conversations, testing::ValuesIn(readAll()), nameOf);

}  // namespace
}  // namespace korvane::tests
