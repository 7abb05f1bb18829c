#include "comm/message_body.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

namespace korvane {
namespace {

constexpr size_t kFirstCapacity = 1024;
constexpr size_t kMaxDecimal = 20;  // digits of the largest size_t

char* put(char* at, std::string_view text) {
  if (!text.empty()) std::memcpy(at, text.data(), text.size());
  return at + text.size();
}

}  // namespace

void MessageBody::reserve(size_t capacity) {
  if (capacity <= _capacity) return;
  auto larger = std::make_unique_for_overwrite<char[]>(capacity);
  if (_size) std::memcpy(larger.get(), _data.get(), _size);
  _data = std::move(larger);
  _capacity = capacity;
}

char* MessageBody::grow(size_t bytes) {
  if (bytes > _capacity - _size) {
    reserve(std::max({_size + bytes, _capacity * 2, kFirstCapacity}));
  }
  char* at = _data.get() + _size;
  _size += bytes;
  return at;
}

char* MessageBody::beginSection(std::string_view format, std::string_view name,
                                size_t payloadBytes) {
  static constexpr std::string_view kFormat = "Data-Format=";
  static constexpr std::string_view kType = "\nData-Type=";
  static constexpr std::string_view kLength = "\nData-Length=";
  static constexpr std::string_view kEnd = "\n\n";

  char digits[kMaxDecimal];
  const auto length = std::to_chars(digits, digits + sizeof digits, payloadBytes);
  const std::string_view decimal(digits, static_cast<size_t>(length.ptr - digits));

  char* at = grow(kFormat.size() + format.size() + kType.size() + name.size() + kLength.size() +
                  decimal.size() + kEnd.size() + payloadBytes);
  for (std::string_view part : {kFormat, format, kType, name, kLength, decimal, kEnd}) {
    at = put(at, part);
  }
  return at;
}

char* MessageBody::beginProperties(size_t payloadBytes) {
  return beginSection("text/plain", "properties", payloadBytes);
}

void MessageBody::endSection() {
  append("\n");
}

void MessageBody::addSection(std::string_view format, std::string_view name,
                             std::string_view payload) {
  put(beginSection(format, name, payload.size()), payload);
}

void MessageBody::finish() {
  append("EOF_FLAG\n");
}

void MessageBody::append(std::string_view bytes) {
  put(grow(bytes.size()), bytes);
}

}  // namespace korvane
