#include <cerrno>
#include <utility>
#include <vector>

#include "platform/errno_win.h"
#include "platform/paths.h"
#include "platform/survey_win.h"
#include "platform/wide_win.h"

// Behind windows.h, which it needs.
#include <winternl.h>

namespace korvane::platform {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kPieceBytes = 16 * 1024;
// 1970-01-01 in FILETIME's count of 100 ns since 1601-01-01.
constexpr int64_t kUnixEpochTicks = 116444736000000000;
// The content lies elsewhere and would be fetched: FILE_ATTRIBUTE_OFFLINE, _RECALL_ON_OPEN and
// _RECALL_ON_DATA_ACCESS of winnt.h.
constexpr DWORD kElsewhere = 0x1000 | 0x40000 | 0x400000;

int64_t millisecondsOf(const LARGE_INTEGER& ticks) {
  return ticks.QuadPart ? (ticks.QuadPart - kUnixEpochTicks) / 10000 : 0;
}

bool leadsElsewhere(DWORD attributes, DWORD tag) {
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsReparseTagNameSurrogate(tag);
}

// What has that name in a folder that is open, whatever path leads there by now.
FileHandle openBelow(HANDLE folder, const std::wstring& name, ACCESS_MASK access, ULONG options,
                     int& error) {
  UNICODE_STRING text;
  text.Buffer = const_cast<wchar_t*>(name.data());
  text.Length = text.MaximumLength = static_cast<USHORT>(name.size() * sizeof(wchar_t));
  OBJECT_ATTRIBUTES object{};
  object.Length = sizeof object;
  object.RootDirectory = folder;
  object.ObjectName = &text;
  IO_STATUS_BLOCK status;
  HANDLE opened = nullptr;
  const NTSTATUS failed =
      ::NtOpenFile(&opened, access | FILE_READ_ATTRIBUTES | SYNCHRONIZE, &object, &status,
                   kShareAll, options | FILE_SYNCHRONOUS_IO_NONALERT | FILE_OPEN_FOR_BACKUP_INTENT);
  error = failed < 0 ? errnoOfWin32(::RtlNtStatusToDosError(failed)) : 0;
  return failed < 0 ? FileHandle() : FileHandle(opened);
}

class WinContent final : public SurveyedContent {
 public:
  explicit WinContent(FileHandle file) : _file(std::move(file)) {}

  int read(void* buffer, size_t size, size_t& got) override {
    DWORD n = 0;
    const BOOL read = ::ReadFile(_file.get(), buffer, static_cast<DWORD>(size), &n, nullptr);
    got = n;
    return read || ::GetLastError() == ERROR_HANDLE_EOF ? 0 : lastErrno();
  }

 private:
  const FileHandle _file;
};

// A folder's entries, piece by piece.
class OpenFolder {
 public:
  explicit OpenFolder(FileHandle folder) : _folder(std::move(folder)), _piece(kPieceBytes / 8) {}

  HANDLE handle() const { return _folder.get(); }
  int error() const { return _error; }

  const FILE_ID_BOTH_DIR_INFO* next() {
    if (_next) {
      _at += _next;
    } else if (!fill()) {
      return nullptr;
    }
    const auto* entry = reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(
        reinterpret_cast<const BYTE*>(_piece.data()) + _at);
    _next = entry->NextEntryOffset;
    return entry;
  }

 private:
  bool fill() {
    _at = 0;
    if (::GetFileInformationByHandleEx(_folder.get(), FileIdBothDirectoryInfo, _piece.data(),
                                       kPieceBytes))
      return true;
    if (::GetLastError() != ERROR_NO_MORE_FILES) _error = lastErrno();
    return false;
  }

  FileHandle _folder;
  std::vector<uint64_t> _piece;  // aligned as its entries are
  DWORD _at = 0, _next = 0;
  int _error = 0;
};

class WinFileWalk final : public FileWalk {
 public:
  WinFileWalk(SurveyGuide& guide, std::string root, FileHandle folder)
      : _guide(guide), _root(std::move(root)) {
    if (!_root.ends_with('\\')) _root += '\\';
    _levels.push_back({std::make_unique<OpenFolder>(std::move(folder)), 0});
  }

  bool next(SurveyedEntry& out) override {
    while (!_levels.empty()) {
      if (!_guide.goOn()) return false;
      const FILE_ID_BOTH_DIR_INFO* entry = _levels.back().folder->next();
      if (!entry) {
        leave();
      } else if (look(*entry, out)) {
        return true;
      }
    }
    return false;
  }

  size_t depth() const override { return _levels.size() - 1; }

