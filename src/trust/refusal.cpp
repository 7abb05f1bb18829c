#include "trust/refusal.h"

namespace korvane::trust {

std::string numeral(uint64_t number) {
  return std::to_string(number);
}

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text += part;
  return text;
}

}  // namespace korvane::trust
