// translate: stands in for the translator program. docs/file-formats.md has its arguments, its exit
// codes, the source policies that it reads and the trouble that they may ask for.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/program_entry.h"
#include "platform/system_info.h"
#include "platform/threading.h"
#include "translate-stand-in/source_archive.h"
#include "translate-stand-in/source_policy.h"

namespace {

using namespace korvane;
using namespace korvane::translate_stand_in;

constexpr int kMalformedPolicy = 1;
constexpr int kWrongArguments = 2;
constexpr int kUnusableArchive = 3;
constexpr int kNoOutput = 4;

constexpr uint64_t kMaxArchiveBytes = 64 << 20;
constexpr uint64_t kMaxPolicyBytes = 16 << 20;

constexpr char kUsage[] =
    "translate is a stand-in for the policy translator.\n"
    "translate [-PrevTransFile ITEMS] -agent|-hidsagent -loadtext SOURCE FIRST SECOND\n"
    "translate --make-policy TEXT ARCHIVE\n";

struct Command {
  std::string previousItems;
  Target target = Target::driver;
  std::string source;
  std::string first;
  std::string second;
};

bool parse(std::vector<std::string> arguments, Command& command) {
  if (arguments.size() == 7 && arguments[0] == "-PrevTransFile") {
    command.previousItems = arguments[1];
    arguments.erase(arguments.begin(), arguments.begin() + 2);
  }
  if (arguments.size() != 5 || arguments[1] != "-loadtext") return false;
  if (arguments[0] != "-agent" && arguments[0] != "-hidsagent") return false;
  command.target = arguments[0] == "-agent" ? Target::driver : Target::ids;
  command.source = arguments[2];
  command.first = arguments[3];
  command.second = arguments[4];
  return true;
}

class Program {
 public:
  explicit Program(platform::Platform& system) : _system(system) {}

  int translate(const Command& command);
  int makePolicy(const std::string& textFile, const std::string& archive);

 private:
  bool read(const std::string& path, uint64_t limit, std::string& bytes, std::string& reason);
  bool readSource(const std::string& path, Source& source, std::string& reason);
  RetransItems readPrevious(const std::string& path);
  bool write(const std::string& path, std::string_view bytes);
  int finish(const Command& command, const Translation& made);
  int failWith(const Command& command, int code, std::string_view text);
  [[noreturn]] void hang();

  platform::Platform& _system;
};

bool Program::read(const std::string& path, uint64_t limit, std::string& bytes,
                   std::string& reason) {
  const int error = platform::readWholeFile(_system.files, path, limit, bytes);
  if (error != 0) reason = "Cannot read " + path + ": error " + std::to_string(error);
  return error == 0;
}

bool Program::readSource(const std::string& path, Source& source, std::string& reason) {
  std::string archive;
  return read(path, kMaxArchiveBytes, archive, reason) &&
         unpackPolicy(platform::fileNameOf(path), archive, source, reason);
}

// What cannot be used is left aside: the translation does without it.
RetransItems Program::readPrevious(const std::string& path) {
  std::string text;
  std::string reason;
  RetransItems items;
  ItemsProblem problem;
  if (path.empty()) return items;
  if (!read(path, kMaxItemsBytes, text, reason))
    std::cerr << reason << '\n';
  else if (!parseRetransItems(text, items, problem))
    std::cerr << path << ", line " << problem.line << ": " << problem.reason << '\n';
  return items;
}

bool Program::write(const std::string& path, std::string_view bytes) {
  std::unique_ptr<platform::File> file;
  int error = _system.files.open(path, platform::OpenMode::create, file);
  if (error == 0) error = file->write(bytes.data(), bytes.size());
  if (error == 0) error = file->flush();
  if (error != 0) std::cerr << "Cannot write " << path << ": error " << error << '\n';
  return error == 0;
}

int Program::failWith(const Command& command, int code, std::string_view text) {
  return write(command.first, text) ? code : kNoOutput;
}

void Program::hang() {
  const auto never = _system.threading.createEvent(true, false);
  for (;;) never->wait(platform::kInfinite);
}

int Program::finish(const Command& command, const Translation& made) {
  using Kind = Trouble::Kind;
  const bool forIds = command.target == Target::ids;
  const std::string items = retransItemsText(made.items);
  const std::string_view second = forIds ? made.policy : items;
  if (!forIds && made.trouble.kind != Kind::noOutput && !write(command.first, made.policy))
    return kNoOutput;
  if (made.trouble.kind == Kind::noItems) return 0;
  const bool whole = made.trouble.kind != Kind::damagedItems;
  return write(command.second, whole ? second : second.substr(0, second.size() / 2)) ? 0
                                                                                     : kNoOutput;
}

int Program::translate(const Command& command) {
  using Kind = Trouble::Kind;
  Source source;
  std::string reason;
  if (!readSource(command.source, source, reason))
    return failWith(command, kUnusableArchive, reason);
  MachineState machine({_system.files, _system.registry, _system.systemInfo});
  const RetransItems previous = readPrevious(command.previousItems);
  const Translation made = SourcePolicy(machine, previous, command.target).translate(source);
  switch (made.trouble.kind) {
    case Kind::fail:
      return failWith(command, made.trouble.code, made.trouble.text);
    case Kind::failEmpty:
      return failWith(command, made.trouble.code, {});
    case Kind::failSilent:
      return made.trouble.code;
    case Kind::crash:
      write(command.first, std::string_view(made.policy).substr(0, made.policy.size() / 2));
      std::abort();
    case Kind::hang:
      hang();
    default:
      break;
  }
  if (!made.problem.empty()) return failWith(command, kMalformedPolicy, made.problem);
  return finish(command, made);
}

int Program::makePolicy(const std::string& textFile, const std::string& archive) {
  std::string text;
  std::string reason;
  if (!read(textFile, kMaxPolicyBytes, text, reason)) {
    std::cerr << reason << '\n';
    return kMalformedPolicy;
  }
  return write(archive, packPolicy(text)) ? 0 : kNoOutput;
}

}  // namespace

int korvane::programMain(const std::vector<std::string>& arguments) {
  const auto info = platform::makeNativeSystemInfo();
  const auto native = platform::makeNativePlatform(
      {info->environment("KORVANE_REGISTRY"), info->environment("KORVANE_RUN_DIR")});
  Program program(native->platform());
  if (arguments.size() == 3 && arguments[0] == "--make-policy")
    return program.makePolicy(arguments[1], arguments[2]);
  Command command;
  if (parse(arguments, command)) return program.translate(command);
  std::cerr << kUsage;
  return kWrongArguments;
}
