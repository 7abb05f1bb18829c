#include "discovery/delivery_state.h"

#include <array>
#include <charconv>
#include <limits>

#include "config/ini_text.h"
#include "util/sha256.h"
#include "util/utf8.h"

namespace korvane {
namespace {

constexpr std::string_view kStateBegins = "korvane-application-data 1\n";
constexpr std::string_view kStateEnds = "end ";
constexpr std::array<const char*, 3> kOutcomes = {"data", "unchanged", "error"};

// Calls `each` with the name and the member of every line, in their order.
template <class State, class Each>
bool forEachLine(State& state, Each each) {
  return each("request", state.request) && each("outcome", state.outcome) &&
         each("error", state.error) && each("complete", state.complete) &&
         each("rows", state.rows) && each("skipped", state.skipped) &&
         each("applications", state.applicationsChecksum) && each("files", state.filesChecksum) &&
         each("size", state.size) && each("sha256", state.sha256) && each("sent", state.sent) &&
         each("delivered", state.delivered);
}

struct Writer {
  std::string text{kStateBegins};

  bool line(std::string_view name, std::string_view value) {
    text.append(name).append("=").append(value).append("\n");
    return true;
  }
  bool operator()(std::string_view name, const STRING& value) {
    return line(name, oneLine(value).toUtf8());
  }
  bool operator()(std::string_view name, const std::string& value) { return line(name, value); }
  bool operator()(std::string_view name, uint64_t value) {
    return line(name, std::to_string(value));
  }
  bool operator()(std::string_view name, bool value) { return line(name, value ? "1" : "0"); }
  bool operator()(std::string_view name, DeliveryState::Outcome value) {
    return line(name, nameOf(value));
  }
};

struct Reader {
  std::string_view rest;

  bool line(std::string_view name, std::string_view& value) {
    const size_t end = rest.find('\n');
    if (end == std::string_view::npos || !rest.starts_with(name) || rest[name.size()] != '=')
      return false;
    value = rest.substr(name.size() + 1, end - name.size() - 1);
    rest.remove_prefix(end + 1);
    return true;
  }
  bool operator()(std::string_view name, std::string& value) {
    std::string_view text;
    if (!line(name, text) || !isValidUtf8(text)) return false;
    value = text;
    return true;
  }
  bool operator()(std::string_view name, STRING& value) {
    std::string text;
    if (!(*this)(name, text)) return false;
    value = STRING(text);
    return oneLine(value) == value;
  }
  bool operator()(std::string_view name, uint64_t& value) {
    std::string_view text;
    if (!line(name, text) || text.empty()) return false;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() &&
           value <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  }
  bool operator()(std::string_view name, bool& value) {
    std::string_view text;
    if (!line(name, text)) return false;
    value = text == "1";
    return value || text == "0";
  }
  bool operator()(std::string_view name, DeliveryState::Outcome& value) {
    std::string_view text;
    if (!line(name, text)) return false;
    for (size_t i = 0; i < kOutcomes.size(); ++i) {
      value = static_cast<DeliveryState::Outcome>(i);
      if (text == kOutcomes[i]) return true;
    }
    return false;
  }
};

}  // namespace

const char* nameOf(DeliveryState::Outcome outcome) {
  return kOutcomes[static_cast<size_t>(outcome)];
}

std::string deliveryStateText(const DeliveryState& state) {
  Writer writer;
  forEachLine(state, [&](std::string_view name, const auto& value) { return writer(name, value); });
  return writer.text + std::string(kStateEnds) + sha256Hex(writer.text) + "\n";
}

bool parseDeliveryState(std::string_view text, DeliveryState& out) {
  if (!text.starts_with(kStateBegins)) return false;
  DeliveryState state;
  Reader reader{text.substr(kStateBegins.size())};
  if (!forEachLine(state, [&](std::string_view name, auto& value) { return reader(name, value); }))
    return false;
  const std::string_view content = text.substr(0, text.size() - reader.rest.size());
  if (reader.rest != std::string(kStateEnds) + sha256Hex(content) + "\n") return false;
  const bool hasData = state.outcome == DeliveryState::Outcome::data;
  if (state.request.empty() || state.sent > state.size || hasData != (state.size > 0)) return false;
  out = std::move(state);
  return true;
}

}  // namespace korvane
