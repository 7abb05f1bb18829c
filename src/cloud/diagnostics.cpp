#include "cloud/diagnostics.h"

#include <algorithm>
#include <memory>

#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "cloud/parameters.h"
#include "config/install_root.h"
#include "config/masking.h"
#include "config/server_settings.h"
#include "config/settings_file.h"
#include "eventlog/event_log.h"
#include "eventlog/event_log_file.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/system_info.h"
#include "util/dates.h"

namespace korvane {
namespace {

void appendSection(std::string& out, const char* name) {
  out += std::string(out.empty() ? "" : "\n") + "== " + name + " ==\n";
}

void appendLine(std::string& out, const std::string& name, const std::string& value) {
  out += name + ": " + value + "\n";
}

// "policy.stateCode: 0", a line for each value; list entries are numbered from 1.
void appendTree(std::string& out, const std::string& prefix, const JsonTree& tree) {
  int entry = 0;
  for (const auto& [name, child] : tree) {
    const std::string path = prefix + (name.empty() ? std::to_string(++entry) : name);
    if (child.empty())
      appendLine(out, path, child.data());
    else
      appendTree(out, path + ".", child);
  }
}

void appendSystem(std::string& out, const LocalParts& parts) {
  platform::SystemInfo& system = parts.systemInfo;
  appendLine(out, "taken", formatIso8601(parts.clock.wallMs()));
  appendLine(out, "system", system.osDescription());
  appendLine(out, "host", system.hostName());
  appendLine(out, "timeZone", system.timeZone());
  appendLine(out, "installRoot", installRoot());
  appendLine(out, "library", system.moduleDirectory());
}

void appendSettings(std::string& out, const SettingsFile& settings) {
  for (const auto& [key, value] : settings.allValues()) {
    const std::string name = key.toUtf8();
    out += name + "=" + maskedSetting(name, value.toUtf8()) + "\n";
  }
}

// The last whole lines of the own log.
std::string logTail(platform::Files& files, const std::string& path) {
  std::unique_ptr<platform::File> file;
  platform::FileInfo info;
  std::string tail;
  if (files.open(path, platform::OpenMode::read, file) != 0 || file->info(info) != 0) return tail;
  const auto bytes = std::min<uint64_t>(info.size, Diagnostics::kLogTailBytes);
  tail.resize(static_cast<size_t>(bytes));
  size_t got = 0;
  if (file->seek(static_cast<int64_t>(info.size - bytes)) != 0 ||
      file->read(tail.data(), tail.size(), got) != 0)
    got = 0;
  tail.resize(got);
  return info.size > bytes ? tail.substr(tail.find('\n') + 1) : tail;
}

void appendLog(std::string& out, const LocalParts& parts) {
  const std::string path = eventlog::currentFile();
  appendLine(out, "file", path);
  appendLine(out, "recordsLost", std::to_string(eventlog::EventLog::lost()));
  out += maskedText(logTail(parts.files, path), parts.server.getUniqueId().toUtf8());
}

bool continuesCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

std::string diagnosticsText(const AboutAgent& about, const LocalParts& parts) {
  std::string out;
  appendSection(out, "system");
  appendSystem(out, parts);
  appendSection(out, "status");
  appendTree(out, "", statusTree(about, parts, logsTree(parts)));
  appendSection(out, "settings");
  appendSettings(out, parts.settings);
  appendSection(out, "threads");
  appendLine(out, "leftBehind", std::to_string(Thread::abandoned()));
  appendSection(out, "log");
  appendLog(out, parts);
  return out;
}

// Where a piece begins: characters are not cut.
size_t Diagnostics::pieceStart(const std::string& text, size_t piece) {
  size_t at = std::min(piece * kPieceBytes, text.size());
  while (at > 0 && at < text.size() && continuesCharacter(text[at])) --at;
  return at;
}

Diagnostics::Taken& Diagnostics::taken(int piece, const RPCRequest& request) {
  if (piece < 0) throw RPCError(kRpcInvalidParams, "piece: must not be negative");
  if (piece == 0) _taken = Taken{diagnosticsText(_about, _parts), ++_numbers, 0};
  const std::optional<int> wanted = givenNumber(request, "snapshot");
  if (!_taken || (piece > 0 && wanted && *wanted != _taken->number))
    throw RPCError(kRpcEmptyBuffer, "the diagnostics have expired; start again with piece 0");
  _taken->askedAt = _parts.clock.monotonicMs();
  return *_taken;
}

void Diagnostics::answer(const RPCRequest& request, RPCResponse& response) {
  const int piece = givenNumber(request, "piece").value_or(0);
  const Taken& from = taken(piece, request);
  const size_t pieces = (from.text.size() + kPieceBytes - 1) / kPieceBytes;
  const auto index = static_cast<size_t>(piece);
  if (index >= pieces)
    throw RPCError(kRpcInvalidParams, "piece: out of range; pieces: " + std::to_string(pieces));
  const size_t start = pieceStart(from.text, index);
  response.appdata = from.text.substr(start, pieceStart(from.text, index + 1) - start);
  response.moredata = index + 1 < pieces;
  response.datalen = static_cast<int64_t>(response.appdata->size());
  putMember(response.result, "snapshot", from.number);
  putMember(response.result, "piece", piece);
  putMember(response.result, "pieces", static_cast<int64_t>(pieces));
  putMember(response.result, "totalBytes", static_cast<int64_t>(from.text.size()));
}

void Diagnostics::forgetOld() {
  if (_taken && _parts.clock.monotonicMs() - _taken->askedAt > kKeptMs) _taken.reset();
}

void addDiagnosticsMethods(RPCServer& server, const AboutAgent& about, const LocalParts& parts) {
  const auto diagnostics = std::make_shared<Diagnostics>(about, parts);
  server.add("getDiagnostics", RPCServer::Access::administrators,
             [diagnostics](const RPCRequest& request, RPCResponse& response) {
               diagnostics->answer(request, response);
             });
  server.addUpkeep([diagnostics] { diagnostics->forgetOld(); });
}

}  // namespace korvane
