// Reads a server's answer: header lines, and a body in the framing of message_body.h, into the
// parts that the exchanges look at. It works on bytes alone and knows neither sockets nor settings.
//
// Give it every header line and body piece as they arrive, then finish(). It keeps the body and
// hands out views into it: they are valid until reset() and die with the parser. Used by one thread
// at a time.
//
// Headers: names are compared without case, a line may end in CR LF, LF or nothing; one without a
// colon is skipped. A status line begins a new block, and only the last block's error code and
// charset count (an interim answer or a proxy's comes before the server's own).
//
// Errors: an answer that exceeds a bound, ends inside a section, or declares a length that is no
// number, is negative, or reaches beyond the bytes received is malformed. finish() gives false then
// and fault() says what is wrong and where. The parts are empty then: nothing of such an answer is
// used.
//
//   ResponseParser response;
//   response.addHeaderLine("Korvane-Error: 0\r\n");
//   response.addBody("EOF_FLAG\n");
//   if (!response.finish(false)) complain(response.fault());
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/growing_buffer.h"
#include "util/property_list.h"
#include "util/string.h"

namespace korvane {

// What one answer may hold. Memory grows with what arrives, never with what is declared, and with
// all that is made of an answer stays 64 MiB below what it was before.
struct ResponseLimits {
  size_t headerBytes = 256 * 1024;
  size_t headerCount = 512;
  size_t bodyBytes = 62 * 1024 * 1024;
  size_t textBytes = 8 * 1024 * 1024;  // of the sections of text and XML together
  size_t errorTextBytes = 64 * 1024;   // what is longer is cut
  size_t sections = 10'000;
  size_t properties = 100'000;
};

class ResponseParser {
 public:
  struct Binary {
    std::string_view name;  // "policy" or "zipdata"
    std::string_view bytes;
    bool wide = false;  // the agent's Unicode setting
  };

  explicit ResponseParser(const ResponseLimits& limits = {})
      : _limits(limits), _body(limits.bodyBytes) {}
  ResponseParser(const ResponseParser&) = delete;
  ResponseParser& operator=(const ResponseParser&) = delete;

  void reset();
  void addHeaderLine(std::string_view line);
  void addBody(std::string_view piece);
  // A bound was exceeded; what still arrives is dropped.
  bool refused() const { return !_fault.empty(); }

  // Walks the body. False: malformed. `unicode` is the agent's Unicode setting.
  [[nodiscard]] bool finish(bool unicode);
  const std::string& fault() const { return _fault; }
  // That is because the connection ended too early.
  bool brokenOff() const { return _brokenOff; }

  // Headers of all blocks, in the order received.
  const PropertyList& headers() const { return _headers; }
  // The value of "Korvane-Error"; 0 when there is none.
  int errorCode() const { return _errorCode; }
  // The charset is "UTF-16LE": properties and error text are.
  bool wide() const { return _wide; }

  // One list for each section of properties.
  const std::vector<PropertyList>& properties() const { return _properties; }
  // The server's error text; absent when it sent none.
  const std::optional<STRING>& errorText() const { return _errorText; }
  // XML sections as (name, text).
  const PropertyList& texts() const { return _texts; }
  const std::vector<Binary>& binaries() const { return _binaries; }

  static constexpr char kNoErrorText[] = "Server did not return any error string.";

 private:
  struct SectionHeader {
    size_t at = 0;  // its first byte
    std::string_view format;
    std::string_view name;
    std::optional<size_t> length;
  };
  // How reading a section header or a section went on.
  enum class Walk { goesOn, ends, malformed };

  void beginBlock();
  void keepHeader(std::string_view name, std::string_view value);
  void refuse(std::string fault);
  [[nodiscard]] Walk malformed(const SectionHeader& header, const std::string& what);
  [[nodiscard]] bool nextLine(std::string_view& line);
  [[nodiscard]] bool skipToSection();
  [[nodiscard]] Walk readSection(bool unicode);
  [[nodiscard]] Walk readSectionHeader(SectionHeader& header);
  [[nodiscard]] Walk readHeaderLine(std::string_view line, SectionHeader& header);
  [[nodiscard]] Walk parseSection(const SectionHeader& header, bool unicode);
  [[nodiscard]] bool parseText(std::string_view name, std::string_view payload);
  std::string_view nextPair(std::string_view& rest) const;
  [[nodiscard]] bool parseProperties(std::string_view payload);
  STRING decode(std::string_view bytes) const;
  void checkWhole();
  void dropParts();

  const ResponseLimits _limits;

  PropertyList _headers;
  size_t _headerBytes = 0;
  size_t _headerLines = 0;
  int _errorCode = 0;
  bool _wide = false;
  bool _encoded = false;
  bool _insideHeaders = false;  // a block has begun and its empty line has not come
  bool _openEnded = false;      // only the end of the connection ends the body
  platform::GrowingBuffer _body;
  std::string _fault;
  bool _brokenOff = false;

  size_t _at = 0;               // read position in _body
  bool _insideDropped = false;  // the walk goes on in the payload of a dropped section
  size_t _sectionCount = 0;
  size_t _propertyCount = 0;
  size_t _textBytes = 0;
  std::vector<PropertyList> _properties;
  std::optional<STRING> _errorText;
  PropertyList _texts;
  std::vector<Binary> _binaries;
};

}  // namespace korvane
