#include "comm/https_message_generator.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "comm/https_handler.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr char kBulkSource[] = "HttpsMessageGenerator::buildBulkLogMessage";
constexpr size_t kFramingBytes = 256;  // more than the framing of a bulk message takes, names aside

std::unique_ptr<platform::File> openBulkFile(platform::Files& files, const std::string& path,
                                             uint64_t& size) {
  std::unique_ptr<platform::File> file;
  if (int error = files.open(path, platform::OpenMode::read, file)) {
    eventlog::trace(kBulkSource, "Could not open file%s. Error Code :%d", path, error);
    return nullptr;
  }
  platform::FileInfo info;
  if (file->info(info) != 0) {
    eventlog::trace(kBulkSource, "Could not determine file size");
    return nullptr;
  }
  size = info.size;
  return file;
}

// Fills `size` bytes; what a file that has shrunk meanwhile lacks is zero.
void readInto(platform::File& file, char* to, size_t size) {
  size_t total = 0;
  size_t got = 0;
  while (total < size && file.read(to + total, size - total, got) == 0 && got > 0) total += got;
  std::memset(to + total, 0, size - total);
}

}  // namespace

HttpsMessageGenerator::HttpsMessageGenerator(const STRING& charset)
    : _headers{{"Korvane-Format-Version", HttpsHandler::PROTOCOL_VERSION},
               {"Content-Type", "application/x-korvane"},
               {"Korvane-Charset", charset}},
      _response(std::make_unique<ResponseParser>()) {}

void HttpsMessageGenerator::setGUID(const STRING& guid) {
  _headers.emplace_back("Korvane-GUID", guid);
}

std::vector<std::pair<std::string, std::string>> HttpsMessageGenerator::wireHeaders() const {
  std::vector<std::pair<std::string, std::string>> lines;
  for (const Property& header : _headers) {
    lines.emplace_back(header.first.toUtf8(), header.second.toUtf8());
  }
  return lines;
}

void HttpsMessageGenerator::addProperties(const PropertyList& pairs) {
  _sections.emplace_back(kTextSection, "properties", &_ownedPairs.emplace_back(pairs));
}

void HttpsMessageGenerator::addBinary(const char* bytes, size_t length) {
  _sections.emplace_back(kBinarySection, "policy", &_ownedBytes.emplace_back(bytes, length));
}

void HttpsMessageGenerator::addSection(const Section& section) {
  _sections.push_back(section);
}

void HttpsMessageGenerator::writeBody(StringBuffer& buffer) const {
  for (const Section& section : _sections) {
    if (section.type == STRING(kTextSection)) {
      section.writeTextSection(buffer);
    } else if (section.type == STRING(kXmlSection)) {
      section.writeXMLSection(buffer);
    } else if (section.type == STRING(kBinarySection)) {
      section.writeBinarySection(buffer);
    } else {
      std::fputs("Error : Unknown section \n", stdout);
    }
    buffer.endSection();
  }
  buffer.finish();
}

std::unique_ptr<MessageBody> HttpsMessageGenerator::buildBulkLogMessage(platform::Files& files,
                                                                        const STRING& path) {
  _bulkLogSize = 0;
  const std::string fileName = path.toUtf8();
  uint64_t size = 0;
  const std::unique_ptr<platform::File> file = openBulkFile(files, fileName, size);
  if (!file) return nullptr;
  try {
    const std::string nameLine = "file.name=" + platform::fileNameOf(fileName) + "\n";
    auto body = std::make_unique<MessageBody>();
    body->reserve(static_cast<size_t>(size) + nameLine.size() + kFramingBytes);
    readInto(*file, body->beginSection(kBinarySection, "policy", static_cast<size_t>(size)),
             static_cast<size_t>(size));
    body->endSection();
    body->addSection(kTextSection, "properties", nameLine);
    body->endSection();
    body->finish();
    _bulkLogSize = body->size();
    return body;
  } catch (const std::bad_alloc&) {
    std::fputs("Unable to allocate memory for the buffer\n", stdout);
    return nullptr;
  }
}

void HttpsMessageGenerator::resetResponse() {
  _response->reset();
}

bool HttpsMessageGenerator::finishResponse(bool unicode) {
  return _response->finish(unicode);
}

std::unique_ptr<ResponseParser> HttpsMessageGenerator::releaseResponse() {
  return std::move(_response);
}

}  // namespace korvane
