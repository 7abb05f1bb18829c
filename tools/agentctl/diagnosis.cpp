#include "agentctl/diagnosis.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "agentctl/connection.h"
#include "agentctl/facts.h"
#include "agentctl/failure.h"
#include "agentctl/ini_check.h"
#include "agentctl/own_log.h"
#include "agentctl/settings_view.h"
#include "config/ini_files.h"
#include "config/install_root.h"
#include "config/masking.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/system_info.h"
#include "util/dates.h"

namespace korvane::agentctl {
namespace {

constexpr char kHostLog[] = "korvane-host.log";
// Of the running agent's own text: what is nowhere else in the zip.
constexpr const char* kAgentSections[] = {"system", "threads"};

// A section "== name ==" up to the next one.
std::string sectionOf(const std::string& text, const std::string& name) {
  const std::string header = "== " + name + " ==\n";
  const size_t begin = text.find(header);
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find("\n== ", begin) - begin) + "\n";
}

Redactor redactorFor(Context& context) {
  try {
    const SettingsView settings = SettingsView::ofInstallation(context.iniFiles());
    std::vector<std::string> urls;
    for (const SettingsView::Entry& entry : settings.entries())
      urls.push_back(entry.value.toUtf8());
    return {{settings.text(Key::agentId).toUtf8()}, urls};
  } catch (const Failure&) {
    return {{}, {}};
  }
}

// The end of a file, from the beginning of a line on.
std::string endOf(platform::Files& files, const std::string& path, uint64_t most) {
  std::unique_ptr<platform::File> file;
  platform::FileInfo info;
  if (files.open(path, platform::OpenMode::read, file) != 0 || file->info(info) != 0) return {};
  const uint64_t bytes = std::min(info.size, most);
  std::string text(static_cast<size_t>(bytes), '\0');
  size_t got = 0;
  if (file->seek(static_cast<int64_t>(info.size - bytes)) != 0 ||
      file->read(text.data(), text.size(), got) != 0)
    return {};
  text.resize(got);
  return bytes < info.size ? text.substr(std::min(text.find('\n'), text.size() - 1) + 1) : text;
}

}  // namespace

Diagnosis::Diagnosis(Context& context, bool offline)
    : _context(context), _offline(offline), _redact(redactorFor(context)) {}

void Diagnosis::add(const std::string& entry, const std::function<std::string()>& make) {
  try {
    archive::Refusal refusal;
    if (_zip->add(entry, make(), refusal))
      _entries.push_back(entry);
    else
      _problems.push_back(refusal.text());
  } catch (const std::exception& error) {
    _problems.push_back(entry + ": " + _redact.text(error.what()));
  }
}

std::string Diagnosis::about() {
  platform::Platform& system = _context.system();
  return "taken       " + formatIso8601(system.clock.wallMs()) + "\nagentctl    " +
         KORVANE_VERSION + "\nsystem      " + system.systemInfo.osDescription() + "\nhost        " +
         system.systemInfo.hostName() + "\ntime zone   " + system.systemInfo.timeZone() +
         "\ninstalled   " + installRoot() + "\nrun folder  " + _context.options.runDirectory +
         "\n\nSecrets are masked (****): users and passwords in URLs, all but the beginning of the "
         "agent's identifier. There is "
         "no policy and no event in here.\n";
}

std::string Diagnosis::settings() {
  const SettingsView view = SettingsView::ofInstallation(_context.iniFiles());
  std::string text =
      "; from " + view.source() + (view.fault().empty() ? "" : "; " + view.fault()) + "\n";
  std::string section;
  for (const SettingsView::Entry& entry : view.entries()) {
    if (entry.section != section) text += "[" + entry.section + "]\n";
    section = entry.section;
    text += entry.key + "=" + maskedSetting(entry.key, entry.value.toUtf8()) + "\n";
  }
  return _redact.text(text);
}

std::string Diagnosis::settingsCheck() {
  const IniFiles files = _context.iniFiles();
  std::string text;
  for (const std::string& path : {files.agentIni(), files.fallbackIni()}) {
    std::string bytes;
    const int error = platform::readWholeFile(_context.system().files, path, kMaxIniBytes, bytes);
    if (error != 0) {
      text += path + ": cannot be read, error " + std::to_string(error) + "\n";
      continue;
    }
    const auto findings =
        checkIni(bytes, path == files.agentIni() && files.stampOf(files.fallbackIni()).exists);
    text += path + ": " + std::to_string(findings.size()) + " findings\n";
    for (const IniFinding& finding : findings)
      text += path + ":" + std::to_string(finding.line) + ": " +
              (finding.error ? "error: " : "warning: ") + finding.text + "\n";
  }
  return _redact.text(text);
}

std::string Diagnosis::fromAgent() {
  const std::string all = _context.askForPieces("getDiagnostics");
  std::string text;
  for (const char* section : kAgentSections) text += sectionOf(all, section);
  return _redact.text(text);
}

void Diagnosis::addLog(const std::string& path, uint64_t bytes) {
  add("logs/" + platform::fileNameOf(path), [&] {
    const std::string text = endOf(_context.system().files, path, bytes);
    return platform::fileNameOf(path) == kHostLog ? _redact.text(text) : _redact.log(text);
  });
}

void Diagnosis::addLogs() {
  platform::Files& files = _context.system().files;
  const std::string directory = _context.installed("logs");
  std::vector<std::string> paths = ownLogFiles(files, directory);
  std::reverse(paths.begin(), paths.end());
  uint64_t left = kLogBytes;
  for (const std::string& path : paths) {
    if (left == 0) break;
    platform::FileInfo info;
    if (files.info(path, info) != 0) continue;
    addLog(path, left);
    left -= std::min(left, info.size);
  }
  const std::string host = platform::joinPath(files, {directory, kHostLog});
  if (platform::fileExists(files, host)) addLog(host, kHostLogBytes);
}

std::string Diagnosis::collect(const std::string& name) {
  _zip = std::make_unique<archive::ZipWriter>(name);
  add("about.txt", [this] { return about(); });
  add("status.json", [this] {
    Json facts = statusFacts(_context);
    facts["trouble"] = troubleOf(facts);
    return text(_redact.document(facts));
  });
  add("policy.json", [this] { return text(_redact.document(policyFacts(_context))); });
  add("settings.ini", [this] { return settings(); });
  add("settings-check.txt", [this] { return settingsCheck(); });
  add("agent.txt", [this] { return fromAgent(); });
  if (!_offline)
    add("connection.txt", [this] { return _redact.text(toText(connectionReport(_context, {}))); });
  try {
    addLogs();
  } catch (const std::exception& error) {
    _problems.push_back(std::string("logs: ") + error.what());
  }
  if (!_problems.empty())
    add("problems.txt", [this] {
      std::string all;
      for (const std::string& problem : _problems) all += problem + "\n";
      return _redact.text(all);
    });
  return _zip->finish();
}

}  // namespace korvane::agentctl
