#include "bulk/bulk_state.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "bulk/line_reader.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/sha256.h"

namespace korvane::bulk {
namespace {

constexpr std::string_view kStateLine = "korvane-bulk-state 1";
constexpr std::string_view kDigestLine = "end=";

std::string logText(const LogRecord& log) {
  std::string text = nameOf(log.kind);
  for (const std::string& field :
       {log.id, std::to_string(log.identity), std::to_string(log.position),
        std::to_string(log.size), std::to_string(log.modifiedNs), std::to_string(log.headBytes),
        log.head, log.path})
    text.append(" ").append(field);
  return text;
}

bool parseLog(std::string_view text, LogRecord& out) {
  FieldReader fields(text);
  const std::optional<Kind> kind = kindNamed(fields.word());
  LogRecord log;
  log.id = fields.word();
  if (!kind || !isId(log.id) || !fields.number(log.identity) || !fields.number(log.position) ||
      !fields.number(log.size) || !fields.number(log.modifiedNs) || !fields.number(log.headBytes))
    return false;
  log.kind = *kind;
  log.head = fields.word();
  log.path = fields.rest();
  if (log.position > log.size || log.headBytes > kMaxHead || log.headBytes > log.size ||
      !isHex(log.head, kHeadDigits) || !fitsLine(log.path))
    return false;
  out = std::move(log);
  return true;
}

bool parseBundle(std::string_view text, LineReader& lines, std::string_view& line, State& state) {
  Bundle bundle;
  FieldReader fields(text);
  bundle.name = fields.word();
  if (!isBundleName(bundle.name) || !fields.number(bundle.size)) return false;
  bundle.digest = fields.rest();
  if (!isHex(bundle.digest, kSha256Digits)) return false;
  std::string_view value;
  for (line = lines.line(); valueOf(line, "part", value); line = lines.line())
    if (bundle.parts.size() == kMaxParts || !parsePart(value, bundle.parts.emplace_back()))
      return false;
  if (bundle.parts.empty()) return false;
  state.bundle = std::move(bundle);
  return true;
}

}  // namespace

std::string stateText(const State& state) {
  std::string text(kStateLine);
  text.append("\nsent=").append(std::to_string(state.sentBundles)).append(" ");
  text.append(std::to_string(state.sentBytes)).append("\n");
  if (const auto& bundle = state.bundle) {
    text.append("bundle=").append(bundle->name).append(" ").append(std::to_string(bundle->size));
    text.append(" ").append(bundle->digest).append("\n");
    for (const Part& part : bundle->parts) text.append("part=").append(partText(part)).append("\n");
  }
  for (const LogRecord& log : state.logs) text.append("log=").append(logText(log)).append("\n");
  const std::string digest = sha256Hex(text);
  return text.append(kDigestLine).append(digest).append("\n");
}

bool parseState(std::string_view text, State& out) {
  if (text.size() > kMaxStateBytes) return false;
  const size_t end = text.size() - std::min(text.size(), kDigestLine.size() + kSha256Digits + 1);
  if (text.substr(end) != std::string(kDigestLine) + sha256Hex(text.substr(0, end)) + "\n")
    return false;
  State state;
  LineReader lines(text.substr(0, end));
  std::string_view value;
  if (lines.line() != kStateLine || !valueOf(lines.line(), "sent", value)) return false;
  FieldReader sent(value);
  if (!sent.number(state.sentBundles) || !sent.number(state.sentBytes) || !sent.rest().empty())
    return false;
  if (lines.atEnd()) return out = std::move(state), true;
  std::string_view line = lines.line();
  if (valueOf(line, "bundle", value) && !parseBundle(value, lines, line, state)) return false;
  std::set<std::string> ids;
  for (; valueOf(line, "log", value); line = lines.line()) {
    LogRecord log;
    if (state.logs.size() == kMaxLogs || !parseLog(value, log) || !ids.insert(log.id).second)
      return false;
    state.logs.push_back(std::move(log));
  }
  // Nothing but what would be written: no blank line, no unfinished one.
  if (!line.empty() || stateText(state) != text) return false;
  out = std::move(state);
  return true;
}

int readState(platform::Files& files, const std::string& path, State& out) {
  std::string text;
  const int error = platform::readWholeFile(files, path, kMaxStateBytes, text);
  if (error != 0) return error;
  return parseState(text, out) ? 0 : EBADMSG;
}

int writeState(platform::Files& files, const std::string& path, const State& state) {
  const std::string text = stateText(state);
  return text.size() > kMaxStateBytes ? EFBIG : platform::writeFileAtomically(files, path, text);
}

}  // namespace korvane::bulk
