// Turns a source policy into the translated policy and its items: what the stand-in for the
// translator does. docs/file-formats.md has the lines of both.
//
// Lifetime: refers to the machine and the earlier items, which must outlive it. One thread, one
// translation an object. Texts are UTF-8.
// Errors: Translation::problem, with the line of the source.
//
//   const Translation made = SourcePolicy(machine, previousItems, Target::driver).translate(source);
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "translate-stand-in/source_archive.h"
#include "update/policy/machine_state.h"
#include "update/policy/retrans_items.h"

namespace korvane::translate_stand_in {

enum class Target { driver, ids };

// What a source asks of the program in place of, or besides, a translation.
struct Trouble {
  enum class Kind {
    none,
    fail,
    failEmpty,
    failSilent,
    crash,
    hang,
    noOutput,
    noItems,
    damagedItems
  };
  Kind kind = Kind::none;
  int code = 0;
  std::string text;
};

struct Translation {
  std::string policy;
  RetransItems items;
  Trouble trouble;
  std::string problem;  // empty: there is a translation
};

class SourcePolicy {
 public:
  SourcePolicy(MachineState& machine, const RetransItems& previous, Target target)
      : _machine(machine), _previous(previous), _target(target) {}

  Translation translate(const Source& source);

 private:
  // Where a line of the translation comes from.
  struct Origin {
    const std::string* entry = nullptr;  // an application's, or null
    size_t line = 0;
  };

  void parseText(std::string_view text);
  void addApplication(const ApplicationPart& part);
  bool parseLine(std::string_view line);
  bool parseDirective(std::string_view directive);
  bool parseRule(std::string_view rule);
  bool parseConditionalRule(std::string_view line);
  // Sets the text that a reference stands for; false when the reference itself is malformed.
  // Nothing is set for what has no value.
  bool resolve(std::string_view reference, std::optional<std::string>& text);
  // The line with its references resolved, once for every address, or not at all.
  bool expand(std::string_view line, std::vector<std::string>& out);
  const RetransItem& itemFor(RetransItem item);
  std::string lastKnown(const RetransItem& item) const;
  void put(std::string_view line);
  bool fail(const std::string& reason);
  void check();

  MachineState& _machine;
  const RetransItems& _previous;
  const Target _target;
  Translation _made;
  std::string _idsAnswer;
  Origin _at;
  std::vector<Origin> _origins;  // of each line of the translation
};

}  // namespace korvane::translate_stand_in
