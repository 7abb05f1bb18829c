#include <algorithm>
#include <cerrno>

#include "platform/errno_win.h"
#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/wide_win.h"

// Behind windows.h, which it needs.
#include <ntsecapi.h>

namespace korvane::platform {
namespace {

// How long a rename or a removal is tried while another program holds the file, and how often.
constexpr DWORD kHeldMs = 200;
constexpr DWORD kHeldStepMs = 10;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kMostPathUnits = 32768;
constexpr DWORD kOnePiece = 1u << 30;  // the most that one call moves
// 1970-01-01 in FILETIME's count of 100 ns since 1601-01-01.
constexpr int64_t kUnixEpochTicks = 116444736000000000;

int errnoOfResult(BOOL succeeded) {
  return succeeded ? 0 : lastErrno();
}

OVERLAPPED overlappedAt(int64_t position) {
  OVERLAPPED at{};
  at.Offset = static_cast<DWORD>(position);
  at.OffsetHigh = static_cast<DWORD>(position >> 32);
  return at;
}

bool isDirectoryPath(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

int fillInfo(HANDLE file, FileInfo& out) {
  BY_HANDLE_FILE_INFORMATION found;
  if (!::GetFileInformationByHandle(file, &found)) return lastErrno();
  const int64_t ticks =
      int64_t{found.ftLastWriteTime.dwHighDateTime} << 32 | found.ftLastWriteTime.dwLowDateTime;
  out.size = uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
  out.modifiedNs = (ticks - kUnixEpochTicks) * 100;
  out.identity = uint64_t{found.nFileIndexHigh} << 32 | found.nFileIndexLow;
  out.isDirectory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return 0;
}

// Keeps its own position: every read and write says where.
class WinFile final : public File {
 public:
  WinFile(FileHandle file, bool append) : _file(std::move(file)), _append(append) {}

  int read(void* buffer, size_t size, size_t& got) override {
    got = 0;
    while (got < size) {
      OVERLAPPED at = overlappedAt(_position);
      DWORD n = 0;
      const auto piece = static_cast<DWORD>(std::min<size_t>(size - got, kOnePiece));
      if (!::ReadFile(_file.get(), static_cast<char*>(buffer) + got, piece, &n, &at)) {
        if (::GetLastError() == ERROR_HANDLE_EOF) break;
        return lastErrno();
      }
      if (n == 0) break;
      got += n;
      _position += n;
    }
    return 0;
  }

  int write(const void* bytes, size_t size) override {
    const char* at = static_cast<const char*>(bytes);
    while (size > 0) {
      OVERLAPPED where = overlappedAt(_append ? -1 : _position);
      DWORD n = 0;
      const auto piece = static_cast<DWORD>(std::min<size_t>(size, kOnePiece));
      if (!::WriteFile(_file.get(), at, piece, &n, &where)) return lastErrno();
      at += n;
      size -= n;
      _position += n;
    }
    return _append ? moveToEnd() : 0;
  }

  int seek(int64_t offset) override {
    if (offset < 0) return EINVAL;
    _position = offset;
    return 0;
  }

  int64_t tell() override { return _position; }
  int info(FileInfo& out) override { return fillInfo(_file.get(), out); }

  int truncate(uint64_t size) override {
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return errnoOfResult(
        ::SetFileInformationByHandle(_file.get(), FileEndOfFileInfo, &end, sizeof end));
  }

  int flush() override { return errnoOfResult(::FlushFileBuffers(_file.get())); }

 private:
  int moveToEnd() {
    LARGE_INTEGER size;
    if (!::GetFileSizeEx(_file.get(), &size)) return lastErrno();
    _position = size.QuadPart;
    return 0;
  }

  const FileHandle _file;
  const bool _append;
  int64_t _position = 0;
};

class WinFileLock final : public FileLock {
 public:
  explicit WinFileLock(FileHandle file) : _file(std::move(file)) {}

 private:
  const FileHandle _file;
};

struct Opening {
  DWORD access;
  DWORD disposition;
};

Opening openingOf(OpenMode mode) {
  switch (mode) {
    case OpenMode::readWrite:
      return {GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING};
    case OpenMode::create:
      return {GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS};
    case OpenMode::createNew:
      return {GENERIC_READ | GENERIC_WRITE, CREATE_NEW};
    case OpenMode::append:
      return {FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE, OPEN_ALWAYS};
    case OpenMode::read:
      break;
  }
  return {GENERIC_READ, OPEN_EXISTING};
}

bool isHeldByAnother(DWORD error) {
  return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION ||
         error == ERROR_LOCK_VIOLATION;
}

// Calls until it succeeds, fails for another reason, or has been refused for too long. Nothing
// tells when the other program lets go, and the time is too short to be worth an interrupt.
template <class Call>
int whileHeld(Call call) {
  for (DWORD waited = 0;; waited += kHeldStepMs) {
    if (call()) return 0;
    if (!isHeldByAnother(::GetLastError()) || waited >= kHeldMs) return lastErrno();
    ::Sleep(kHeldStepMs);
  }
}

// Opens what may be made or changed by that, and not what a link in its place leads to.
FileHandle openItself(const std::wstring& name, DWORD access, DWORD shared, DWORD disposition) {
  return FileHandle(::CreateFileW(name.c_str(), access, shared, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

bool isLink(HANDLE file) {
  FILE_ATTRIBUTE_TAG_INFO found;
  return ::GetFileInformationByHandleEx(file, FileAttributeTagInfo, &found, sizeof found) &&
         (found.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
         IsReparseTagNameSurrogate(found.ReparseTag);
}

FileHandle openAttributes(const std::wstring& path) {
  return FileHandle(::CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

bool isLink(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

class WinFiles final : public Files {
 public:
  char separator() const override { return '\\'; }

  std::string freshName() override {
    uint64_t bits = 0;
    ::RtlGenRandom(&bits, sizeof bits);
    return nameOfBits(bits);
  }

  int open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) override {
    const std::wstring name = widePath(path);
    const Opening opening = openingOf(mode);
    const bool changes = mode != OpenMode::read;
    FileHandle file =
        changes ? openItself(name, opening.access, kShareAll, opening.disposition)
                : FileHandle(::CreateFileW(name.c_str(), opening.access, kShareAll, nullptr,
                                           opening.disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
      const int error = lastErrno();
      return mode != OpenMode::createNew && isDirectoryPath(name) ? EISDIR : error;
    }
    if (changes && isLink(file.get())) return ELOOP;
    auto opened = std::make_unique<WinFile>(std::move(file), mode == OpenMode::append);
    if (mode == OpenMode::create)
      if (const int error = opened->truncate(0)) return error;
    out = std::move(opened);
    return 0;
  }

  int lock(const std::string& path, std::unique_ptr<FileLock>& out) override {
    FileHandle file = openItself(widePath(path), GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS);
    if (!file) return lastErrno();
    if (isLink(file.get())) return ELOOP;
    out = std::make_unique<WinFileLock>(std::move(file));
    return 0;
  }

  int info(const std::string& path, FileInfo& out) override {
    const FileHandle file = openAttributes(widePath(path));
    return file ? fillInfo(file.get(), out) : lastErrno();
  }

  int freeBytes(const std::string& directory, uint64_t& out) override {
    ULARGE_INTEGER available;
    if (!::GetDiskFreeSpaceExW(widePath(directory).c_str(), &available, nullptr, nullptr))
      return lastErrno();
    out = available.QuadPart;
    return 0;
  }

  int totalBytes(const std::string& directory, uint64_t& out) override {
    ULARGE_INTEGER total;
    if (!::GetDiskFreeSpaceExW(widePath(directory).c_str(), nullptr, &total, nullptr))
      return lastErrno();
    out = total.QuadPart;
    return 0;
  }

  int resolve(const std::string& path, std::string& out) override {
    std::string there = path;
    for (std::string rest;;) {
      if (const FileHandle file = openAttributes(widePath(there))) {
        std::wstring name(kMostPathUnits, L'\0');
        const DWORD length =
            ::GetFinalPathNameByHandleW(file.get(), name.data(), kMostPathUnits, 0);
        if (length == 0 || length >= kMostPathUnits) return length ? ENAMETOOLONG : lastErrno();
        out = narrow(name.substr(0, length)) + rest;
        return 0;
      }
      const DWORD error = ::GetLastError();
      if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
        return errnoOfWin32(error);
      if (isLink(widePath(there))) return ELOOP;
      rest.insert(0, '\\' + fileNameOf(there));
      std::string above = directoryOf(there);
      if (above.ends_with(':')) above += '\\';  // the drive's root, not its current folder
      if (above.empty() || above == there) return ENOENT;
      there = std::move(above);
    }
  }

  int replace(const std::string& from, const std::string& to) override {
    return move(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
  }

  int rename(const std::string& from, const std::string& to) override {
    return move(from, to, MOVEFILE_WRITE_THROUGH);
  }

  int remove(const std::string& path) override {
    const std::wstring name = widePath(path);
    return whileHeld([&] {
      return isDirectoryPath(name) ? ::RemoveDirectoryW(name.c_str()) : ::DeleteFileW(name.c_str());
    });
  }

  int makeDirectories(const std::string& path) override {
    const std::wstring name = widePath(path);
    if (::CreateDirectoryW(name.c_str(), nullptr)) return 0;
    const DWORD error = ::GetLastError();
    if (isDirectoryPath(name)) return 0;
    if (error != ERROR_PATH_NOT_FOUND) return errnoOfWin32(error);
    const std::string above = directoryOf(path);
    if (above.empty() || above == path) return ENOENT;
    if (const int failed = makeDirectories(above)) return failed;
    return ::CreateDirectoryW(name.c_str(), nullptr) || isDirectoryPath(name) ? 0 : lastErrno();
  }

  int list(const std::string& directory, std::vector<DirectoryEntry>& out) override {
    out.clear();
    WIN32_FIND_DATAW entry;
    const FindHandle search(::FindFirstFileW((widePath(directory) + L"\\*").c_str(), &entry));
    if (!search) return lastErrno();
    do {
      const std::string name = narrow(entry.cFileName);
      const bool isDirectory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      if (name != "." && name != "..") out.push_back({name, isDirectory});
    } while (::FindNextFileW(search.get(), &entry));
    if (::GetLastError() != ERROR_NO_MORE_FILES) return lastErrno();
    std::sort(out.begin(), out.end(), [](auto& a, auto& b) { return a.name < b.name; });
    return 0;
  }

  // Renames are written through, and the file system's journal keeps creations and removals in
  // order; a directory can be flushed besides only by those who may write to it as a whole.
  int flushDirectory(const std::string& directory) override {
    const std::wstring name = widePath(directory);
    const FileHandle opened(::CreateFileW(name.c_str(), GENERIC_WRITE, kShareAll, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (opened) ::FlushFileBuffers(opened.get());
    FileInfo found;
    const int error = info(directory, found);
    return error ? error : found.isDirectory ? 0 : ENOTDIR;
  }

 private:
  static int move(const std::string& from, const std::string& to, DWORD flags) {
    const std::wstring source = widePath(from), target = widePath(to);
    return whileHeld([&] { return ::MoveFileExW(source.c_str(), target.c_str(), flags); });
  }
};

}  // namespace

std::unique_ptr<Files> makeNativeFiles() {
  return std::make_unique<WinFiles>();
}

}  // namespace korvane::platform
