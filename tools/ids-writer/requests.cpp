#include "ids-writer/requests.h"

#include <charconv>

#include "ids-writer/settings_file.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::ids_writer {
namespace {

constexpr uint64_t kMaxRequestBytes = 4 << 20;
constexpr std::string_view kPolicyMark = "korvane-ids-policy 1";
constexpr std::string_view kRulePrefix = "Log.";
constexpr std::string_view kAnswerKey = "ids.stand-in.answer";
// What the component says about itself is not the server's to set.
constexpr std::string_view kOwnPrefixes[] = {
    "ids.service.eventfile.name=", "ids.service.rteventfile.name=", "ids.policy."};

constexpr const char* kNames[] = {"policy", "config"};
constexpr const char* kResultPrefixes[] = {"IDS.Policy", "IDS.Config"};

// The rest of the policy's line that begins with the word.
std::string wordIn(const std::string& policy, const std::string& word) {
  for (const std::string& line : linesOf(policy))
    if (line.starts_with(word + " ")) return line.substr(word.size() + 1);
  return {};
}

bool isOwn(const std::string& line) {
  for (const std::string_view prefix : kOwnPrefixes)
    if (line.starts_with(prefix)) return true;
  return false;
}

std::string withoutRules(const std::string& text) {
  std::string out;
  for (const std::string& line : linesOf(text))
    if (!line.starts_with(kRulePrefix)) out += line + "\n";
  return out;
}

}  // namespace

std::optional<Answer> parseAnswer(const std::string& text) {
  if (text == "apply") return Answer{Answer::Kind::apply, 0, {}};
  if (text == "no-code") return Answer{Answer::Kind::noCode, 0, {}};
  if (text == "no-message") return Answer{Answer::Kind::noMessage, 0, {}};
  if (text == "silent") return Answer{Answer::Kind::silent, 0, {}};
  constexpr std::string_view kRefuse = "refuse ";
  if (!text.starts_with(kRefuse)) return std::nullopt;
  Answer answer{Answer::Kind::refuse, 0, {}};
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data() + kRefuse.size(), end, answer.code);
  if (error != std::errc() || answer.code == 0 || (rest != end && *rest != ' '))
    return std::nullopt;
  if (rest != end) answer.text.assign(rest + 1, end);
  return answer;
}

Requests::Requests(platform::Platform& system, std::string directory, Answer standing)
    : _system(system), _directory(std::move(directory)), _standing(std::move(standing)) {
  if (const int error = _system.files.makeDirectories(_directory); error != 0)
    failFile(error, "make", _directory);
}

std::string Requests::read(const std::string& name) const {
  std::string text;
  // A file that is not there holds no request.
  ignoreResult(platform::readWholeFile(_system.files,
                                       platform::joinPath(_system.files, {_directory, name}),
                                       kMaxRequestBytes, text));
  return text;
}

int Requests::answerPending() {
  return (answer(Kind::policy) ? 1 : 0) + (answer(Kind::config) ? 1 : 0);
}

bool Requests::answer(Kind kind) {
  const auto index = static_cast<size_t>(kind);
  const std::string name = kNames[index];
  const std::string request = read(name + ".request");
  const std::string id = settingIn(request, "request.id");
  if (id.empty() || id == _seen[index]) return false;
  _seen[index] = id;
  if (settingIn(read(name + ".result"), "request.id") == id) return false;

  std::string policy;
  std::string asked;
  Result result;
  if (kind == Kind::policy)
    result = loadPolicy(request, policy, asked);
  else
    asked = settingIn(request, kAnswerKey);
  const std::optional<Answer> wanted = asked.empty() ? _standing : parseAnswer(asked);
  if (!wanted) result = {kUnknownAnswer, "Unknown answer requested: " + asked};
  const Answer given = wanted.value_or(Answer());
  if (result.code == 0 && given.kind == Answer::Kind::apply) {
    if (kind == Kind::policy)
      applyPolicy(policy);
    else
      applyConfig(request);
  }
  reply(kind, id, given, result);
  return true;
}

Requests::Result Requests::loadPolicy(const std::string& request, std::string& policy,
                                      std::string& asked) const {
  const std::string path = settingIn(request, "policy.file");
  const int error = platform::readWholeFile(_system.files, path, kMaxRequestBytes, policy);
  if (error != 0)
    return {kUnreadable, "Cannot read the policy " + path + ": error " + std::to_string(error)};
  const std::vector<std::string> lines = linesOf(policy);
  if (lines.empty() || lines[0] != kPolicyMark) return {kNoPolicy, path + " is not an IDS policy."};
  asked = wordIn(policy, "answer");
  return {0,
          "Policy " + wordIn(policy, "name") + " " + wordIn(policy, "version") + " is in force."};
}

void Requests::applyPolicy(const std::string& policy) {
  changeSettings(_system, _directory, [&](std::string text) {
    for (const std::string word : {"name", "version", "id"})
      text = withSetting(text, "ids.policy." + word, wordIn(policy, word));
    return text;
  });
}

// The log rules of a request are all of them.
void Requests::applyConfig(const std::string& request) {
  changeSettings(_system, _directory, [&](std::string text) {
    if (("\n" + request).find("\n" + std::string(kRulePrefix)) != std::string::npos)
      text = withoutRules(text);
    for (const std::string& line : linesOf(request)) {
      const size_t end = line.find('=');
      const std::string key = line.substr(0, end);
      if (end == std::string::npos || key == "request.id" || key == kAnswerKey || isOwn(line))
        continue;
      text = withSetting(text, key, line.substr(end + 1));
    }
    return text;
  });
}

void Requests::reply(Kind kind, const std::string& id, const Answer& answer, const Result& result) {
  if (answer.kind == Answer::Kind::silent) return;
  const auto index = static_cast<size_t>(kind);
  const std::string prefix = kResultPrefixes[index];
  const bool refused = answer.kind == Answer::Kind::refuse;
  const std::string path =
      platform::joinPath(_system.files, {_directory, kNames[index] + std::string(".result")});
  std::string text = "request.id=" + id + "\n";
  if (answer.kind != Answer::Kind::noCode)
    text += prefix + ".ResultCode=" + std::to_string(refused ? answer.code : result.code) + "\n";
  if (answer.kind != Answer::Kind::noMessage)
    text += prefix + ".ResultMessage=" + (refused ? answer.text : result.text) + "\n";
  if (const int error = platform::writeFileAtomically(_system.files, path, text); error != 0)
    failFile(error, "write", path);
}

}  // namespace korvane::ids_writer
