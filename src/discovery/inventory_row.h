// A row of an inventory, as it is written and as it counts for a checksum (docs/discovery.md).
//
// Lifetime: a value that is used again for each row. Threads: one. Errors: none; what is no text becomes U+FFFD.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

// `text` as it stands in an attribute: control characters and what is no UTF-8 replaced, at most 32,768 bytes.
std::string cleanText(std::string_view text);

class InventoryRow {
 public:
  enum class Counts { no, yes };

  void begin(std::string_view element);
  // Left out when the text is empty.
  void add(std::string_view name, std::string_view text, Counts counts = Counts::yes);
  void addAlways(std::string_view name, std::string_view text, Counts counts = Counts::yes);
  void add(std::string_view name, uint64_t number, Counts counts = Counts::yes);
  // Bytes that are no clean text, in hexadecimal under another name.
  void addBytesIfUnclean(std::string_view name, std::string_view bytes);
  // The row with its end and a line feed.
  std::string_view finish();
  // What counts, each part with its length: no two rows that differ give the same.
  const std::string& counted() const { return _counted; }

 private:
  std::string _xml, _counted;
};

// The sum of the SHA-256 numbers of what is added, modulo 2^256, in whatever order.
class RowSum {
 public:
  void add(const InventoryRow& row);
  // The SHA-256 of the sum and the count of the rows.
  std::string text() const;

 private:
  std::array<uint8_t, 32> _sum{};  // the most significant byte first
  uint64_t _rows = 0;
};

}  // namespace korvane
