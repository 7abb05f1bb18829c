#include "archive/zip_writer.h"

#include <zip.h>

#include <algorithm>
#include <new>

#include "archive/entry_name.h"
#include "archive/entry_paths.h"
#include "archive/memory_stream.h"
#include "archive/zip_entry.h"

namespace korvane::archive {
namespace {

constexpr size_t kWritePiece = 1u << 30;  // minizip takes lengths of 32 bits

}  // namespace

struct ZipWriter::Output {
  Output() {
    zlib_filefunc64_def functions = memoryFunctions(stream);
    zip = zipOpen2_64(nullptr, APPEND_STATUS_CREATE, nullptr, &functions);
    if (!zip) throw std::bad_alloc();
  }
  ~Output() { close(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  bool add(const char* name, std::string_view content) {
    if (beginEntry(zip, name) != ZIP_OK) return false;
    int code = ZIP_OK;
    for (; code == ZIP_OK && !content.empty();
         content.remove_prefix(std::min(content.size(), kWritePiece)))
      code = zipWriteInFileInZip(zip, content.data(),
                                 static_cast<unsigned>(std::min(content.size(), kWritePiece)));
    return zipCloseFileInZip(zip) == ZIP_OK && code == ZIP_OK;
  }
  bool close() {
    const bool closed = !zip || zipClose(zip, nullptr) == ZIP_OK;
    zip = nullptr;
    return closed;
  }

  std::string bytes;
  MemoryStream stream{.bytes = {}, .written = &bytes};
  EntryPaths paths;
  size_t entries = 0;
  zipFile zip = nullptr;
};

ZipWriter::ZipWriter(std::string name, const Limits& limits)
    : _name(std::move(name)), _limits(limits), _output(std::make_unique<Output>()) {}

ZipWriter::~ZipWriter() = default;

bool ZipWriter::refuse(Fault fault, const std::string& entry, std::string reason,
                       Refusal& refusal) const {
  refusal = {fault, _name, entry, std::move(reason)};
  return false;
}

bool ZipWriter::check(const std::string& name, size_t size, Refusal& refusal) const {
  std::string reason;
  const Fault fault = checkEntryName(name, reason);
  if (fault != Fault::none) return refuse(fault, name, std::move(reason), refusal);
  if (name.ends_with('/'))
    return refuse(Fault::notAFile, name, "the name is a directory's", refusal);
  if (_output->entries >= _limits.entries)
    return refuse(Fault::tooManyEntries, name,
                  "the archive has " + std::to_string(_limits.entries) + " entries already",
                  refusal);
  if (size > _limits.totalBytes - _total)
    return refuse(
        Fault::tooLarge, name,
        "the archive would unpack to more than " + std::to_string(_limits.totalBytes) + " bytes",
        refusal);
  return true;
}

bool ZipWriter::add(const std::string& name, std::string_view content, Refusal& refusal) {
  if (!check(name, content.size(), refusal)) return false;
  if (!_output->paths.add(name))
    return refuse(Fault::duplicate, name, "another entry needs the same path", refusal);
  // Nothing but memory can fail behind the checks.
  if (!_output->add(name.c_str(), content)) throw std::bad_alloc();
  _total += content.size();
  ++_output->entries;
  return true;
}

std::string ZipWriter::finish() {
  if (!_output->zip) return {};
  if (!_output->close()) throw std::bad_alloc();
  return std::move(_output->bytes);
}

}  // namespace korvane::archive
