// One protocol message: request headers, sections, and the answer that came back.
//
// It owns its sections and copies of all data that they refer to, and the answer until
// releaseResponse() hands it on. Used by one thread at a time. Nothing throws but std::bad_alloc;
// buildBulkLogMessage() answers null, with a trace line that names the file.
//
//   HttpsMessageGenerator message(settings.getCharset());
//   message.addProperties({{"update.policy", "true"}});
//   StringBuffer body;
//   message.writeBody(body);
#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "comm/message_body.h"
#include "comm/response_parser.h"
#include "comm/section.h"
#include "platform/fwd.h"
#include "util/property_list.h"

namespace korvane {

class HttpsMessageGenerator {
 public:
  // With the three fixed headers: "Korvane-Format-Version", "Content-Type" and "Korvane-Charset".
  explicit HttpsMessageGenerator(const STRING& charset);
  HttpsMessageGenerator(const HttpsMessageGenerator&) = delete;
  HttpsMessageGenerator& operator=(const HttpsMessageGenerator&) = delete;

  // Appends the header "Korvane-GUID".
  void setGUID(const STRING& guid);
  const PropertyList& headers() const { return _headers; }
  // The same as a transport takes them.
  std::vector<std::pair<std::string, std::string>> wireHeaders() const;

  // A section "text/plain", "properties".
  void addProperties(const PropertyList& pairs);
  // A section "binary/zip", "policy", whatever the bytes are.
  void addBinary(const char* bytes, size_t length);
  // A section that refers to data of the caller, which must outlive the message.
  void addSection(const Section& section);
  const std::vector<Section>& sections() const { return _sections; }

  // A body that is finished already and outlives the message; it takes the place of the sections.
  void setBody(const MessageBody& finished) { _finishedBody = &finished; }
  const MessageBody* finishedBody() const { return _finishedBody; }

  // Every section with its line feed, then the end marker. One of an unknown type adds its line
  // feed and a line on the console.
  void writeBody(StringBuffer& buffer) const;

  // The body that carries a file: its bytes as a binary section, then "file.name" as properties.
  // Null when the file cannot be read.
  [[nodiscard]] std::unique_ptr<MessageBody> buildBulkLogMessage(platform::Files& files,
                                                                 const STRING& path);
  // Size in bytes of what buildBulkLogMessage() made last.
  size_t bulkLogSize() const { return _bulkLogSize; }

  // The answer
  void resetResponse();
  void addResponseHeaderLine(std::string_view line) { _response->addHeaderLine(line); }
  void addResponseBodyLine(std::string_view piece) { _response->addBody(piece); }
  const ResponseParser& response() const { return *_response; }
  // Reads the body; false when the answer is malformed. `unicode` is the agent's Unicode setting.
  [[nodiscard]] bool finishResponse(bool unicode);
  // Hands the answer over. The message is done then: it takes no other.
  [[nodiscard]] std::unique_ptr<ResponseParser> releaseResponse();

 private:
  PropertyList _headers;
  std::vector<Section> _sections;
  std::list<PropertyList> _ownedPairs;
  std::list<std::string> _ownedBytes;
  const MessageBody* _finishedBody = nullptr;
  size_t _bulkLogSize = 0;
  std::unique_ptr<ResponseParser> _response;
};

}  // namespace korvane
