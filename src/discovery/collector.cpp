#include "discovery/collector.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "trust/sha256.h"
#include "util/dates.h"

namespace korvane {
namespace {

using Counts = InventoryRow::Counts;

constexpr uint64_t kMostNamedSkips = 100;
constexpr size_t kPieceBytes = 64 * 1024;
// Checking a signature reads the whole file in one step, which a stop waits for.
constexpr uint64_t kMostSignedBytes = 100 * 1024 * 1024;

std::string reasonOf(int error) {
  return std::string(std::strerror(error)) + " (" + std::to_string(error) + ")";
}

// As a part of a line of shortcuts.txt.
std::string tabbed(std::string_view text) {
  std::string out;
  for (const char c : cleanText(text)) {
    if (c == '\t') {
      out += "\\t";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\\') {
      out += "\\\\";
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

Collector::Collector(const Parts& parts, const Definition& definition, const InventoryOrder& order)
    : _parts(parts),
      _definition(definition),
      _pace(parts.clock, parts.stop, definition.limits.share, definition.limits.seconds),
      _output(parts.files, order.outputFile.toUtf8()),
      _buffer(std::make_unique<char[]>(kPieceBytes)) {
  if (definition.shortcuts && !order.shortcutsFile.empty())
    _shortcuts = std::make_unique<AsideFile>(parts.files, order.shortcutsFile.toUtf8());
}

InventoryOutcome Collector::run() {
  _output.add("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<inventory version=\"1\" collected=\"" +
              formatIso8601(_parts.clock.wallMs()) + "\">\n");
  if (_definition.applications) collectApplications();
  if (_definition.services) collectServices();
  if (_definition.processes) collectProcesses();
  if (_definition.ports) collectPorts();
  if (_definition.shortcuts) collectShortcuts();
  for (const RegistryRoot& root : _definition.registry) collectRegistry(root);
  for (const FileRoot& root : _definition.files) collectFiles(root);
  InventoryOutcome outcome;
  outcome.stopped = _pace.stopped();
  outcome.rows = _rows;
  outcome.skipped = _skipped;
  if (outcome.stopped) return outcome;
  writeResult(outcome);
  place(outcome);
  return outcome;
}

bool Collector::goOn() {
  return !_rowLimit && !_output.error() && _pace.goOn();
}

void Collector::skipped(std::string_view what, int error) {
  if (++_skipped > kMostNamedSkips) return;
  _row.begin("skip");
  _row.addAlways("what", what);
  _row.add("reason", reasonOf(error));
  _output.add(_row.finish());
}

void Collector::writeRow(RowSum* sum) {
  if (_rows == _definition.limits.rows) _rowLimit = true;
  if (_rowLimit) return;
  ++_rows;
  if (sum) sum->add(_row);
  _output.add(_row.finish());
}

void Collector::collectApplications() {
  _parts.survey.applications(*this, [this](const platform::SurveyedApplication& row) {
    _row.begin("application");
    _row.addAlways("name", row.name);
    _row.add("version", row.version);
    _row.add("publisher", row.publisher);
    _row.add("architecture", row.architecture);
    _row.add("location", row.location);
    _row.add("installed", row.installed);
    writeRow(&_applicationsSum);
  });
}

void Collector::collectServices() {
  _parts.survey.services(*this, [this](const platform::SurveyedService& row) {
    _row.begin("service");
    _row.addAlways("name", row.name);
    _row.add("displayName", row.displayName);
    _row.addAlways("start", row.start);
    _row.add("account", row.account);
    _row.add("program", row.program);
    writeRow(&_applicationsSum);
  });
}

void Collector::collectProcesses() {
  _parts.survey.processes(*this, [this](const platform::SurveyedProcess& row) {
    _row.begin("process");
    _row.add("id", row.id);
    _row.add("parent", row.parent);
    _row.addAlways("name", row.name);
    _row.add("image", row.image);
    _row.add("commandLine", row.commandLine);
    writeRow(nullptr);
  });
}

void Collector::collectPorts() {
  _parts.survey.ports(*this, [this](const platform::SurveyedPort& row) {
    _row.begin("port");
    _row.addAlways("protocol", row.protocol);
    _row.addAlways("address", row.address);
    _row.add("port", row.port);
    if (row.process) _row.add("process", row.process);
    _row.add("image", row.image);
    writeRow(nullptr);
  });
}

void Collector::collectShortcuts() {
  _parts.survey.shortcuts(*this, [this](const platform::SurveyedShortcut& row) {
    _row.begin("shortcut");
    _row.addAlways("path", row.path);
    _row.add("name", row.name);
    _row.add("target", row.target);
    _row.add("arguments", row.arguments);
    _row.add("directory", row.directory);
    writeRow(&_applicationsSum);
    if (!_rowLimit) writeShortcutLine(row);
  });
}

void Collector::writeShortcutLine(const platform::SurveyedShortcut& row) {
  if (!_shortcuts) return;
  _shortcuts->add(tabbed(row.path) + '\t' + tabbed(row.target) + '\t' + tabbed(row.arguments) +
                  '\t' + tabbed(row.directory) + '\n');
}

void Collector::collectRegistry(const RegistryRoot& root) {
  if (!goOn()) return;
  _parts.survey.registryValues(
      *this, root.key, root.depth, [&](const platform::SurveyedValue& row) {
        if (!matchesPattern(row.name, root.value, _parts.survey.ignoresCase())) return;
        _row.begin("registry");
        _row.addAlways("key", row.key);
        _row.addAlways("name", row.name);
        _row.addAlways("type", row.type);
        _row.addAlways("value", row.value);
        writeRow(&_applicationsSum);
      });
}

bool Collector::isWanted(const FileRoot& root, const platform::SurveyedEntry& entry) const {
  const bool foldCase = _parts.survey.ignoresCase();
  return entry.size >= root.minSize && entry.size <= root.maxSize &&
         std::any_of(root.patterns.begin(), root.patterns.end(), [&](const std::string& pattern) {
           return matchesPattern(entry.name, pattern, foldCase);
         });
}

void Collector::collectFiles(const FileRoot& root) {
  if (!goOn()) return;
  std::unique_ptr<platform::FileWalk> walk;
  if (const int error = _parts.survey.walk(*this, root.root, walk)) {
    skipped(root.root, error);
    return;
  }
  std::string folder = root.root;
  if (!folder.ends_with('/') && !folder.ends_with('\\')) folder += _parts.files.separator();
  platform::SurveyedEntry entry;
  while (walk->next(entry)) {
    if (isExcluded(root, entry.relative, entry.name, _parts.survey.ignoresCase())) continue;
    if (entry.isFolder) {
      if (walk->depth() < root.depth) walk->enter();
    } else if (isWanted(root, entry)) {
      writeFile(root, folder, *walk, entry);
    }
  }
}

void Collector::writeFile(const FileRoot& root, const std::string& folder, platform::FileWalk& walk,
                          const platform::SurveyedEntry& entry) {
  const std::string path = folder + entry.relative;
  std::string digest;
  if (root.hash && entry.size <= root.hashLimit) {
    digest = digestOf(walk, path);
    if (digest.empty()) return;
  }
  _row.begin("file");
  _row.addAlways("path", path);
  _row.addBytesIfUnclean("pathBytes", path);
  _row.add("size", entry.size);
  _row.add("modified", formatIso8601(entry.modifiedMs), digest.empty() ? Counts::yes : Counts::no);
  if (entry.createdMs) _row.add("created", formatIso8601(entry.createdMs), Counts::no);
  if (root.fileVersion) _row.add("version", walk.version());
  if (root.signer && entry.size <= kMostSignedBytes) _row.add("signer", walk.signer());
  _row.add("sha256", digest);
  writeRow(&_filesSum);
}

// Empty when the file is gone, cannot be read or the collection ends.
std::string Collector::digestOf(platform::FileWalk& walk, const std::string& path) {
  std::unique_ptr<platform::SurveyedContent> content;
  int error = walk.open(content);
  trust::Sha256 digest;
  for (size_t got = 1; !error && got > 0;) {
    if (!goOn()) return {};
    error = content->read(_buffer.get(), kPieceBytes, got);
    if (!error) digest.add({_buffer.get(), got});
  }
  if (error && error != ENOENT) skipped(path, error);
  return error ? std::string() : digest.text();
}

void Collector::writeResult(InventoryOutcome& outcome) {
  outcome.complete = !_rowLimit && !_pace.timeIsUp();
  if (outcome.complete) {
    const Definition& of = _definition;
    if (of.applications || of.services || of.shortcuts || !of.registry.empty())
      outcome.applicationsChecksum = _applicationsSum.text();
    if (!of.files.empty()) outcome.filesChecksum = _filesSum.text();
  }
  _row.begin("result");
  _row.add("complete", outcome.complete ? "true" : "false");
  if (!outcome.complete) _row.add("reason", _rowLimit ? "rows" : "seconds");
  _row.add("rows", _rows);
  _row.add("skipped", _skipped);
  _row.add("applicationsChecksum", outcome.applicationsChecksum);
  _row.add("filesChecksum", outcome.filesChecksum);
  _output.add(_row.finish());
  _output.add("</inventory>\n");
}

void Collector::place(InventoryOutcome& outcome) {
  const auto failed = [&](const AsideFile& file, int error) {
    outcome.complete = false;
    outcome.applicationsChecksum.clear();
    outcome.filesChecksum.clear();
    outcome.error = STRING(file.path() + ": cannot be written: " + reasonOf(error));
  };
  if (_output.error()) return failed(_output, _output.error());
  if (_shortcuts) {
    if (const int error = _shortcuts->commit()) return failed(*_shortcuts, error);
  }
  if (const int error = _output.commit()) return failed(_output, error);
  outcome.written = true;
}

}  // namespace korvane
