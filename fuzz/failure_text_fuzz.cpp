// Any evidence of an exchange that failed: what it comes to is one line of valid UTF-8 without
// control characters, of bounded length, and the URL's password is not in it; nor is it in what is
// shown of libcurl's trace. The first bytes are code, status and TLS's numbers, the fields behind
// them end in 0xff each.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "comm/curl_trace.h"
#include "comm/failure_cause.h"
#include "platform/fake/fake_platform.h"
#include "util/utf8.h"

namespace {

using namespace korvane;

constexpr size_t kMostBytes = 4096;
constexpr char kSecret[] = "hunter2x";
constexpr int kNumbers = 10;

void check(const std::string& text, size_t most) {
  if (text.size() > most || !isValidUtf8(text)) std::abort();
  for (const char c : text)
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) std::abort();
  if (text.find(kSecret) != std::string::npos) std::abort();
}

std::vector<std::string> fieldsOf(const std::string& bytes) {
  std::vector<std::string> fields(1);
  for (const char c : bytes) {
    if (c == '\xff')
      fields.emplace_back();
    else
      fields.back() += c;
  }
  // The secret is in one place alone, where this puts it.
  for (std::string& field : fields)
    if (field.find(kSecret) != std::string::npos) field.clear();
  fields.resize(11);
  return fields;
}

void checkTrace(const std::string& text) {
  const std::string url = "https://ann:" + std::string(kSecret) + text + "@host/";
  for (const std::string& line : {"Proxy is '" + url + "'", url, "cannot use " + url})
    if (maskedRemark(line).find(kSecret) != std::string::npos) std::abort();
  const std::string header = text + "\r\nAuthorization: Basic " + kSecret + "\r\n\r\n";
  for (const curl_infotype type : {CURLINFO_HEADER_IN, CURLINFO_HEADER_OUT})
    if (traceText(type, header).find(kSecret) != std::string::npos) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static platform::FakePlatform fake;
  if (size < kNumbers) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + kNumbers, size - kNumbers);
  const std::vector<std::string> fields = fieldsOf(bytes);
  checkTrace(fields[0]);
  TransportRequest request;
  const char* const schemes[] = {"https://", "http://", "", "gopher://"};
  request.url = schemes[data[0] % 4] + std::string("ann:") + kSecret + fields[0] + "@" + fields[1];
  request.plainAllowed = data[1] & 1;
  request.caFile = data[1] & 2 ? "/ca.pem" : "";
  request.identity.clientCertificate = data[1] & 4 ? "/client.pem" : "";
  TransportResult result;
  result.httpStatus = data[2] * 4;
  result.errorText = fields[2].empty() ? "an error" : fields[2];  // libcurl always has one
  result.answerBroken = data[1] & 8;
  TransferTrail& trail = result.trail;
  trail.lookedUpUs = data[1] & 16;
  trail.connectedUs = data[1] & 32;
  trail.tlsUs = data[1] & 64;
  trail.requestBytes = data[1] & 128;
  trail.headerBytes = data[3];
  trail.bodyBytes = data[3];
  trail.headersWhole = data[3] & 1;
  trail.proxyStatus = data[4] * 2;
  trail.systemError = data[5];
  trail.contentType = fields[3];
  trail.contentEncoding = fields[4];
  trail.redirectUrl =
      fields[5].empty() ? "" : "https://ann:" + std::string(kSecret) + "@" + fields[5];
  trail.bodyStart = fields[6];
  trail.tls.firstBytes = fields[7].substr(0, 5);
  trail.tls.version = data[6] & 1 ? "TLSv1.3" : "TLSv1.2";
  trail.tls.certificateAsked = data[6] & 2;
  trail.tls.alertReceived = data[6] & 4 ? data[7] : -1;
  trail.tls.chain = {{fields[8], fields[9], "2026-01-01T00:00:00Z", "2027-01-01T00:00:00Z"}};
  trail.tls.verifyError = data[8] % 95;
  trail.tls.verifyDepth = data[6] & 8 ? 1 : 0;
  trail.tls.identity = static_cast<TlsTrail::Identity>(data[9] % 4);
  trail.tls.names.assign(data[9] / 16, fields[10]);
  const int code = data[7] % 102 - 1;
  const FailureCause cause = findCause({.code = code,
                                        .request = request,
                                        .result = result,
                                        .files = fake.files,
                                        .fault = data[6] & 128 ? "a fault" : "",  // its own words
                                        .refused = (data[6] & 16) != 0,
                                        .brokenOff = (data[6] & 32) != 0,
                                        .serverError = data[8],
                                        .serverText = fields[3],
                                        .stopped = (data[6] & 64) != 0});
  if (code != 0 && !cause.failed()) std::abort();
  check(cause.text(), kMostBytes);
  check(cause.nextStep, kMostBytes);
  return 0;
}
