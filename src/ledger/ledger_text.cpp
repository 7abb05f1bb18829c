#include "ledger/ledger_text.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>

namespace korvane {
namespace {

constexpr std::string_view kFirstLine = "korvane-ledger 1\n";
// For a name that is empty.
constexpr std::string_view kNoName = "-";

// FNV-1a: it recognises a slot that was cut, not one that was forged.
std::string hashText(std::string_view bytes) {
  uint64_t hash = 0xcbf29ce484222325u;
  for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
  std::string text(16, '0');
  for (size_t i = text.size(); hash != 0; hash >>= 4) text[--i] = "0123456789abcdef"[hash & 15];
  return text;
}

std::string lastLine(std::string_view before) {
  return "end " + hashText(before) + "\n";
}

std::string_view nextWord(std::string_view& rest, char separator) {
  const size_t end = std::min(rest.find(separator), rest.size());
  const std::string_view word = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return word;
}

template <class Number>
bool takeNumber(std::string_view& rest, Number& out) {
  const std::string_view word = nextWord(rest, ' ');
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), out);
  return error == std::errc() && end == word.data() + word.size();
}

bool takeName(std::string_view& rest, std::string& out) {
  const std::string_view word = nextWord(rest, ' ');
  if (word != kNoName) out = word;
  return !word.empty();
}

bool takeCause(std::string_view& rest, LossCause& out) {
  const auto cause = lossCauseNamed(nextWord(rest, ' '));
  if (cause) out = *cause;
  return cause.has_value();
}

bool takeFlag(std::string_view& rest, bool& out) {
  const std::string_view word = nextWord(rest, ' ');
  out = word == "counted";
  return out || word == "uncounted";
}

bool takeLoss(std::string_view line, LedgerEntry& out) {
  if (!takeName(line, out.stream) || !takeCause(line, out.cause) || !takeFlag(line, out.counted) ||
      !takeNumber(line, out.count) || !takeNumber(line, out.parts) ||
      !takeNumber(line, out.number) || !takeNumber(line, out.identity) ||
      !takeNumber(line, out.first.position) || !takeNumber(line, out.last.position) ||
      !takeNumber(line, out.first.wallMs) || !takeNumber(line, out.last.wallMs))
    return false;
  if (line != kNoName) out.log = line;
  return !line.empty() && line.size() <= kLongestLogName && out.parts > 0;
}

std::string lossLine(const LedgerEntry& entry) {
  std::string line = "loss ";
  line += entry.stream.empty() ? kNoName : std::string_view(entry.stream);
  (line += ' ') += nameOf(entry.cause);
  line += entry.counted ? " counted" : " uncounted";
  for (const uint64_t number : {entry.count, uint64_t{entry.parts}, entry.number, entry.identity,
                                entry.first.position, entry.last.position})
    (line += ' ') += std::to_string(number);
  for (const int64_t ms : {entry.first.wallMs, entry.last.wallMs})
    (line += ' ') += std::to_string(ms);
  line += ' ';
  line += entry.log.empty() ? kNoName : std::string_view(entry.log);
  return line + "\n";
}

bool sameKind(const LedgerEntry& a, const LedgerEntry& b) {
  return a.stream == b.stream && a.cause == b.cause && a.counted == b.counted;
}

bool sameLog(const LedgerEntry& a, const LedgerEntry& b) {
  return sameKind(a, b) && a.log == b.log && a.identity == b.identity;
}

void addTo(LedgerEntry& older, const LedgerEntry& newer) {
  if (!sameLog(older, newer)) {
    older.log.clear();
    older.identity = 0;
  }
  const bool oneLog = !older.log.empty();
  older.count += newer.count;
  older.parts += newer.parts;
  older.first.position = oneLog ? std::min(older.first.position, newer.first.position) : 0;
  older.last.position = oneLog ? std::max(older.last.position, newer.last.position) : 0;
  // The clock may have been set back in between.
  older.first.wallMs = std::min(older.first.wallMs, newer.first.wallMs);
  older.last.wallMs = std::max(older.last.wallMs, newer.last.wallMs);
}

// Merges the oldest pair that belongs together; false when there is none.
bool mergePair(std::vector<LedgerEntry>& all,
               bool (*belong)(const LedgerEntry&, const LedgerEntry&)) {
  for (auto older = all.begin(); older != all.end(); ++older) {
    const auto newer = std::find_if(std::next(older), all.end(), [&](const LedgerEntry& entry) {
      return entry.number == older->number && belong(*older, entry);
    });
    if (newer == all.end()) continue;
    addTo(*older, *newer);
    all.erase(newer);
    return true;
  }
  return false;
}

}  // namespace

std::string sealedLedger(std::string text) {
  text.resize(std::min(text.rfind("end "), text.size()));
  return text + lastLine(text);
}

std::string ledgerText(const LedgerContent& content) {
  std::string text(kFirstLine);
  text += "generation " + std::to_string(content.generation) + "\n";
  for (const LedgerStream& stream : content.streams)
    text += "stream " + std::to_string(stream.number) + " " + stream.name + "\n";
  for (const LedgerEntry& entry : content.entries) text += lossLine(entry);
  return text + lastLine(text);
}

const char* parseLedger(std::string_view slot, LedgerContent& out) {
  out = {};
  slot = slot.substr(0, slot.find('\0'));
  if (!slot.starts_with(kFirstLine)) return "its first line is not a ledger's";
  const size_t end = slot.rfind("end ");
  if (end == std::string_view::npos || slot.substr(end) != lastLine(slot.substr(0, end)))
    return "it is truncated or modified";
  std::string_view rest = slot.substr(kFirstLine.size(), end - kFirstLine.size());
  while (!rest.empty()) {
    std::string_view line = nextWord(rest, '\n');
    const std::string_view kind = nextWord(line, ' ');
    if (kind == "generation") {
      if (!takeNumber(line, out.generation)) return "its generation is not a number";
    } else if (kind == "stream") {
      LedgerStream& stream = out.streams.emplace_back();
      if (!takeNumber(line, stream.number) || stream.number > kMostSettlements || line.empty())
        return "a stream is malformed";
      stream.name = line;
    } else if (kind == "loss") {
      if (!takeLoss(line, out.entries.emplace_back())) return "a loss is malformed";
    } else {
      return "a line is of unknown kind";
    }
  }
  if (out.entries.size() > kMaxLedgerEntries || out.streams.size() > kMaxLedgerStreams)
    return "it has too many lines";
  return nullptr;
}

std::string ledgerLogName(std::string_view name) {
  constexpr std::string_view kCut = "...";
  std::string text(name);
  if (text.size() > kLongestLogName) {
    size_t from = text.size() - (kLongestLogName - kCut.size());
    while (from < text.size() && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80) ++from;
    text = std::string(kCut) + text.substr(from);
  }
  for (char& c : text)
    if (static_cast<unsigned char>(c) < ' ') c = '?';
  return text == kNoName ? "?" : text;
}

void mergeEntries(std::vector<LedgerEntry>& all, size_t entries) {
  while (all.size() > entries && (mergePair(all, sameLog) || mergePair(all, sameKind))) {
  }
}

}  // namespace korvane
