#include "agentctl/json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>
#include <string_view>

namespace korvane::agentctl {
namespace {

using namespace std::string_view_literals;

constexpr std::array kNumbers = {
    "type"sv,         "uptimeSeconds"sv, "pid"sv,     "code"sv,         "stateCode"sv,
    "errorCode"sv,    "offset"sv,        "read"sv,    "forwarded"sv,    "folded"sv,
    "rejected"sv,     "retried"sv,       "dropped"sv, "backlogBytes"sv, "backlogRecords"sv,
    "milliseconds"sv, "delivered"sv,     "waiting"sv, "ledgered"sv,     "uncounted"sv,
    "count"sv,        "parts"sv,         "lines"sv,   "entries"sv,      "firstPosition"sv,
    "lastPosition"sv};
constexpr std::array kTruths = {
    "shuttingDown"sv,   "registered"sv, "builtIn"sv,  "recordsExact"sv, "trace"sv,
    "running"sv,        "requested"sv,  "ok"sv,       "started"sv,      "prevention"sv,
    "rebootRequired"sv, "answered"sv,   "readable"sv, "counted"sv,      "closed"sv};
constexpr std::array kLists = {"logs"sv,     "lastErrors"sv, "stages"sv, "certificates"sv,
                               "accounts"sv, "totals"sv,     "entries"sv};

bool isOneOf(const auto& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

Json leaf(std::string_view name, const std::string& value) {
  if (isOneOf(kLists, name) && value.empty()) return Json::array();
  if (isOneOf(kTruths, name) && (value == "true" || value == "false")) return value == "true";
  int64_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  const bool whole = error == std::errc() && end == value.data() + value.size();
  if (whole && isOneOf(kNumbers, name)) return number;
  return value;
}

template <class Leaf>
Json converted(const JsonTree& tree, std::string_view name, const Leaf& leafOf) {
  if (tree.empty()) return leafOf(name, tree.data());
  const bool list =
      std::all_of(tree.begin(), tree.end(), [](const auto& child) { return child.first.empty(); });
  Json out = list ? Json::array() : Json::object();
  for (const auto& [key, child] : tree) {
    if (list)
      out.push_back(converted(child, {}, leafOf));
    else
      out[key] = converted(child, key, leafOf);
  }
  return out;
}

}  // namespace

Json asAnswered(const JsonTree& tree) {
  return converted(tree, {},
                   [](std::string_view, const std::string& value) { return Json(value); });
}

Json typed(const JsonTree& tree) {
  return converted(tree, {}, leaf);
}

std::string text(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace korvane::agentctl
