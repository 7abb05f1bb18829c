#include "logs/event_category.h"

#include <cstring>

namespace korvane {
namespace {

constexpr int kAllCategories = 65535;
constexpr int kStopBit = 0x8;

struct Keyword {
  std::string_view text;
  int bits;
};

// The order and the pairing of "FILE" are fixed: it always gives both of its bits.
constexpr Keyword kKeywords[] = {
    {"MSTA", 0x1},   {"MCOM", 0x2},    {"MCON", 0x4},   {"NET", 0x10},   {"ACCESS", 0x20},
    {"SYSC", 0x40},  {"BOP", 0x80},    {"CRE", 0x100},  {"PSET", 0x200}, {"DEST", 0x400},
    {"PMNT", 0x800}, {"FILE", 0x1000}, {"FILE", 0x2000}};

bool maskPasses(int mask) {
  if (mask == 0) return true;
  if (mask < 9) return mask != 1 && mask != 2 && mask != 4 && mask != 8;
  return mask != 2048;
}

}  // namespace

int eventCategory(std::string_view type) {
  if (type == "*") return kAllCategories;
  const bool stops = type.starts_with("MSTP") || type.find(",MSTP") != std::string_view::npos;
  int mask = stops ? kStopBit : 0;
  for (const Keyword& keyword : kKeywords)
    if (type.find(keyword.text) != std::string_view::npos) mask |= keyword.bits;
  return mask;
}

bool passesForwardFilter(std::string_view type) {
  if (type.starts_with('D') || type.starts_with('M')) return false;
  return maskPasses(eventCategory(type));
}

bool ForwardFilter::passes(std::string_view type) {
  if (type.size() != sizeof(uint32_t)) return passesForwardFilter(type);
  uint32_t letters;
  std::memcpy(&letters, type.data(), sizeof letters);
  Entry& entry = _seen[(letters * 0x9E3779B1u) >> 26];
  if (entry.type != letters) entry = {letters, passesForwardFilter(type)};
  return entry.passes;
}

}  // namespace korvane
