// agentctl events tail: the agent's own log.
#include <cerrno>
#include <csignal>
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/events.h"
#include "agentctl/failure.h"
#include "agentctl/json.h"
#include "agentctl/own_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/system_info.h"
#include "platform/threading.h"
#include "util/ignore_result.h"

namespace korvane::agentctl {
namespace {

constexpr uint32_t kLookMs = 200;

volatile std::sig_atomic_t interrupted = 0;
void interrupt(int) {
  interrupted = 1;
}

struct TailOptions {
  size_t count = 20;
  bool follow = false;
  bool trace = false;
  bool complaints = false;

  bool wants(const LogRecord& record) const {
    return record.isComplaint() || (!complaints && (trace || !record.isTrace()));
  }
};

const char* kindOf(const LogRecord& record) {
  return record.type == "AERR"   ? "error"
         : record.type == "AWRN" ? "warning"
         : record.isTrace()      ? "trace"
                                 : "info";
}

class Printer {
 public:
  Printer(const eventlog::Catalogue& catalogue, bool asJson)
      : _catalogue(catalogue), _asJson(asJson) {}

  void print(const LogRecord& record) const {
    if (_asJson)
      std::cout << asJson(record, _catalogue).dump(-1, ' ', false, Json::error_handler_t::replace)
                << "\n";
    else
      std::cout << asLine(record, _catalogue) << "\n";
  }

 private:
  const eventlog::Catalogue& _catalogue;
  const bool _asJson;
};

// `printed`: the sequence number of the last record that was printed; what came while the log was
// read for the first time is met again in the first turn.
void follow(Context& context, LogFollower& log, const TailOptions& options, const Printer& printer,
            uint64_t printed) {
  std::signal(SIGINT, interrupt);
  std::signal(SIGTERM, interrupt);
  const auto never = context.system().threading.createEvent(true, false);
  while (!interrupted) {
    for (const LogRecord& record : log.next())
      if (options.wants(record) && record.sequence > printed) printer.print(record);
    printed = 0;
    std::cout << std::flush;
    if (!std::cout) return;
    never->wait(kLookMs);
  }
}

ExitStatus tail(Context& context, const TailOptions& options) {
  const std::string directory = context.installed("logs");
  platform::Files& files = context.system().files;
  const eventlog::Catalogue catalogue = readCatalogue(context);
  const Printer printer(catalogue, context.options.json);
  std::vector<platform::DirectoryEntry> entries;
  if (files.list(directory, entries) == EACCES)
    throw Failure(ExitStatus::notPermitted, directory + " cannot be read",
                  "Run this as the agent's account or as administrator.");
  if (!options.follow && ownLogFiles(files, directory).empty())
    throw Failure(ExitStatus::failed, "no agent log found in " + directory,
                  "The agent writes one when it runs; --follow waits for it.");
  LogFollower log(files, directory);
  uint64_t printed = 0;
  for (const LogRecord& record :
       newestRecords(files, directory, options.count,
                     [&](const LogRecord& one) { return options.wants(one); })) {
    printed = record.sequence;
    printer.print(record);
  }
  if (options.follow) follow(context, log, options, printer, printed);
  return ExitStatus::ok;
}

}  // namespace

eventlog::Catalogue readCatalogue(Context& context) {
  platform::Platform& system = context.system();
  const std::string path =
      platform::joinPath(system.files, {system.systemInfo.moduleDirectory(), "korvane-events.txt"});
  std::string bytes;
  eventlog::Catalogue catalogue;
  if (platform::readWholeFile(system.files, path, eventlog::kMaxCatalogueBytes, bytes) == 0)
    // Without the catalogue the events are shown by their numbers.
    ignoreResult(eventlog::parseCatalogue(bytes, catalogue));
  return catalogue;
}

std::string asLine(const LogRecord& record, const eventlog::Catalogue& catalogue) {
  std::string kind = kindOf(record);
  kind.resize(sizeof "warning" - 1, ' ');
  const std::string number = record.number == 0 ? "-----" : std::to_string(record.number);
  return record.at + " " + kind + " " + number + " " + record.source + ": " +
         textOf(record, catalogue);
}

Json asJson(const LogRecord& record, const eventlog::Catalogue& catalogue) {
  std::string at = record.at;
  if (const size_t blank = at.find(' '); blank != std::string::npos) at[blank] = 'T';
  return {{"at", at + "Z"},
          {"type", record.type},
          {"code", record.number},
          {"source", record.source},
          {"process", record.process},
          {"thread", record.thread},
          {"text", textOf(record, catalogue)},
          {"insertions", record.insertions}};
}

void addEvents(CLI::App& app, Context& context, Action& chosen) {
  CLI::App* events = app.add_subcommand("events", "Shows the events of the agent's own log");
  events->require_subcommand(1);
  CLI::App* command = events->add_subcommand("tail", "Prints the newest events; times are UTC");
  const auto options = std::make_shared<TailOptions>();
  command->add_option("-n,--lines", options->count, "How many")
      ->capture_default_str()
      ->check(CLI::Range(0, 1000000000));
  command->add_flag("-f,--follow", options->follow, "Prints new events as they come, until Ctrl-C");
  CLI::Option* trace = command->add_flag("--trace", options->trace, "Trace lines too");
  command->add_flag("--complaints", options->complaints, "Only warnings and errors")
      ->excludes(trace);
  command->callback([options, &context, &chosen] {
    chosen = [options, &context] { return tail(context, *options); };
  });
}

}  // namespace korvane::agentctl
