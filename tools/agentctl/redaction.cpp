#include "agentctl/redaction.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "agentctl/own_log.h"
#include "config/masking.h"

namespace korvane::agentctl {
namespace {

constexpr char kWithheld[] = "(withheld: quotes data the agent reads)";
constexpr size_t kShortestWord = 4;
constexpr int kLineSkipped = 10551;

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool isHex(char c) {
  return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

// The length of an identifier at the beginning of a text: 32 hexadecimal digits, with dashes where
// a GUID has them or without any; 0 for anything else.
size_t identifierLength(std::string_view text) {
  for (const std::string_view form : {std::string_view("########-####-####-####-############"),
                                      std::string_view("################################")}) {
    bool fits =
        text.size() >= form.size() && (text.size() == form.size() || !isHex(text[form.size()]));
    for (size_t i = 0; fits && i < form.size(); ++i)
      fits = form[i] == '#' ? isHex(text[i]) : text[i] == '-';
    if (fits) return form.size();
  }
  return 0;
}

std::string withoutIdentifiers(std::string_view text) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    const bool begins = at == 0 || !isHex(text[at - 1]);
    const size_t length = begins ? identifierLength(text.substr(at)) : 0;
    out += length == 0 ? std::string(1, text[at])
                       : maskedIdentifier(std::string(text.substr(at, length)));
    at += std::max<size_t>(length, 1);
  }
  return out;
}

// What follows "...password=", "token: " and their like.
std::string withoutSecretValues(std::string text) {
  for (const char* word : {"password", "passwd", "secret", "token", "credential", "private"}) {
    std::string folded = lower(text);
    for (size_t at = 0; (at = folded.find(word, at)) != std::string::npos;) {
      at = std::min(folded.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789._-", at),
                    folded.size());
      const size_t sign = folded.find_first_not_of("\" ", at);
      if (sign == std::string::npos || (folded[sign] != '=' && folded[sign] != ':')) continue;
      const size_t begin = std::min(folded.find_first_not_of("\" ", sign + 1), folded.size());
      const size_t end = std::min(folded.find_first_of("\r\n\"", begin), folded.size());
      if (end == begin || folded[begin] == '\n' || folded[begin] == '\r') continue;
      text.replace(begin, end - begin, kMask);
      folded.replace(begin, end - begin, kMask);
      at = begin;
    }
  }
  return text;
}

void replaceAll(std::string& text, const std::string& what, const std::string& by) {
  const std::string folded = lower(what);
  std::string haystack = lower(text);
  for (size_t at = 0; (at = haystack.find(folded, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
    haystack.replace(at, what.size(), by);
  }
}

std::string percentDecoded(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool coded =
        text[i] == '%' && i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2]);
    out += coded ? static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16))
                 : text[i];
    if (coded) i += 2;
  }
  return out;
}

bool quotesEvents(std::string_view source, int number) {
  return source.starts_with("FixedFormatLog") || number == kLineSkipped;
}

// Trace lines with values of this machine's environment and registry, and with what servers
// and files hold.
bool quotesMachine(const LogRecord& record) {
  return record.isTrace() && (record.text.find("changed from") != std::string::npos ||
                              record.source.find("GetLogRules") != std::string::npos);
}

}  // namespace

Redactor::Redactor(const std::vector<std::string>& identifiers,
                   const std::vector<std::string>& urls) {
  for (const std::string& identifier : identifiers)
    if (identifier.size() >= kShortestWord) _identifiers.push_back(identifier);
  for (const std::string& url : urls) {
    const size_t at = url.rfind('@');
    if (at == std::string::npos) continue;
    const size_t scheme = url.find("://");
    const size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
    if (begin >= at) continue;
    const std::string user = url.substr(begin, at - begin);
    const size_t colon = user.find(':');
    for (const std::string& word :
         {user.substr(0, colon), colon == std::string::npos ? "" : user.substr(colon + 1)})
      for (const std::string& form : {word, percentDecoded(word)})
        if (form.size() >= kShortestWord) _words.push_back(form);
  }
}

std::string Redactor::text(std::string_view given) const {
  std::string out = withoutUsers(given);
  for (const std::string& word : _words) replaceAll(out, word, kMask);
  for (const std::string& identifier : _identifiers)
    replaceAll(out, identifier, maskedIdentifier(identifier));
  return withoutSecretValues(withoutIdentifiers(out));
}

Json Redactor::document(const Json& json) const {
  if (json.is_string()) return text(json.get<std::string>());
  if (!json.is_structured()) return json;
  Json out = json.is_array() ? Json::array() : Json::object();
  for (const auto& [key, value] : json.items()) {
    if (json.is_array())
      out.push_back(document(value));
    else
      out[key] = document(value);
  }
  const bool isComplaint = out.is_object() && out.contains("source") && out.contains("text") &&
                           out["source"].is_string();
  if (isComplaint && quotesEvents(out["source"].get<std::string>(), out.value("code", 0)))
    out["text"] = kWithheld;
  return out;
}

std::string Redactor::log(std::string_view lines) const {
  std::string out;
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    LogRecord record;
    if (!parseRecord(lines.substr(0, end), record))
      out += kWithheld;
    else if (quotesEvents(record.source, record.number) || quotesMachine(record))
      out += text(record.type + "," + std::to_string(record.sequence) + "," + record.at + "," +
                  std::to_string(record.number) + "," + record.source) +
             ",,," + kWithheld;
    else
      out += text(lines.substr(0, end));
    out += '\n';
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return out;
}

}  // namespace korvane::agentctl
