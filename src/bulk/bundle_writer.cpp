#include "bulk/bundle_writer.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "archive/zip_file_writer.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/dates.h"
#include "util/ignore_result.h"
#include "util/sha256.h"

namespace korvane::bulk {
namespace {

constexpr size_t kPiece = 64 * 1024;
// The manifest goes behind the bound of the parts.
constexpr size_t kMaxPartLines = 512 * 1024;
constexpr std::string_view kUnfinished = ".part";

}  // namespace

struct BundleWriter::Archive {
  archive::ZipFileWriter& zip;
  const std::function<bool()>& stopped;
  bool digests;
  std::string piece;
  uint64_t unpacked = 0;
  size_t lines = 0;  // bytes of the manifest's part lines

  bool isFull() const {
    return zip.written() >= kMaxArchive || unpacked >= kMaxUnpacked || lines >= kMaxPartLines;
  }
};

std::string BundleWriter::pathOf(const std::string& name) const {
  return platform::joinPath(_files, {_folder, name});
}

int BundleWriter::pack(const std::vector<Wanted>& wanted, bool digests,
                       const std::function<bool()>& stopped, Packed& out) {
  out = {};
  if (const int error = _files.makeDirectories(_folder)) return error;
  const std::string name = "bulk-" + expandDatePattern("%M%S", _clock.wallMs()).toUtf8() + "-" +
                           _files.freshName() + ".zip";
  const std::string unfinished = pathOf(name) + std::string(kUnfinished);
  std::unique_ptr<platform::File> file;
  int error = _files.open(unfinished, platform::OpenMode::createNew, file);
  if (error != 0) return error;
  out.bundle.name = name;
  {
    archive::ZipFileWriter zip(*file);
    Archive archive{zip, stopped, digests, std::string(kPiece, '\0')};
    error = write(archive, wanted, out);
  }
  const bool nothing = out.bundle.parts.empty();
  if (error == 0 && !nothing) error = file->flush();
  file.reset();
  if (error == 0 && !nothing) error = _files.rename(unfinished, pathOf(name));
  if (error == 0 && !nothing) error = _files.flushDirectory(_folder);
  if (error == 0 && !nothing) error = digestOf(pathOf(name), out.bundle.size, out.bundle.digest);
  if (error == 0 && !nothing) return 0;
  ignoreResult(_files.remove(unfinished));
  ignoreResult(_files.remove(pathOf(name)));
  out.bundle = {};
  return error;
}

int BundleWriter::write(Archive& archive, const std::vector<Wanted>& wanted, Packed& out) {
  out.everything = true;
  for (const Wanted& one : wanted) {
    if (archive.isFull() || out.bundle.parts.size() == kMaxParts) {
      out.everything = false;
      break;
    }
    if (const int error = addLog(archive, one, out)) return error;
  }
  return out.bundle.parts.empty() ? 0 : finish(archive, out);
}

int BundleWriter::addLog(Archive& archive, const Wanted& wanted, Packed& out) {
  const LogRecord& log = wanted.log;
  std::unique_ptr<platform::File> file;
  platform::FileInfo info;
  int error = _files.open(log.path, platform::OpenMode::read, file);
  if (error == 0) error = file->info(info);
  if (error == 0 && (info.identity != log.identity || info.size < log.size)) error = ENOENT;
  if (error == 0) error = file->seek(static_cast<int64_t>(log.position));
  if (error != 0) {
    eventlog::trace("BundleWriter", "%s is left for later: error %d", log.path, error);
    return 0;
  }
  const size_t number = out.bundle.parts.size() + 1;
  Part part{.entry = entryName(log.kind, number, platform::fileNameOf(log.path)),
            .kind = log.kind,
            .log = log.id,
            .from = log.position,
            .to = log.position,
            .size = log.size,
            .modifiedMs = log.modifiedMs(),
            .digest = {},
            .path = log.path};
  if ((error = addPieces(archive, *file, wanted, part)) != 0) return error;
  if (part.to == part.from) return 0;
  out.everything = out.everything && (part.to == part.size || wanted.wholeLines);
  archive.lines += partText(part).size();
  out.bundle.parts.push_back(std::move(part));
  return archive.zip.end();
}

// The entry begins with its first piece, so that a log that gives nothing has none.
int BundleWriter::addPieces(Archive& archive, platform::File& file, const Wanted& wanted,
                            Part& part) {
  Sha256 digest;
  while (part.to < part.size && !archive.isFull()) {
    if (archive.stopped()) return ECANCELED;
    size_t got = 0;
    const size_t most = static_cast<size_t>(std::min<uint64_t>(kPiece, part.size - part.to));
    if (file.read(archive.piece.data(), most, got) != 0 || got == 0) break;
    std::string_view piece(archive.piece.data(), got);
    const size_t lineEnd = piece.rfind('\n');
    const bool last = part.to + got == part.size;
    if (lineEnd != std::string_view::npos && (!last || wanted.wholeLines))
      piece = piece.substr(0, lineEnd + 1);
    else if (last && wanted.wholeLines && got < kPiece)
      break;
    int error = part.to == part.from ? archive.zip.begin(part.entry, part.modifiedMs) : 0;
    if (error == 0) error = archive.zip.add(piece);
    if (error != 0) return error;
    if (archive.digests) digest.add(piece);
    part.to += piece.size();
    archive.unpacked += piece.size();
    if (piece.size() < got && file.seek(static_cast<int64_t>(part.to)) != 0) break;
    if (last && wanted.wholeLines) break;
  }
  if (archive.digests && part.to != part.from) part.digest = digest.text();
  return 0;
}

int BundleWriter::finish(Archive& archive, Packed& out) {
  const std::string text = manifestText({out.bundle.name, out.bundle.parts});
  int error = archive.zip.begin(kManifestName, _clock.wallMs());
  if (error == 0) error = archive.zip.add(text);
  if (error == 0) error = archive.zip.end();
  return error == 0 ? archive.zip.finish() : error;
}

int BundleWriter::digestOf(const std::string& path, uint64_t& size, std::string& digest) const {
  std::unique_ptr<platform::File> file;
  if (const int error = _files.open(path, platform::OpenMode::read, file)) return error;
  Sha256 sum;
  std::string piece(kPiece, '\0');
  size = 0;
  for (size_t got = 1; got != 0; size += got) {
    if (const int error = file->read(piece.data(), piece.size(), got)) return error;
    sum.add(std::string_view(piece.data(), got));
  }
  digest = sum.text();
  return 0;
}

int BundleWriter::check(const Bundle& bundle) const {
  uint64_t size = 0;
  std::string digest;
  if (const int error = digestOf(pathOf(bundle.name), size, digest)) return error;
  return size == bundle.size && digest == bundle.digest ? 0 : EBADMSG;
}

int BundleWriter::remove(const std::string& name) {
  const int error = _files.remove(pathOf(name));
  return error == ENOENT ? 0 : error;
}

void BundleWriter::removeOthers(const std::string& name) {
  std::vector<platform::DirectoryEntry> entries;
  if (_files.list(_folder, entries) != 0) return;
  for (const platform::DirectoryEntry& entry : entries) {
    std::string_view bundle = entry.name;
    if (bundle.ends_with(kUnfinished)) bundle.remove_suffix(kUnfinished.size());
    if (isBundleName(bundle) && entry.name != name) ignoreResult(_files.remove(pathOf(entry.name)));
  }
}

}  // namespace korvane::bulk
