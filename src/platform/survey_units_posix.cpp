#include <fcntl.h>

#include <cerrno>
#include <set>

#include "platform/paths.h"
#include "platform/reading_posix.h"
#include "platform/survey_posix.h"

namespace korvane::platform {
namespace {

constexpr size_t kMostUnits = 20000;
constexpr char kSuffix[] = ".service";

using Names = std::set<std::string, std::less<>>;

// "getty@tty1.service" is enabled by its template, "getty@.service".
std::string templateOf(const std::string& name) {
  const size_t at = name.find('@');
  return at == std::string::npos ? name : name.substr(0, at + 1) + kSuffix;
}

// What "multi-user.target.wants" and its like in one folder name.
void addEnabled(SurveyGuide& guide, const std::string& folder, Names& enabled) {
  OpenFolder units(AT_FDCWD, folder, true);
  while (guide.goOn()) {
    const char* entry = units.next();
    if (!entry) break;
    const std::string name = entry;
    if (!name.ends_with(".wants") && !name.ends_with(".requires")) continue;
    OpenFolder wanted(units.descriptor(), name, true);
    for (const char* unit; guide.goOn() && (unit = wanted.next()) != nullptr;)
      if (enabled.size() < kMostUnits) enabled.insert(templateOf(unit));
  }
}

// A unit file, as far as it is asked for.
struct Unit {
  std::string description, user, start;
  bool canBeEnabled = false;
};

Unit readUnit(TextLines& lines) {
  Unit unit;
  std::string section, line, more;
  while (lines.next(line)) {
    while (line.ends_with('\\') && line.size() < kMostTextBytes && lines.next(more))
      line.replace(line.size() - 1, 1, " " + more);
    if (line.starts_with('[')) section = line.substr(0, line.find(']') + 1);
    if (section == "[Install]") unit.canBeEnabled = true;
    const size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    const std::string key = line.substr(0, line.find_last_not_of(" \t", equals - (equals > 0)) + 1);
    const size_t begin = line.find_first_not_of(" \t", equals + 1);
    const std::string value = begin == std::string::npos ? "" : line.substr(begin);
    if (section == "[Unit]" && key == "Description") unit.description = value;
    if (section == "[Service]" && key == "User") unit.user = value;
    if (section == "[Service]" && key == "ExecStart" && unit.start.empty()) unit.start = value;
  }
  return unit;
}

// The unit's own file, or its mask; false for another name of a unit.
bool tellUnit(SurveyGuide& guide, const OpenFolder& folder, const std::string& path,
              const std::string& name, const Names& enabled,
              const Survey::Taker<SurveyedService>& take) {
  const std::string link = linkTarget(folder.descriptor(), name);
  SurveyedService row{name, {}, "masked", {}, {}};
  if (link == "/dev/null") {
    take(row);
    return true;
  }
  if (!link.empty() && fileNameOf(link) != name) return false;
  Descriptor file;
  if (const int error = openPlain(folder.descriptor(), name, true, file)) {
    if (error != ENOENT) guide.skipped(path + "/" + name, error);
    return error != ENOENT;
  }
  const bool empty = ::lseek(file.get(), 0, SEEK_END) == 0;
  ::lseek(file.get(), 0, SEEK_SET);
  TextLines lines(std::move(file));
  const Unit unit = readUnit(lines);
  if (!empty) {
    row.displayName = unit.description;
    row.start = enabled.count(name) ? "enabled" : unit.canBeEnabled ? "disabled" : "static";
    row.account = unit.user.empty() ? "root" : unit.user;
    row.program = unit.start;
  }
  take(row);
  return true;
}

}  // namespace

void surveyUnits(SurveyGuide& guide, const std::string& below,
                 const Survey::Taker<SurveyedService>& take) {
  Names enabled, seen;
  for (const char* folder : {"/etc/systemd/system", "/run/systemd/system"})
    addEnabled(guide, below + folder, enabled);
  bool any = false;
  for (const char* place :
       {"/etc/systemd/system", "/run/systemd/system", "/usr/local/lib/systemd/system",
        "/usr/lib/systemd/system", "/lib/systemd/system"}) {
    const std::string path = below + place;
    OpenFolder folder(AT_FDCWD, path, true);
    any = any || !folder.error();
    for (const char* entry; guide.goOn() && (entry = folder.next()) != nullptr;) {
      const std::string name = entry;
      if (!name.ends_with(kSuffix) || seen.size() >= kMostUnits || seen.count(name)) continue;
      if (tellUnit(guide, folder, path, name, enabled, take)) seen.insert(name);
    }
    if (folder.error() && folder.error() != ENOENT) guide.skipped(path, folder.error());
  }
  if (!any) guide.skipped(below + "/etc/systemd/system", ENOENT);
}

}  // namespace korvane::platform
