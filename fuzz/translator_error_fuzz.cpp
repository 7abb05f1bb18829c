// What a translator leaves as its error, of any content: it becomes one bounded line, and a record
// of it reads back. The first byte is the exit code.
#include <cstdlib>

#include "agent/thread/stop_token.h"
#include "platform/fake/fake_platform.h"
#include "update/policy/policy_history.h"
#include "update/policy/translator_program.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  constexpr char kPath[] = "/driver/policy1..conf.tmp";
  static platform::FakePlatform fake;
  static const platform::CurrentPlatform current(fake.platform());
  static StopToken stop;
  if (size == 0) return 0;
  fake.files.put(kPath, {reinterpret_cast<const char*>(data + 1), size - 1});
  const STRING text = TranslatorProgram(fake.files, fake.processes, fake.rights, stop)
                          .getTranslationError({.exitCode = data[0]}, kPath);
  if (text.empty() || text.length() > 65536) std::abort();
  if (text.find("\n") != STRING::npos || text.find("\r") != STRING::npos) std::abort();
  HistoryRecord record;
  HistoryRecord read;
  record.errorText = text;
  if (!parseHistoryLine(historyLine(record), read)) std::abort();
  return 0;
}