  void enter() override {
    int error = 0;
    FileHandle folder = openBelow(_levels.back().folder->handle(), _name, FILE_LIST_DIRECTORY,
                                  FILE_DIRECTORY_FILE | FILE_OPEN_REPARSE_POINT, error);
    FILE_ATTRIBUTE_TAG_INFO found{};
    if (!error &&
        !::GetFileInformationByHandleEx(folder.get(), FileAttributeTagInfo, &found, sizeof found))
      error = lastErrno();
    if (error && error != ENOENT && error != ENOTDIR)
      _guide.skipped(_root + _path + narrow(_name), error);
    if (error || leadsElsewhere(found.FileAttributes, found.ReparseTag)) return;
    _levels.push_back({std::make_unique<OpenFolder>(std::move(folder)), _path.size()});
    _path += narrow(_name) + "\\";
  }

  // The file is the one that the folder told of, wherever its name leads now.
  int open(std::unique_ptr<SurveyedContent>& out) override {
    if (_attributes & kElsewhere) return ENODATA;
    const bool itself = !(_attributes & FILE_ATTRIBUTE_REPARSE_POINT);
    int error = 0;
    FileHandle file =
        openBelow(_levels.back().folder->handle(), _name, FILE_READ_DATA,
                  FILE_NON_DIRECTORY_FILE | (itself ? FILE_OPEN_REPARSE_POINT : 0), error);
    if (error) return error;
    BY_HANDLE_FILE_INFORMATION found;
    if (!::GetFileInformationByHandle(file.get(), &found)) return lastErrno();
    const uint64_t identity = uint64_t{found.nFileIndexHigh} << 32 | found.nFileIndexLow;
    if (identity != _identity ||
        (itself && (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)))
      return ENOENT;
    out = std::make_unique<WinContent>(std::move(file));
    return 0;
  }

  std::string version() override { return _attributes & kElsewhere ? "" : versionOfFile(path()); }
  std::string signer() override { return _attributes & kElsewhere ? "" : signerOfFile(path()); }

 private:
  struct Level {
    std::unique_ptr<OpenFolder> folder;
    size_t above;  // how long _path is in the folder above
  };

  std::string path() const { return _root + _path + narrow(_name); }

  void leave() {
    if (const int error = _levels.back().folder->error())
      _guide.skipped((_root + _path).substr(0, _root.size() + _path.size() - 1), error);
    _path.resize(_levels.back().above);
    _levels.pop_back();
  }

  // Whether the entry is one that is told. Of a reparse point EaSize is the tag.
  bool look(const FILE_ID_BOTH_DIR_INFO& entry, SurveyedEntry& out) {
    const std::wstring name(entry.FileName, entry.FileNameLength / sizeof(wchar_t));
    if (name == L"." || name == L"..") return false;
    if (leadsElsewhere(entry.FileAttributes, entry.EaSize)) return false;
    if (entry.FileAttributes & FILE_ATTRIBUTE_DEVICE) return false;
    _name = name;
    _attributes = entry.FileAttributes;
    _identity = static_cast<uint64_t>(entry.FileId.QuadPart);
    out.name = narrow(name);
    out.relative = _path + out.name;
    out.isFolder = (entry.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    out.size = out.isFolder ? 0 : static_cast<uint64_t>(entry.EndOfFile.QuadPart);
    out.modifiedMs = millisecondsOf(entry.LastWriteTime);
    out.createdMs = millisecondsOf(entry.CreationTime);
    return true;
  }

  SurveyGuide& _guide;
  std::string _root;  // with a separator behind
  std::vector<Level> _levels;
  std::string _path;  // of the folder that the walk is in, below the root, with a separator behind
  // Of the entry that was told last:
  std::wstring _name;
  DWORD _attributes = 0;
  uint64_t _identity = 0;
};

}  // namespace

int walkFiles(SurveyGuide& guide, const std::string& root, std::unique_ptr<FileWalk>& out) {
  if (!isAbsolutePath(root)) return EINVAL;
  FileHandle folder(::CreateFileW(widePath(root).c_str(), FILE_LIST_DIRECTORY | SYNCHRONIZE,
                                  kShareAll, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                                  nullptr));
  if (!folder) return lastErrno();
  BY_HANDLE_FILE_INFORMATION found;
  if (!::GetFileInformationByHandle(folder.get(), &found)) return lastErrno();
  if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) return ENOTDIR;
  out = std::make_unique<WinFileWalk>(guide, root, std::move(folder));
  return 0;
}

}  // namespace korvane::platform
