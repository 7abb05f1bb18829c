#include "tools/server/request_rules.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <functional>
#include <span>

#include "tools/server/assignments.h"

namespace korvane::server {

namespace {

using Names = std::span<const std::string_view>;

constexpr std::array<std::string_view, 4> kHeaderOrder = {"Korvane-Format-Version", "Content-Type",
                                                          "Korvane-Charset", "Korvane-GUID"};
constexpr size_t kGuidHeader = 3;

constexpr std::array<std::string_view, 5> kOrdinaryKinds = {"update.configuration", "update.policy",
                                                            "update.software", "update.policy.ids",
                                                            "update.configuration.ids"};
constexpr std::array<std::string_view, 4> kContentKinds = {
    "update.qel", "update.ferrolyn.revocation", "update.ferrolyn.settings",
    "update.ferrolyn.vexvt"};
constexpr std::array<std::string_view, 10> kStatusNames = {
    "result.type",       "result.errorcode", "result.errormessage", "rid.applied",
    "rid.group",         "policy.name",      "policy.path",         "agent.timezone",
    "agent.domain.name", "agent.osversion"};
constexpr size_t kPolicyStateNames = 7;
constexpr std::array<std::string_view, 3> kResultNames = {"result.type", "result.errorcode",
                                                          "result.errormessage"};
constexpr std::array<std::string_view, 3> kApplicationNames = {
    "result.type", "application.requestID", "application.request.complete"};
// What follows these, by the outcome; an error may follow each.
constexpr std::string_view kOutcomeName = "application.data.outcome";
constexpr std::array<std::string_view, 8> kDataNames = {"application.data.size",
                                                        "application.data.offset",
                                                        "application.data.sha256",
                                                        "application.data.rows",
                                                        "application.data.skipped",
                                                        "application.data.complete",
                                                        "application.data.applications.checksum",
                                                        "application.data.files.checksum"};
constexpr size_t kDigestName = 2;  // the third of them; the others of the first five are numbers
constexpr size_t kNumberNames = 5;
constexpr size_t kChecksumNames = 2;  // the last of them, of an unchanged inventory too
constexpr std::string_view kErrorName = "application.data.error";
constexpr size_t kDigestDigits = 64;
constexpr std::string_view kFileName[] = {"file.name"};

// The order of a record's names; "v18" to "v49" follow.
constexpr std::array<std::string_view, 23> kRecordOrder = {
    "v2",  "v3",  "v1",  "v4",  "v5",  "v6", "v7", "v8", "v9", "v10", "v11", "v12",
    "v13", "v14", "v15", "v16", "v17", "a1", "a2", "a3", "a4", "a5",  "a6"};
constexpr int kLastField = 49;

constexpr size_t kShownBytes = 64;

std::string inQuotes(std::string_view text) {
  return "\"" + std::string(text.substr(0, kShownBytes)) + "\"";
}

bool sameName(std::string_view a, std::string_view b) {
  return std::ranges::equal(
      a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

bool isNumber(std::string_view text, int64_t lowest) {
  int64_t number = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), number);
  return status == std::errc() && end == text.data() + text.size() && number >= lowest;
}

bool isBinary(const WireSection& section) {
  return section.format == "binary/zip" && section.name == "policy";
}

// One section of a request, for texts.
std::string sectionText(size_t index, const WireSection& section) {
  return "section " + std::to_string(index + 1) + " (" + std::string(section.format.substr(0, 32)) +
         " " + inQuotes(section.name) + ")";
}

// The names are exactly these, in this order.
std::string checkNames(const WireProperties& properties, Names wanted) {
  for (size_t i = 0; i < std::max(properties.size(), wanted.size()); ++i) {
    if (i == properties.size()) return "the property " + inQuotes(wanted[i]) + " is missing";
    if (i == wanted.size())
      return "the property " + inQuotes(properties[i].first) + " is one too many";
    if (properties[i].first != wanted[i])
      return "property " + std::to_string(i + 1) + " is " + inQuotes(properties[i].first) +
             ", not " + inQuotes(wanted[i]);
  }
  return {};
}

// The names begin with these, in this order.
std::string checkFirstNames(const WireProperties& properties, Names wanted) {
  const size_t count = std::min(properties.size(), wanted.size());
  return checkNames({properties.begin(), properties.begin() + static_cast<ptrdiff_t>(count)},
                    wanted);
}

std::string checkNoneTwice(const WireProperties& properties, std::string_view butThis = {}) {
  for (size_t i = 0; i < properties.size(); ++i) {
    const std::string& name = properties[i].first;
    if (name == butThis) continue;
    if (std::ranges::find(properties.begin() + static_cast<ptrdiff_t>(i) + 1, properties.end(),
                          name, &WireProperty::first) != properties.end())
      return "the property " + inQuotes(name) + " occurs twice";
  }
  return {};
}

int placeOf(std::string_view recordName) {
  const auto found = std::ranges::find(kRecordOrder, recordName);
  if (found != kRecordOrder.end()) return static_cast<int>(found - kRecordOrder.begin());
  int field = 0;
  if (recordName.size() != 3 || recordName[0] != 'v' || !isNumber(recordName.substr(1), 18))
    return -1;
  std::from_chars(recordName.data() + 1, recordName.data() + 3, field);
  return field > kLastField ? -1 : static_cast<int>(kRecordOrder.size()) + field;
}

std::string checkRecord(const WireProperties& record) {
  int last = -1;
  for (const auto& [name, value] : record) {
    const int place = placeOf(name);
    if (place < 0) return inQuotes(name) + " is not the name of a record's value";
    if (place <= last) return inQuotes(name) + " is out of its order";
    if (value.empty()) return inQuotes(name) + " is empty; empty values are left out";
    last = place;
  }
  const std::string type = propertyOf(record, "v1"), count = propertyOf(record, "a5");
  if (type.size() != 4 || std::string_view("TDPMA").find(type[0]) == std::string_view::npos)
    return "the event type is " + inQuotes(type);
  if (!count.empty() && !isNumber(count, 1)) return "\"a5\" is " + inQuotes(count);
  return {};
}

std::string checkLog(const std::vector<WireSection>& sections) {
  if (sections.empty()) return "no record";
  for (size_t i = 0; i < sections.size(); ++i) {
    if (!sections[i].isProperties()) return sectionText(i, sections[i]) + " is not a record";
    const std::string fault = checkRecord(readProperties(sections[i].payload));
    if (!fault.empty()) return "record " + std::to_string(i + 1) + ": " + fault;
  }
  return {};
}

// Two or three properties sections, then at most two binary ones.
std::string checkRegistration(const std::vector<WireSection>& sections) {
  size_t groups = 0;
  while (groups < sections.size() && sections[groups].isProperties()) ++groups;
  if (groups < 2 || groups > 3)
    return std::to_string(groups) +
           " leading properties sections; attributes, configuration and, with an "
           "IDS component, its settings are wanted";
  for (size_t i = groups; i < sections.size(); ++i) {
    if (!isBinary(sections[i]) || i - groups >= 2)
      return sectionText(i, sections[i]) + " does not belong in a registration";
  }
  for (size_t i = 0; i < groups; ++i) {
    const std::string fault = checkNoneTwice(readProperties(sections[i].payload), "idslogrules");
    if (!fault.empty()) return sectionText(i, sections[i]) + ": " + fault;
  }
  return {};
}

// Ordinary kinds in their order and then attributes, or all the kinds of content and nothing else.
std::string checkUpdate(const WireProperties& asked) {
  const bool content = !asked.empty() && asked[0].first == kContentKinds[0];
  if (content) {
    const std::string fault = checkNames(asked, kContentKinds);
    if (!fault.empty()) return fault;
  }
  const Names known = content ? Names(kContentKinds) : Names(kOrdinaryKinds);
  bool attributes = false;
  auto next = known.begin();
  for (const auto& [name, value] : asked) {
    if (!name.starts_with("update.")) {
      attributes = true;
      continue;
    }
    next = std::ranges::find(next, known.end(), name);
    if (attributes || next == known.end())
      return inQuotes(name) + " is unknown or out of its order";
    if (value != "true") return inQuotes(name) + " is " + inQuotes(value) + ", not \"true\"";
    ++next;
  }
  if (next == known.begin()) return "no update is requested";
  return checkNoneTwice(asked);
}

// The sizes and places of a piece agree with each other and with what it says of itself.
std::string checkPiece(const WireProperties& properties, std::string_view piece) {
  std::array<uint64_t, kNumberNames> numbers{};
  for (size_t i = 0; i < kNumberNames; ++i) {
    const std::string text = propertyOf(properties, kDataNames[i]);
    const bool digest = text.size() == kDigestDigits &&
                        text.find_first_not_of("0123456789abcdef") == std::string::npos;
    if (i == kDigestName ? !digest : !isNumber(text, 0))
      return inQuotes(kDataNames[i]) + " is " + inQuotes(text);
    if (i != kDigestName) std::from_chars(text.data(), text.data() + text.size(), numbers[i]);
  }
  const uint64_t size = numbers[0], offset = numbers[1];
  if (piece.empty()) return "the piece is missing";
  if (offset > size || piece.size() > size - offset)
    return "the piece ends behind the " + std::to_string(size) + " bytes of the archive";
  const bool last = offset + piece.size() == size;
  return last == (properties[2].second == "true")
             ? ""
             : "\"application.request.complete\" does not agree with the piece's place";
}

std::string checkApplicationData(const WireProperties& properties, std::string_view piece) {
  std::vector<std::string_view> wanted(kApplicationNames.begin(), kApplicationNames.end());
  const std::string outcome = propertyOf(properties, kOutcomeName);
  const bool tells = properties.size() > wanted.size();
  if (tells) wanted.push_back(kOutcomeName);
  const size_t skipped = outcome == "data"        ? 0
                         : outcome == "unchanged" ? kDataNames.size() - kChecksumNames
                                                  : kDataNames.size();
  std::copy(kDataNames.begin() + skipped, kDataNames.end(), std::back_inserter(wanted));
  if (outcome == "error" || (tells && properties.back().first == kErrorName))
    wanted.push_back(kErrorName);
  std::string fault = checkNames(properties, wanted);
  if (!fault.empty()) return fault;
  const std::string& complete = properties[2].second;
  if (properties[1].second.empty()) return "\"application.requestID\" is empty";
  if (complete != "true" && complete != "false")
    return "\"application.request.complete\" is " + inQuotes(complete);
  if (!tells) return {};
  if (outcome == "data") return checkPiece(properties, piece);
  if (outcome != "unchanged" && outcome != "error")
    return inQuotes(kOutcomeName) + " is " + inQuotes(outcome);
  return piece.empty() && complete == "true" ? "" : "there is more of the outcome " + outcome;
}

// "ledger.accounts" and so many "ledger.account.N", then the same of entries.
std::string checkLedger(const WireProperties& properties) {
  size_t next = 0;
  for (const auto& [many, one] : {std::pair("ledger.accounts", "ledger.account."),
                                  std::pair("ledger.entries", "ledger.entry.")}) {
    if (next == properties.size()) return std::string("the property \"") + many + "\" is missing";
    const std::string& count = properties[next].second;
    if (!properties[next].first.starts_with("ledger."))
      return inQuotes(properties[next].first) + " is one too many";
    if (properties[next].first != many || !isNumber(count, 0) || count.size() > 3)
      return inQuotes(properties[next].first) + " is not the number of \"" + many + "\"";
    ++next;
    for (int i = 1; i <= std::stoi(count); ++i, ++next)
      if (next == properties.size() || properties[next].first != one + std::to_string(i))
        return "the property \"" + (one + std::to_string(i)) + "\" is missing";
  }
  return next == properties.size() ? std::string()
                                   : inQuotes(properties[next].first) + " is one too many";
}

std::string checkStatus(const WireProperties& properties) {
  if (properties.size() <= kStatusNames.size()) return checkNames(properties, kStatusNames);
  const auto first = properties.begin() + static_cast<ptrdiff_t>(kStatusNames.size());
  const std::string fault = checkNames({properties.begin(), first}, kStatusNames);
  return fault.empty() ? checkLedger({first, properties.end()}) : fault;
}

std::string checkOutcome(const WireProperties& properties, std::string_view type) {
  const UpdateKind* kind = findUpdateKind(type);
  if (kind == nullptr || kind->resultType != type) return "the unknown type " + inQuotes(type);
  if (!isNumber(propertyOf(properties, "result.errorcode"), INT32_MIN))
    return "\"result.errorcode\" is " + inQuotes(propertyOf(properties, "result.errorcode"));
  std::string fault = checkNoneTwice(properties);
  if (!fault.empty()) return fault;
  if (type == "policy") {
    const bool status = properties.size() > kPolicyStateNames;
    return status ? checkStatus(properties)
                  : checkNames(properties, Names(kStatusNames).first(kPolicyStateNames));
  }
  // The result of an installed package is what its installer left, in that order.
  return type == "software" ? std::string() : checkFirstNames(properties, kResultNames);
}

std::string checkResult(const std::vector<WireSection>& sections) {
  const WireProperties properties = readProperties(sections[0].payload);
  if (properties.empty() || properties[0].first != "result.type")
    return "the first property is not \"result.type\"";
  const bool data = properties[0].second == "app.data";
  if (sections.size() > (data ? 2u : 1u) || (sections.size() == 2 && !isBinary(sections[1])))
    return sectionText(sections.size() - 1, sections.back()) + " does not belong to a result";
  const std::string_view piece = sections.size() == 2 ? sections[1].payload : std::string_view();
  return data ? checkApplicationData(properties, piece)
              : checkOutcome(properties, properties[0].second);
}

}  // namespace

HeaderLines readHeaderLines(std::string_view head) {
  HeaderLines lines;
  for (size_t at = head.find("\r\n"); at != std::string_view::npos;) {
    const size_t start = at + 2;
    at = head.find("\r\n", start);
    const std::string_view line =
        head.substr(start, at == std::string_view::npos ? at : at - start);
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const size_t value = line.find_first_not_of(" \t", colon + 1);
    lines.emplace_back(line.substr(0, colon),
                       value == std::string_view::npos ? std::string_view() : line.substr(value));
  }
  return lines;
}

std::string checkHeaders(std::string_view word, const HeaderLines& headers) {
  const bool identified = word != "register" && word != "testConnection";
  const size_t wanted = identified ? kHeaderOrder.size() : kGuidHeader;
  size_t next = 0, lengths = 0;
  for (const auto& header : headers) {
    const std::string& name = header.first;
    lengths += sameName(name, "Content-Length");
    if (sameName(name, "Transfer-Encoding") || sameName(name, "Expect"))
      return "the header " + inQuotes(name) + " does not belong in a request";
    const auto found = std::ranges::find_if(
        kHeaderOrder, [&](std::string_view known) { return sameName(known, name); });
    if (found == kHeaderOrder.end()) continue;
    const auto place = static_cast<size_t>(found - kHeaderOrder.begin());
    if (place >= wanted)
      return "the header " + inQuotes(name) + " in a request without an identity";
    if (place != next)
      return "the header " + inQuotes(name) + (place < next ? " again or too late" : " too early");
    ++next;
  }
  if (next < wanted) return "the header " + inQuotes(kHeaderOrder[next]) + " is missing";
  if (lengths != 1) return std::to_string(lengths) + " headers \"Content-Length\"";
  return {};
}

std::string checkSections(std::string_view word, const std::vector<WireSection>& sections) {
  if (word == "testConnection")
    return sections.empty() ? std::string()
                            : sectionText(0, sections[0]) + " does not belong in it";
  if (word == "log") return checkLog(sections);
  if (word == "register") return checkRegistration(sections);
  if (word == "bulk-log") {
    if (sections.size() != 2 || !isBinary(sections[0]) || !sections[1].isProperties())
      return "it is not one binary section and one of properties";
    return checkNames(readProperties(sections[1].payload), kFileName);
  }
  if (sections.empty() || !sections[0].isProperties())
    return "the first section is not of properties";
  if (word == "result") return checkResult(sections);
  if (sections.size() > 1) return sectionText(1, sections[1]) + " does not belong in it";
  return checkUpdate(readProperties(sections[0].payload));
}

bool isStatus(std::string_view resultProperties) {
  return propertyIn(resultProperties, "result.type") == "policy" &&
         resultProperties.find("\nagent.timezone=") != std::string_view::npos;
}

}  // namespace korvane::server
