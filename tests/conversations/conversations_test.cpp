// Plays the conversations of this folder's *.txt files, each as a test of its own, against a whole agent in
// simulated time. FORMAT.md says how a conversation is written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/conversations/world.h"

namespace korvane::tests {
namespace {

struct Line {
  std::string at;    // file and number
  std::string word;  // the first one
  std::string rest;
  std::vector<std::string> body;  // the indented lines below
};

struct Conversation {
  std::string subject, name;
  std::vector<Line> lines;
  friend void PrintTo(const Conversation& of, std::ostream* out) { *out << of.name; }
};

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream >> std::ws, part, separator);)
    if (!part.empty()) parts.push_back(part);
  return parts;
}

std::vector<Conversation> readAll() {
  std::vector<Conversation> all;
  for (const auto& entry : std::filesystem::directory_iterator(KORVANE_CONVERSATIONS)) {
    if (entry.path().extension() != ".txt" || entry.path().stem() == "CMakeLists") continue;
    std::ifstream file(entry.path());
    int number = 0;
    for (std::string text; std::getline(file, text);) {
      ++number;
      const size_t begin = text.find_first_not_of(' ');
      if (begin == std::string::npos || text[begin] == '#') continue;
      const std::string trimmed = text.substr(begin);
      if (trimmed.starts_with("== ")) {
        all.push_back({entry.path().stem().string(), trimmed.substr(3), {}});
      } else if (begin > 0) {
        all.back().lines.back().body.push_back(trimmed);
      } else {
        const size_t blank = std::min(text.find(' '), text.size());
        all.back().lines.push_back({entry.path().filename().string() + ":" + std::to_string(number),
                                    text.substr(0, blank),
                                    text.substr(std::min(blank + 1, text.size())),
                                    {}});
      }
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const Conversation& a, const Conversation& b) {
    return a.subject < b.subject;
  });
  return all;
}

Answer answerOf(const Line& line, const std::string& head) {
  std::istringstream words(head);
  std::string kind, text, properties, parts;
  int code = 0;
  std::getline(words >> kind >> code >> std::ws, text);
  if (kind == "fail") return Answer::failure(code);
  if (kind == "http") return Answer::http(code);
  const auto section = [](const std::string& format, const std::string& name,
                          const std::string& bytes) {
    return "Data-Format=" + format + "\nData-Type=" + name +
           "\nData-Length=" + std::to_string(bytes.size()) + "\n\n" + bytes + "\n";
  };
  for (const std::string& item : line.body) {
    const size_t times = item.find("=[x ");
    if (item.starts_with("[policy ")) {
      parts += section("binary/zip", "policy", item.substr(8, item.size() - 9));
    } else if (item.starts_with("[keys ")) {
      for (int i = std::atoi(item.c_str() + 6); i > 0; --i)
        properties += "unknown.key." + std::to_string(i) + "=1\n";
    } else if (times != std::string::npos) {
      const auto length = static_cast<size_t>(std::atoi(item.c_str() + times + 4));
      properties += item.substr(0, times + 1) + std::string(length, 'x') + "\n";
    } else {
      properties += item + "\n";
    }
  }
  Answer answer;
  if (kind == "code") {
    answer.headers = "Korvane-Error: " + std::to_string(code) + "\r\n";
    if (!text.empty()) parts += section("text/plain", "stacktrace", text);
  }
  answer.body = (properties.empty() ? "" : section("text/plain", "properties", properties)) +
                parts + "EOF_FLAG\n";
  return answer;
}

// Whether the lines have what `wanted` says: "key=value", "key=*", "key~part", "!key", "!key=value".
bool holds(const std::vector<std::string>& lines, const std::string& wanted) {
  const bool absent = wanted[0] == '!';
  const size_t mark = std::min(wanted.find_first_of("=~"), wanted.size());
  const std::string key = wanted.substr(absent, mark - absent) + "=";
  const std::string value = wanted.substr(std::min(mark + 1, wanted.size()));
  for (const std::string& line : lines) {
    if (!line.starts_with(key)) continue;
    const std::string found = line.substr(key.size());
    if (absent && mark == wanted.size()) return false;
    return absent != (wanted[mark] == '~' ? found.find(value) != std::string::npos
                      : value == "*"      ? !found.empty()
                                          : found == value);
  }
  return absent || (wanted[mark] == '=' && value.empty());
}

