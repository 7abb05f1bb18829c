// The zip archive that a source policy comes in. Thread-safe; no state.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace korvane::translate_stand_in {

inline constexpr char kPolicyEntry[] = "policy.txt";

// An archive with `text` as its one entry. Equal texts give equal archives.
std::string packPolicy(std::string_view text);

// What the archive of a single application's policy adds to it, as applications/NAME/policy.txt.
struct ApplicationPart {
  std::string entry;
  std::string text;
};

struct Source {
  std::string text;
  std::vector<ApplicationPart> applications;  // by name
};

// False and the reason when the archive cannot be used. name: what the reason calls it.
bool unpackPolicy(const std::string& name, std::string_view archive, Source& source,
                  std::string& reason);

}  // namespace korvane::translate_stand_in
