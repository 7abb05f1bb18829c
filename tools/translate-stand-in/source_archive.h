// The zip archive that a source policy comes in. Thread-safe; no state.
#pragma once

#include <string>
#include <string_view>

namespace korvane::translate_stand_in {

inline constexpr char kPolicyEntry[] = "policy.txt";

// An archive with `text` as its one entry. Equal texts give equal archives.
std::string packPolicy(std::string_view text);

// False and the reason when the archive cannot be used. name: what the reason calls it.
bool unpackPolicy(const std::string& name, std::string_view archive, std::string& text,
                  std::string& reason);

}  // namespace korvane::translate_stand_in
