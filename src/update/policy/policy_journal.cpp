#include "update/policy/policy_journal.h"

#include <cerrno>
#include <charconv>
#include <optional>

#include "config/ini_text.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "update/policy/policy_files.h"
#include "util/sha256.h"
#include "util/utf8.h"

namespace korvane {
namespace {

constexpr std::string_view kFirstLine = "korvane-policy-change 1\n";
constexpr std::string_view kLastLine = "end ";
constexpr char kYes[] = "1";
constexpr char kNo[] = "0";

bool isPlain(char c) {
  return static_cast<unsigned char>(c) >= 0x20 && c != 0x7F && c != '%';
}

std::string escaped(const std::string& value) {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string text;
  for (const char c : value) {
    if (isPlain(c)) {
      text += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    text += {'%', digits[byte >> 4], digits[byte & 15]};
  }
  return text;
}

std::optional<std::string> unescaped(std::string_view text) {
  std::string value;
  for (size_t at = 0; at < text.size(); ++at) {
    if (isPlain(text[at])) {
      value += text[at];
      continue;
    }
    unsigned byte = 0;
    if (text[at] != '%' || text.size() - at < 3) return std::nullopt;
    const char* const digits = text.data() + at + 1;
    if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) return std::nullopt;
    value += static_cast<char>(byte);
    at += 2;
  }
  return isValidUtf8(value) ? std::optional(std::move(value)) : std::nullopt;
}

// Calls `each` with the name and the member of every line, in their order.
template <class Journal, class Each>
bool forEachLine(Journal& journal, Each each) {
  return each("new.plus", journal.newPlusFile) && each("plus", journal.plusFile) &&
         each("path", journal.path) && each("version", journal.version) && each("id", journal.id) &&
         each("builtin", journal.useBuiltIn) && each("driver.filter", journal.driver.filterFile) &&
         each("driver.builtin", journal.driver.builtIn) && each("had.minus", journal.hadMinus) &&
         each("had.items", journal.hadItems);
}

struct Writer {
  std::string text{kFirstLine};

  bool operator()(std::string_view name, const STRING& value) {
    text.append(name).append("=").append(escaped(value.toUtf8())).append("\n");
    return true;
  }
  bool operator()(std::string_view name, bool value) {
    text.append(name).append("=").append(value ? kYes : kNo).append("\n");
    return true;
  }
};

struct Reader {
  std::string_view rest;

  bool operator()(std::string_view name, STRING& value) {
    const std::optional<std::string> text = line(name);
    if (text) value = STRING(*text);
    return text.has_value();
  }
  bool operator()(std::string_view name, bool& value) {
    const std::optional<std::string> text = line(name);
    value = text == kYes;
    return value || text == kNo;
  }

 private:
  std::optional<std::string> line(std::string_view name) {
    const size_t end = rest.find('\n');
    if (end == std::string_view::npos || !rest.starts_with(name) || rest[name.size()] != '=')
      return std::nullopt;
    const std::string_view text = rest.substr(0, end).substr(name.size() + 1);
    rest.remove_prefix(end + 1);
    return unescaped(text);
  }
};

}  // namespace

std::string policyJournalText(const PolicyJournal& journal) {
  Writer writer;
  forEachLine(journal,
              [&](std::string_view name, const auto& value) { return writer(name, value); });
  return writer.text + std::string(kLastLine) + sha256Hex(writer.text) + "\n";
}

bool parsePolicyJournal(std::string_view text, PolicyJournal& out) {
  if (!text.starts_with(kFirstLine)) return false;
  PolicyJournal journal;
  Reader reader{text.substr(kFirstLine.size())};
  if (!forEachLine(journal,
                   [&](std::string_view name, auto& value) { return reader(name, value); }))
    return false;
  const std::string_view content = text.substr(0, text.size() - reader.rest.size());
  if (reader.rest != std::string(kLastLine) + sha256Hex(content) + "\n") return false;
  out = journal;
  return true;
}

std::string policyJournalPath(const platform::Files& files) {
  return platform::joinPath(files, {driverDirectory(files), "policy.journal"});
}

int readPolicyJournal(platform::Files& files, PolicyJournal& out) {
  std::string text;
  const int error =
      platform::readWholeFile(files, policyJournalPath(files), kMaxJournalBytes, text);
  if (error == EFBIG) return EBADMSG;
  if (error != 0) return error;
  return parsePolicyJournal(text, out) ? 0 : EBADMSG;
}

int writePolicyJournal(platform::Files& files, const PolicyJournal& journal) {
  return platform::writeFileAtomically(files, policyJournalPath(files), policyJournalText(journal));
}

int removePolicyJournal(platform::Files& files) {
  const int error = files.remove(policyJournalPath(files));
  if (error != 0 && error != ENOENT) return error;
  return files.flushDirectory(driverDirectory(files));
}

}  // namespace korvane
