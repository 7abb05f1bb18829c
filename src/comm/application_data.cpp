#include "comm/application_data.h"

#include <cerrno>
#include <cstring>

#include "comm/section.h"
#include "platform/files.h"

namespace korvane {
namespace {

constexpr char kBinaryName[] = "policy";
constexpr size_t kFramingBytes = 256;  // more than the framing of such a message takes

void writeProperties(PropertyList& properties, size_t payload, MessageBody& out) {
  out.clear();
  const Section section(kTextSection, "properties", &properties);
  section.writeTextSection(out);
  out.endSection();
  out.reserve(out.size() + payload + kFramingBytes);
}

}  // namespace

PropertyList applicationDataProperties(const STRING& request, bool moreData) {
  return {{"result.type", "app.data"},
          {"application.requestID", request},
          {"application.request.complete", STRING::fromBool(!moreData)}};
}

void writeApplicationData(PropertyList properties, std::string_view bytes, MessageBody& out) {
  writeProperties(properties, bytes.size(), out);
  if (!bytes.empty()) {
    out.addSection(kBinarySection, kBinaryName, bytes);
    out.endSection();
  }
  out.finish();
}

int writeApplicationData(PropertyList properties, platform::File& file, uint64_t offset,
                         size_t length, MessageBody& out) {
  writeProperties(properties, length, out);
  if (const int error = file.seek(static_cast<int64_t>(offset))) return error;
  char* const to = out.beginSection(kBinarySection, kBinaryName, length);
  for (size_t total = 0, got = 0; total < length; total += got) {
    if (const int error = file.read(to + total, length - total, got)) return error;
    if (got == 0) return EIO;
  }
  out.endSection();
  out.finish();
  return 0;
}

}  // namespace korvane
