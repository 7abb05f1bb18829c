// What an inventory asks the system: which applications, services, processes, open ports, shortcuts
// and registry values there are, and the files below a folder.
//
// Rows are handed over one by one, as they are found; nothing of the size of the machine is held.
// Between any two steps, also those that lead to no row, SurveyGuide::goOn() is asked; its
// false ends the call. What may not be read is told to SurveyGuide::skipped() and left out; what is gone by the
// time it is looked at is left out without a word.
//
// Lifetime: a FileWalk is its own; the guide must outlive it.
// Threads: a Survey may be used by any number at once, a FileWalk by one.
// Errors: errno values. Texts: as the system has them; on Linux they need not be UTF-8, and of any a
// survey gives at most kMostTextBytes.
//
// Windows: uninstall keys, service manager, Toolhelp, IP helper, shell links, version resources and signatures.
// Linux: dpkg's status, unit files of systemd, /proc, desktop entries; no registry values (one skip with
// ENOTSUP), no versions and signers of files. docs/discovery.md has the places.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace korvane::platform {

inline constexpr size_t kMostTextBytes = 32 * 1024;

struct SurveyedApplication {
  std::string name, version, publisher, architecture, location, installed;
};
struct SurveyedService {
  std::string name, displayName, start, account, program;  // start: see docs/discovery.md
};
struct SurveyedProcess {
  uint64_t id = 0, parent = 0;
  std::string name, image, commandLine;
};
struct SurveyedPort {
  std::string protocol, address;  // "tcp" or "udp"; "0.0.0.0", "::1"
  uint16_t port = 0;
  uint64_t process = 0;  // 0: not known
  std::string image;
};
struct SurveyedShortcut {
  std::string path, name, target, arguments, directory;
};
struct SurveyedValue {
  std::string key, name, type, value;  // key: below HKEY_LOCAL_MACHINE
};

struct SurveyedEntry {
  std::string name;      // without the folder
  std::string relative;  // the path below the walk's root, with the system's separator
  bool isFolder = false;
  uint64_t size = 0;       // bytes
  int64_t modifiedMs = 0;  // milliseconds since 1970-01-01 UTC
  int64_t createdMs = 0;   // likewise; 0 where the file system does not say
};

class SurveyGuide {
 public:
  virtual ~SurveyGuide() = default;
  virtual bool goOn() = 0;
  virtual void skipped(std::string_view what, int error) = 0;
};

class SurveyedContent {
 public:
  virtual ~SurveyedContent() = default;
  // Up to `size` bytes; `got` 0 at the end.
  [[nodiscard]] virtual int read(void* buffer, size_t size, size_t& got) = 0;
};

// The files below a folder, folder by folder. Links, junctions, mount points, devices, pipes and sockets are
// no entries. The way down is held open, so that whoever puts a link in the place of a folder leads nobody
// elsewhere.
//
//   while (walk->next(entry)) if (entry.isFolder && walk->depth() < 3) walk->enter();
class FileWalk {
 public:
  virtual ~FileWalk() = default;
  // The next entry of the folder that the walk is in, or of one above when that is through; false
  // at the end and when the guide says so.
  [[nodiscard]] virtual bool next(SurveyedEntry& out) = 0;
  // Of the entry that next() gave last: levels below the root, 0 for what lies in the root itself.
  virtual size_t depth() const = 0;
  // Goes into the folder that next() gave last.
  virtual void enter() = 0;
  // The content of the file that next() gave last. ENOENT when it is gone or no plain file any more.
  [[nodiscard]] virtual int open(std::unique_ptr<SurveyedContent>& out) = 0;
  // Of the file that next() gave last; empty where it has none. "1.2.3.4"; the subject of a
  // certificate whose signature the system trusts.
  virtual std::string version() = 0;
  virtual std::string signer() = 0;
};

class Survey {
 public:
  template <class Row>
  using Taker = std::function<void(const Row&)>;

  virtual ~Survey() = default;
  virtual void applications(SurveyGuide& guide, const Taker<SurveyedApplication>& take) = 0;
  virtual void services(SurveyGuide& guide, const Taker<SurveyedService>& take) = 0;
  virtual void processes(SurveyGuide& guide, const Taker<SurveyedProcess>& take) = 0;
  virtual void ports(SurveyGuide& guide, const Taker<SurveyedPort>& take) = 0;
  virtual void shortcuts(SurveyGuide& guide, const Taker<SurveyedShortcut>& take) = 0;
  // The values of a key and of those below it, `depth` levels down.
  virtual void registryValues(SurveyGuide& guide, const std::string& key, size_t depth,
                              const Taker<SurveyedValue>& take) = 0;
  // A walk below a folder; `root` itself may be a link.
  [[nodiscard]] virtual int walk(SurveyGuide& guide, const std::string& root,
                                 std::unique_ptr<FileWalk>& out) = 0;
  // Whether names of files and keys are compared without the case of ASCII letters.
  virtual bool ignoresCase() const = 0;
};

}  // namespace korvane::platform
