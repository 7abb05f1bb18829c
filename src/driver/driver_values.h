// Names and values of the driver's registry settings, and the reading of text fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "util/string.h"

namespace korvane {

inline constexpr char kDriverParametersKey[] =
    "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";
inline constexpr char kLogFileValue[] = "Log File";
inline constexpr char kProfileFileValue[] = "Profile File";
inline constexpr char kFilterFileValue[] = "Filter File";
inline constexpr char kUseBuiltinValue[] = "UseBuiltin";
inline constexpr char kEnableValue[] = "Enable";
inline constexpr char kPolicyEffectiveDtValue[] = "PolicyEffectiveDt";

inline constexpr char16_t kFlagOn[] = u"1";
inline constexpr char16_t kFlagOff[] = u"0";
inline bool isOn(const STRING& flag) {
  return !flag.empty() && flag != STRING(kFlagOff);
}

inline constexpr uint32_t kUseBuiltInTimeoutMs = 1000;

// The UTF-16LE text in a field of that many bytes, up to its terminator or the field's end.
inline STRING textField(const char* bytes, size_t size) {
  std::u16string text;
  for (size_t i = 0; i + 1 < size; i += 2) {
    const auto low = static_cast<unsigned char>(bytes[i]);
    const auto high = static_cast<unsigned char>(bytes[i + 1]);
    if (low == 0 && high == 0) break;
    text += static_cast<char16_t>(low | high << 8);
  }
  return STRING(text);
}

}  // namespace korvane
