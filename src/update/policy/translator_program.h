// The translator program, bin/translate below the agent's installation directory.
//
// Lifetime: refers to what it is made of. Threads: one at a time. A run blocks until the program
// ends, half an hour at most; a stop of the agent ends program and wait at once.
// Errors: the exit code; what cannot be started, must not be since strangers may change it, or takes
// too long counts as 100.
#pragma once

#include <cstdint>
#include <string>

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

class StopToken;

struct TranslatorCall {
  STRING agentArg;  // "-agent" or "-hidsagent"
  STRING plusFile;
  STRING out1;
  STRING out2;
  STRING prevItemsFile;  // may be empty, or a file that is not there
};

struct TranslatorResult {
  int exitCode = 0;
  bool stopped = false;      // the program was ended by a stop; the exit code says nothing then
  std::string refusal = {};  // why it was not started, or ended
};

inline constexpr int kTranslatorNotStarted = 100;

class TranslatorProgram {
 public:
  static constexpr uint32_t kMostMs = 30 * 60 * 1000;

  TranslatorProgram(platform::Files& files, platform::Processes& processes,
                    platform::Rights& rights, StopToken& stop)
      : _files(files), _processes(processes), _rights(rights), _stop(stop) {}

  [[nodiscard]] TranslatorResult run(const TranslatorCall& call);
  // Why a translation failed: the text that the program left in its first output.
  STRING getTranslationError(const TranslatorResult& result, const STRING& out1);

 private:
  std::string path() const;
  bool canBeOpened(const STRING& file);
  TranslatorResult waitFor(platform::Process& process);

  platform::Files& _files;
  platform::Processes& _processes;
  platform::Rights& _rights;
  StopToken& _stop;
};

}  // namespace korvane
