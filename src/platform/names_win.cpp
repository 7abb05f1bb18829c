#include <windows.h>

#include "platform/names.h"

namespace korvane::platform {
namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t));

const wchar_t* wideOf(std::u16string_view text) {
  return text.empty() ? L"" : reinterpret_cast<const wchar_t*>(text.data());
}

}  // namespace

int compareNames(std::u16string_view one, std::u16string_view other) {
  return ::CompareStringOrdinal(wideOf(one), static_cast<int>(one.size()), wideOf(other),
                                static_cast<int>(other.size()), TRUE) -
         CSTR_EQUAL;
}

}  // namespace korvane::platform
