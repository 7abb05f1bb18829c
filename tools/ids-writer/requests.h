// The component's side of what the agent hands over: "policy.request" and "config.request" in its
// folder, answered with "policy.result" and "config.result" (docs/file-formats.md). A policy that
// is applied is noted in "ids.properties" (ids.policy.name, ids.policy.version, ids.policy.id);
// settings and log rules go there as they are.
//
// The request determines how it is answered: a policy's line "answer ...", or the setting
// "ids.stand-in.answer"; otherwise the object's default answer applies.
//
// Lifetime: refers to the platform, which must outlive it. One thread.
// Errors: a request that cannot be carried out is answered with a result code; a file that cannot
// be written is thrown as FileError.
#pragma once

#include <optional>
#include <string>

#include "platform/platform.h"

namespace korvane::ids_writer {

struct Answer {
  enum class Kind { apply, refuse, noCode, noMessage, silent };
  Kind kind = Kind::apply;
  int code = 0;
  std::string text;
};

// "apply", "refuse CODE TEXT", "no-code", "no-message" or "silent"; nothing for anything else.
std::optional<Answer> parseAnswer(const std::string& text);

class Requests {
 public:
  // Result codes of the stand-in itself.
  static constexpr int kUnreadable = 2;
  static constexpr int kNoPolicy = 3;
  static constexpr int kUnknownAnswer = 4;

  Requests(platform::Platform& system, std::string directory, Answer standing);

  // Answers what has not been answered yet; how many requests that were.
  int answerPending();

 private:
  struct Result {
    int code = 0;
    std::string text;
  };
  enum class Kind { policy, config };

  bool answer(Kind kind);
  std::string read(const std::string& name) const;
  void reply(Kind kind, const std::string& id, const Answer& answer, const Result& result);
  // Sets what the policy asks for as its answer.
  Result loadPolicy(const std::string& request, std::string& policy, std::string& asked) const;
  void applyPolicy(const std::string& policy);
  void applyConfig(const std::string& request);

  platform::Platform& _system;
  const std::string _directory;
  const Answer _standing;
  std::string _seen[2];  // the last request of each kind
};

}  // namespace korvane::ids_writer
