#include "tests/server/agent_client.h"

#include <strings.h>

namespace korvane::server {

namespace {

constexpr long kLimitSeconds = 30;

size_t onHeader(char* bytes, size_t size, size_t count, void* to) {
  const std::string line(bytes, size * count);
  const size_t colon = line.find(':');
  if (colon != std::string::npos) {
    const size_t start = line.find_first_not_of(' ', colon + 1),
                 end = line.find_last_not_of("\r\n");
    static_cast<ClientAnswer*>(to)->headers.emplace_back(
        line.substr(0, colon), start > end ? "" : line.substr(start, end + 1 - start));
  }
  return size * count;
}

size_t onBody(char* bytes, size_t size, size_t count, void* to) {
  static_cast<ClientAnswer*>(to)->body.append(bytes, size * count);
  return size * count;
}

}  // namespace

std::string ClientAnswer::header(const std::string& name) const {
  for (const auto& [known, value] : headers) {
    if (strcasecmp(known.c_str(), name.c_str()) == 0) return value;
  }
  return {};
}

AgentClient::AgentClient(const std::string& address, int port, const std::string& caFile)
    : _curl(curl_easy_init(), curl_easy_cleanup),
      _origin("https://" + address + ":" + std::to_string(port)) {
  CURL* curl = _curl.get();
  curl_easy_setopt(curl, CURLOPT_CAINFO, caFile.c_str());
  curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, kLimitSeconds);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, onHeader);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, onBody);
}

void AgentClient::keepNothing() {
  curl_easy_setopt(_curl.get(), CURLOPT_FORBID_REUSE, 1L);
}

ClientAnswer AgentClient::post(const std::string& path, const ClientHeaders& headers,
                               const std::string& body) {
  ClientAnswer answer;
  curl_slist* lines = curl_slist_append(nullptr, "Expect:");
  for (const auto& [name, value] : headers)
    lines = curl_slist_append(lines, (value.empty() ? name + ";" : name + ": " + value).c_str());
  CURL* curl = _curl.get();
  curl_easy_setopt(curl, CURLOPT_URL, (_origin + path).c_str());
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, lines);
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &answer);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
  answer.arrived = curl_easy_perform(curl) == CURLE_OK;
  curl_slist_free_all(lines);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  answer.status = answer.arrived ? static_cast<int>(status) : 0;
  return answer;
}

}  // namespace korvane::server
