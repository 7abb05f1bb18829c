#include "update/policy/translator_program.h"

#include <cerrno>
#include <memory>
#include <string>

#include "agent/thread/stop_token.h"
#include "config/install_root.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "platform/rights.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kProgramTag[] = "::RunTranslator";
constexpr char kPrevItemsSwitch[] = "-PrevTransFile";
constexpr char kLoadText[] = "-loadtext";
// Long enough for any text that is read by somebody; more is cut.
constexpr uint64_t kMaxErrorBytes = 64 * 1024;

std::string quoted(const STRING& text) {
  return "\"" + text.toUtf8() + "\"";
}

std::string arguments(const TranslatorCall& call, bool withItems) {
  std::string text;
  if (withItems) text = std::string(kPrevItemsSwitch) + " " + quoted(call.prevItemsFile) + " ";
  return text + quoted(call.agentArg) + " " + quoted(kLoadText) + " " + quoted(call.plusFile) +
         " " + quoted(call.out1) + " " + quoted(call.out2);
}

void traceCall(const std::string& path, const TranslatorCall& call, bool withItems) {
  if (withItems)
    eventlog::trace(kProgramTag, "running Translator '%s' -- '%s' '%s' '%s' '%s' '%s' '%s' '%s'",
                    path, kPrevItemsSwitch, call.prevItemsFile, call.agentArg, kLoadText,
                    call.plusFile, call.out1, call.out2);
  else
    eventlog::trace(kProgramTag, "running Translator '%s' -- '%s' '%s' '%s' '%s' '%s'", path,
                    call.agentArg, kLoadText, call.plusFile, call.out1, call.out2);
}

std::string joinedLines(const std::string& text) {
  std::string joined;
  for (const char c : text)
    if (c != '\n' && c != '\r') joined += c;
  return joined;
}

}  // namespace

std::string TranslatorProgram::path() const {
  return platform::joinPath(_files, {installDirectory(), "bin", _processes.fileName("translate")});
}

bool TranslatorProgram::canBeOpened(const STRING& file) {
  std::unique_ptr<platform::File> opened;
  return !file.empty() && _files.open(file.toUtf8(), platform::OpenMode::read, opened) == 0;
}

TranslatorResult TranslatorProgram::waitFor(platform::Process& process) {
  TranslatorResult result;
  platform::ProcessWait outcome;
  {
    StopCallback interrupt(_stop, [&process] { process.interrupt(); });
    outcome = process.wait(kMostMs);
  }
  if (outcome != platform::ProcessWait::ended) {
    // Nobody could tell any more when it is done with its outputs.
    // A process that has just ended cannot be terminated.
    ignoreResult(process.terminate());
    result.stopped = outcome == platform::ProcessWait::interrupted;
    if (outcome == platform::ProcessWait::timedOut)
      result.refusal = "It was ended after 30 minutes.";
    result.exitCode = kTranslatorNotStarted;
    eventlog::event(EventId::translatorTerminated, kProgramTag, {process.id()});
    return result;
  }
  uint32_t code = 0;
  if (process.exitCode(code)) result.exitCode = static_cast<int>(code);
  return result;
}

TranslatorResult TranslatorProgram::run(const TranslatorCall& call) {
  const std::string program = path();
  if (std::string unsafe = _rights.refusal(program); !unsafe.empty()) {
    eventlog::event(EventId::unsafeFileNotUsed, kProgramTag, {unsafe});
    return {kTranslatorNotStarted, false, "It is not run: " + unsafe};
  }
  const bool withItems = canBeOpened(call.prevItemsFile);
  if (!withItems) eventlog::trace(kProgramTag, "Prev Trans Items file not present");
  traceCall(program, call, withItems);
  std::unique_ptr<platform::Process> process;
  const uint32_t error = _processes.start(program, arguments(call, withItems), process);
  if (error == platform::kOk) return waitFor(*process);
  eventlog::trace(kProgramTag, "Cannot start %s: error %u", program, error);
  return {kTranslatorNotStarted, false};
}

STRING TranslatorProgram::getTranslationError(const TranslatorResult& result, const STRING& out1) {
  eventlog::trace("getTranslationError", "Error running Translator %d", result.exitCode);
  if (!result.refusal.empty()) return "Translator failed to execute. " + result.refusal;
  if (result.exitCode == kTranslatorNotStarted) return "Translator failed to execute.";
  std::unique_ptr<platform::File> file;
  if (_files.open(out1.toUtf8(), platform::OpenMode::read, file) != 0) return "Unknown error";
  std::string text(kMaxErrorBytes, '\0');
  size_t got = 0;
  if (file->read(text.data(), text.size(), got) != 0) return "Unknown error";
  text.resize(got);
  text = joinedLines(text);
  return text.empty() ? STRING("Error during translation. No error returned by translator.")
                      : STRING(text);
}

}  // namespace korvane
