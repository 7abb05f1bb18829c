#include "update/policy/policy_files.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

#include "config/install_root.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr size_t kPieceBytes = 64 * 1024;
constexpr size_t kBaseCut = 7;

size_t readPiece(platform::File& file, std::vector<char>& piece, bool& good) {
  size_t got = 0;
  good = file.read(piece.data(), piece.size(), got) == 0;
  return got;
}

}  // namespace

std::string driverDirectory(const platform::Files& files) {
  return platform::joinPath(files, {installDirectory(), "driver"});
}

std::string historyDirectory(const platform::Files& files) {
  return platform::joinPath(files, {installDirectory(), "history"});
}

STRING policyBaseOf(const STRING& plusFile) {
  const size_t length = plusFile.length();
  return plusFile.substr(0, length < kBaseCut ? 0 : length - kBaseCut);
}

PolicyFiles::PolicyFiles(const STRING& plusFile) {
  const std::string base = policyBaseOf(plusFile).toUtf8();
  minus = base + ".conf";
  items = base + ".trans";
  freshMinus = minus + ".tmp";
  freshItems = items + ".tmp";
  oldMinus = minus + ".old";
  oldItems = items + ".old";
}

Presence presenceOf(platform::Files& files, const std::string& path) {
  platform::FileInfo info;
  const int error = files.info(path, info);
  if (error == 0) return Presence::present;
  return error == ENOENT || error == ENOTDIR ? Presence::absent : Presence::unknown;
}

int removeIfThere(platform::Files& files, const std::string& path) {
  const int error = files.remove(path);
  return error == ENOENT ? 0 : error;
}

int flushFile(platform::Files& files, const std::string& path) {
  std::unique_ptr<platform::File> file;
  const int error = files.open(path, platform::OpenMode::readWrite, file);
  return error != 0 ? error : file->flush();
}

bool sameContent(platform::Files& files, const std::string& one, const std::string& other) {
  std::unique_ptr<platform::File> left;
  std::unique_ptr<platform::File> right;
  if (files.open(one, platform::OpenMode::read, left) != 0 ||
      files.open(other, platform::OpenMode::read, right) != 0)
    return false;
  std::vector<char> leftPiece(kPieceBytes);
  std::vector<char> rightPiece(kPieceBytes);
  while (true) {
    bool leftGood = false;
    bool rightGood = false;
    const size_t got = readPiece(*left, leftPiece, leftGood);
    if (readPiece(*right, rightPiece, rightGood) != got || !leftGood || !rightGood) return false;
    if (!std::equal(leftPiece.begin(), leftPiece.begin() + static_cast<std::ptrdiff_t>(got),
                    rightPiece.begin()))
      return false;
    if (got < kPieceBytes) return true;
  }
}

}  // namespace korvane
