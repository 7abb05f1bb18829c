// The translator program, bin/translate below the agent's installation directory.
//
// Threads: one at a time. A run blocks until the program ends; a stop of the agent (shutdownToken)
// ends program and wait at once.
// Errors: the exit code; what cannot be started counts as 100.
#pragma once

#include "util/string.h"

namespace korvane {

struct TranslatorCall {
  STRING agentArg;  // "-agent" or "-hidsagent"
  STRING plusFile;
  STRING out1;
  STRING out2;
  STRING prevItemsFile;  // may be empty, or a file that is not there
};

struct TranslatorResult {
  int exitCode = 0;
  bool stopped = false;  // the program was ended by a stop; the exit code says nothing then
};

inline constexpr int kTranslatorNotStarted = 100;

[[nodiscard]] TranslatorResult runTranslator(const TranslatorCall& call);
// Why a translation failed: the text that the program left in its first output.
STRING translationError(int exitCode, const STRING& out1);

}  // namespace korvane