// The words "xN" or "N..M" of a count, taken off the front of `text`; without one at least 1.
std::pair<size_t, size_t> takeCount(std::string& text) {
  unsigned long low = 1, high = SIZE_MAX;
  int used = 0;
  if (std::sscanf(text.c_str(), "x%lu..%lu%n", &low, &high, &used) != 2 || used == 0) {
    used = 0;
    if (std::sscanf(text.c_str(), "x%lu%n", &low, &used) == 1) high = low;
  }
  text.erase(0, std::min(text.size(), static_cast<size_t>(used) + (used > 0)));
  return {low, high};
}

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
  using Act = void (Player::*)(const Line&);
  static const std::map<std::string, Act> kWords;

  // Before the start these gather, later they change the running machine.
  void setting(const Line& line) {
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
  void file(const Line& line) {
    const size_t blank = line.rest.find(' ');
    std::string text;
    for (const std::string& part : line.body) text += part + "\n";
    world().machine.fake.files.put(
        std::string(SimulatedMachine::kRoot) + "/" + line.rest.substr(0, blank), text);
  }
  void driver(const Line& line) {
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
  void translator(const Line& line) { world().translatorHangs = line.rest == "hangs"; }
  void prevention(const Line& line) { world().setPrevention(line.rest == "on"); }
  void reboot(const Line& line) { world().setReboot(line.rest == "outstanding"); }
  void ids(const Line& line) { world().ids = line.rest; }
  void always(const Line& line) {
    const size_t blank = line.rest.find(' ');
    world().standing[line.rest.substr(0, blank)] =
        answerOf(line, blank == std::string::npos ? "" : line.rest.substr(blank + 1));
  }

  void agentSends(const Line& line) {
    std::istringstream words(line.rest);
    std::string path, within;
    int64_t seconds = 400;
    words >> path >> within >> seconds;
    if (_open || !world().run) begin();
    world().free = false;
    answerOpen(Answer());
    for (int64_t end = now() + (within == "within" ? seconds : 400) * 1000;
         !world().held && now() < end;)
      pass(10);
    ASSERT_TRUE(world().held) << "nothing was sent";
    _open = true;
    const auto& request = *world().held;
    ASSERT_EQ(request.path, path) << request.body;
    std::vector<std::string> lines = split(request.body, '\n');
    for (const auto& [name, value] : request.headers) lines.push_back(name + "=" + value);
    size_t last = 0;
    for (const std::string& wanted : line.body) {
      EXPECT_TRUE(holds(lines, wanted)) << wanted << "\n" << request.body;
      if (!line.rest.ends_with("in order")) continue;
      const size_t at = request.body.find("\n" + wanted.substr(0, wanted.find_first_of("=~") + 1));
      EXPECT_GT(at, last) << wanted << "\n" << request.body;
      last = at;
    }
  }
  void serverAnswers(const Line& line) {
    ASSERT_TRUE(_open) << "there is nothing to answer";
    begin();
    answerOpen(answerOf(line, line.rest));
    pass(10);
  }
  void answerOpen(const Answer& with) {
    if (_open) world().answer(with);
    _open = false;
  }
  // "during SECONDS: word xN, word": so many exchanges of these words and none of others.
  void during(const Line& line) {
    begin();
    world().free = true;
    answerOpen(Answer());
    world().counts.clear();
    if (world().held) {
      const std::string word = world().held->path;
      world().counts[word] = 1;
      world().answer(world().standing[word]);
    }
    const size_t colon = line.rest.find(':');
    for (int64_t end = now() + std::atoll(line.rest.c_str()) * 1000; now() < end;)
      pass(world().ids.empty() ? end - now() : 100);
    std::map<std::string, size_t> counts = world().counts;
    for (const char* word : {"testConnection", "log"}) counts.erase(word);
    for (const std::string& part : split(line.rest.substr(colon + 1), ',')) {
      std::string count = part.substr(std::min(part.find(' ') + 1, part.size()));
      const std::string word = part.substr(0, part.find(' '));
      const auto [low, high] = takeCount(count);
      EXPECT_TRUE(counts[word] >= low && counts[word] <= high) << word << ": " << counts[word];
      counts.erase(word);
    }
    for (const auto& [word, count] : counts) EXPECT_EQ(count, 0U) << word;
  }

  // Time passes; an exchange that is held stays so, and one that comes is held.
  void pause(const Line& line) {
    begin();
    world().free = false;
    for (const int64_t end = now() + std::atoll(line.rest.c_str()) * 1000; now() < end;) pass(100);
  }

  // In agent.ini.
  void stored(const Line& line) {
    const std::string key = line.rest.substr(0, line.rest.find_first_of("=~"));
    const std::string ini = world().machine.ini();
    const std::string line1 = ini.substr(std::min(ini.find("\n" + key + "=") + 1, ini.size()));
    EXPECT_TRUE(holds(split(ini, '\n'), line.rest)) << line1.substr(0, line1.find('\n'));
  }
  // "event NUMBER [xN] [text]", since the step before began; "event any text" for whatever number.
  void event(const Line& line) {
    std::string text = line.rest.substr(std::min(line.rest.find(' ') + 1, line.rest.size()));
    if (text == line.rest) text.clear();
    const auto [low, high] = takeCount(text);
    const std::string number = line.rest.substr(0, line.rest.find(' '));
    const std::string found = logged(number == "any" ? "," : "," + number + ",", text);
    const auto count = static_cast<size_t>(std::count(found.begin(), found.end(), '\n'));
    EXPECT_TRUE(count >= low && count <= high) << count << "\n" << logged(",", "");
  }
  void trace(const Line& line) { EXPECT_NE(logged("", line.rest), "") << logged("", ""); }
  // "no event 10121", "no stored policy.name=x", "no file IPS/x".
  void no(const Line& line) {
    std::istringstream words(line.rest);
    std::string what, text;
    std::getline(words >> what >> std::ws, text);
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
  void runs(const Line& line) {
    const DriverState& state = world().driver;
    EXPECT_EQ(state.builtin ? "builtin" : state.policy.text(), line.rest);
  }
  // "asked CODE xN": driver requests since the step before began.
  void asked(const Line& line) {
    std::string count = line.rest.substr(line.rest.find(' ') + 1);
    const auto [low, high] = takeCount(count);
    const auto code = static_cast<uint32_t>(std::stoul(line.rest, nullptr, 16));
    const auto calls = world().machine.fake.devices.calls();
    const auto found = static_cast<size_t>(
        std::count_if(calls.begin() + static_cast<std::ptrdiff_t>(_callsBefore), calls.end(),
                      [&](const auto& call) { return call.controlCode == code; }));
    EXPECT_TRUE(found >= low && found <= high) << found;
  }

  void kill(const Line&) { startAgain(world().remains()); }
  void restart(const Line&) {
    world().free = true;
    if (world().held) world().answer(Answer());
    world().run.reset();
    startAgain(world().remains());
  }
  void notify(const Line& line) {
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

const std::map<std::string, Player::Act> Player::kWords = {
    {"setting", &Player::setting},

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
    {"stored", &Player::stored},
    {"event", &Player::event},
    {"trace", &Player::trace},
    {"no", &Player::no},
    {"runs", &Player::runs},
    {"asked", &Player::asked},
    {"kill", &Player::kill},
    {"restart", &Player::restart},
    {"notify", &Player::notify},
    {"pause", &Player::pause},
};

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

INSTANTIATE_TEST_SUITE_P(All, Conversations, testing::ValuesIn(readAll()), nameOf);

}  // namespace
}  // namespace korvane::tests
