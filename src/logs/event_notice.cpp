#include "logs/event_notice.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace korvane {
namespace {

// An opening brace and the comma behind a record, whose last field's comma is its closing brace;
// quotes, colon and the comma behind a field.
constexpr size_t kRecordFrame = 2;
constexpr size_t kFieldFrame = 6;
constexpr size_t kNoticeFrame = 256;

// How many bytes more than one a byte takes between the quotes.
constexpr std::array<uint8_t, 256> makeExtra() {
  std::array<uint8_t, 256> extra{};
  for (size_t c = 0; c < 0x20; ++c) extra[c] = 5;
  extra['"'] = extra['\\'] = 1;
  return extra;
}
constexpr auto kExtra = makeExtra();

uint8_t extraOf(char c) {
  return kExtra[static_cast<unsigned char>(c)];
}

size_t jsonBytes(std::string_view text) {
  size_t size = text.size();
  for (const char c : text) size += extraOf(c);
  return size;
}

void appendEscaped(std::string& out, char c) {
  constexpr char kDigits[] = "0123456789abcdef";
  if (extraOf(c) == 1) {
    (out += '\\') += c;
    return;
  }
  out += "\\u00";
  (out += kDigits[c >> 4 & 0xF]) += kDigits[c & 0xF];
}

void appendText(std::string& out, std::string_view text) {
  out += '"';
  size_t plain = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (extraOf(text[i]) == 0) continue;
    out.append(text, plain, i - plain);
    appendEscaped(out, text[i]);
    plain = i + 1;
  }
  out.append(text, plain);
  out += '"';
}

void appendPair(std::string& out, std::string_view name, std::string_view value) {
  appendText(out, name);
  out += ':';
  appendText(out, value);
  out += ',';
}

// Turns the comma behind a list's last element, or nothing behind its beginning, into its end.
void close(std::string& out, char end) {
  if (out.back() == ',')
    out.back() = end;
  else
    out += end;
}

// Gives a record's values, name and all, to `give`.
template <class Give>
struct Values {
  const EventRecord& record;
  const RecordNotes& recordNotes;
  Give give;
  void field(size_t n, std::string_view value) { give(fieldName(n), value); }
  void notes() { recordNotes.visit(record.count, record.lastTime, give); }
};

template <class Give>
void visitValues(const EventRecord& record, const RecordNotes& notes, Give give) {
  Values<Give> values{record, notes, give};
  visitFieldMap(record, values);
}

std::string opened(int messageId, const std::string& sendId, size_t records, size_t bytes) {
  std::string out;
  out.reserve(bytes + sendId.size() + kNoticeFrame);
  out += R"({"jsonrpc":"2.0","id":)" + std::to_string(messageId);
  out += R"(,"name":"RPC_EVENT_NOTICE","params":{"eventSendID":)";
  appendText(out, sendId);
  out += R"(,"count":")" + std::to_string(records) + R"(","events":[)";
  return out;
}

}  // namespace

size_t eventNoticeBytes(const EventRecord& record, const RecordNotes& notes) {
  size_t size = kRecordFrame;
  visitValues(record, notes, [&size](std::string_view name, std::string_view value) {
    size += name.size() + jsonBytes(value) + kFieldFrame;
  });
  return size;
}

std::string eventNotice(int messageId, const std::string& sendId, const LogBatch& batch) {
  const size_t records = batch.records.size();
  size_t bytes = 0;
  for (size_t i = 0; i < records; ++i) bytes += eventNoticeBytes(batch.records.at(i), batch.notes);
  std::string out = opened(messageId, sendId, records, bytes);
  for (size_t i = 0; i < records; ++i) {
    out += '{';
    visitValues(
        batch.records.at(i), batch.notes,
        [&out](std::string_view name, std::string_view value) { appendPair(out, name, value); });
    close(out, '}');
    out += ',';
  }
  close(out, ']');
  return out += "}}";
}

}  // namespace korvane
