#include "platform/survey_posix.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/native.h"
#include "platform/reading_posix.h"

namespace korvane::platform {
namespace {

constexpr char kPackages[] = "/var/lib/dpkg/status";

class PosixSurvey final : public Survey {
 public:
  explicit PosixSurvey(std::string below) : _below(std::move(below)) {}

  void applications(SurveyGuide& guide, const Taker<SurveyedApplication>& take) override {
    surveyPackages(guide, _below, take);
  }
  void services(SurveyGuide& guide, const Taker<SurveyedService>& take) override {
    surveyUnits(guide, _below, take);
  }
  void processes(SurveyGuide& guide, const Taker<SurveyedProcess>& take) override {
    surveyProcesses(guide, _below, take);
  }
  void ports(SurveyGuide& guide, const Taker<SurveyedPort>& take) override {
    surveyPorts(guide, _below, take);
  }
  void shortcuts(SurveyGuide& guide, const Taker<SurveyedShortcut>& take) override {
    surveyDesktopEntries(guide, _below, take);
  }
  void registryValues(SurveyGuide& guide, const std::string& key, size_t,
                      const Taker<SurveyedValue>&) override {
    guide.skipped(key, ENOTSUP);
  }
  int walk(SurveyGuide& guide, const std::string& root, std::unique_ptr<FileWalk>& out) override {
    return walkFiles(guide, root, out);
  }
  bool ignoresCase() const override { return false; }

 private:
  const std::string _below;
};

// The value when the line is of that field.
bool isField(const std::string& line, std::string_view field, std::string& value) {
  if (!line.starts_with(field)) return false;
  value = line.substr(field.size());
  return true;
}

void tellDesktopEntry(SurveyGuide& guide, const OpenFolder& folder, const std::string& path,
                      const Survey::Taker<SurveyedShortcut>& take, const std::string& name) {
  Descriptor file;
  if (const int error = openPlain(folder.descriptor(), name, false, file)) {
    if (error != ENOENT) guide.skipped(path, error);
    return;
  }
  SurveyedShortcut row{path, {}, {}, {}, {}};
  TextLines lines(std::move(file));
  bool inside = false;
  std::string command;
  for (std::string line; guide.goOn() && lines.next(line);) {
    if (line.starts_with('[')) inside = line == "[Desktop Entry]";
    if (inside)
      isField(line, "Name=", row.name) || isField(line, "Exec=", command) ||
          isField(line, "Path=", row.directory);
  }
  const bool quoted = command.starts_with('"');
  const size_t end = command.find(quoted ? '"' : ' ', 1);
  row.target = command.substr(quoted, end == std::string::npos ? end : end - quoted);
  if (end != std::string::npos) row.arguments = command.substr(end + 1);
  if (const size_t blanks = row.arguments.find_first_not_of(' '); blanks > 0)
    row.arguments.erase(0, blanks);
  take(row);
}

void tellDesktopEntries(SurveyGuide& guide, OpenFolder& folder, const std::string& path,
                        const Survey::Taker<SurveyedShortcut>& take) {
  for (const char* entry; guide.goOn() && (entry = folder.next()) != nullptr;) {
    const std::string name = entry;
    if (name.ends_with(".desktop")) tellDesktopEntry(guide, folder, path + "/" + name, take, name);
  }
  if (folder.error() && folder.error() != ENOENT) guide.skipped(path, folder.error());
}

// The folder that these names lead to, one below the other and none a link: who owns the first may plant them.
void tellEntriesOfUser(SurveyGuide& guide, int at, const std::string& home,
                       std::initializer_list<const char*> names,
                       const Survey::Taker<SurveyedShortcut>& take) {
  auto folder = std::make_unique<OpenFolder>(at, ".", false);
  std::string path = home;
  for (const char* name : names) {
    if (folder->error()) break;
    folder = std::make_unique<OpenFolder>(folder->descriptor(), name, false);
    path += std::string("/") + name;
  }
  const int error = folder->error();
  if (!error) {
    tellDesktopEntries(guide, *folder, path, take);
  } else if (error != ENOENT && error != ENOTDIR && error != ELOOP) {
    guide.skipped(path, error);
  }
}

void tellEntriesOfHome(SurveyGuide& guide, const OpenFolder& home, const std::string& path,
                       const Survey::Taker<SurveyedShortcut>& take) {
  if (home.error()) {
    if (home.error() != ENOENT && home.error() != ENOTDIR && home.error() != ELOOP)
      guide.skipped(path, home.error());
    return;
  }
  tellEntriesOfUser(guide, home.descriptor(), path, {".local", "share", "applications"}, take);
  tellEntriesOfUser(guide, home.descriptor(), path, {"Desktop"}, take);
}

}  // namespace

void surveyPackages(SurveyGuide& guide, const std::string& below,
                    const Survey::Taker<SurveyedApplication>& take) {
  const std::string path = below + kPackages;
  Descriptor file;
  if (const int error = openPlain(AT_FDCWD, path, true, file)) {
    guide.skipped(path, error);
    return;
  }
  TextLines lines(std::move(file));
  SurveyedApplication row;
  std::string status, line;
  const auto tell = [&] {
    if (!row.name.empty() && status.ends_with(" installed")) take(row);
    row = {};
    status.clear();
  };
  while (guide.goOn()) {
    if (!lines.next(line)) {
      tell();
      break;
    }
    if (line.empty()) tell();
    isField(line, "Package: ", row.name) || isField(line, "Version: ", row.version) ||
        isField(line, "Maintainer: ", row.publisher) ||
        isField(line, "Architecture: ", row.architecture) || isField(line, "Status: ", status);
  }
  if (lines.error()) guide.skipped(path, lines.error());
}

void surveyDesktopEntries(SurveyGuide& guide, const std::string& below,
                          const Survey::Taker<SurveyedShortcut>& take) {
  for (const char* place : {"/usr/share/applications", "/usr/local/share/applications"}) {
    OpenFolder folder(AT_FDCWD, below + place, true);
    tellDesktopEntries(guide, folder, below + place, take);
  }
  OpenFolder homes(AT_FDCWD, below + "/home", true);
  for (const char* name; guide.goOn() && (name = homes.next()) != nullptr;) {
    const OpenFolder home(homes.descriptor(), name, false);
    tellEntriesOfHome(guide, home, below + "/home/" + name, take);
  }
  const OpenFolder root(AT_FDCWD, below + "/root", false);
  tellEntriesOfHome(guide, root, below + "/root", take);
}

std::unique_ptr<Survey> makePosixSurvey(std::string below) {
  return std::make_unique<PosixSurvey>(std::move(below));
}

std::unique_ptr<Survey> makeNativeSurvey() {
  return makePosixSurvey({});
}

}  // namespace korvane::platform
