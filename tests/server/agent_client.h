// A plain client of the agent port: POST over TLS on a connection that it keeps, the headers sent
// in the order given. It checks the server's certificate against a CA file, but not its name.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace korvane::server {

using ClientHeaders = std::vector<std::pair<std::string, std::string>>;

struct ClientAnswer {
  bool arrived = false;  // a whole HTTP answer
  int status = 0;
  ClientHeaders headers;
  std::string body;

  // The first value of that name, compared without case; empty when there is none.
  std::string header(const std::string& name) const;
};

class AgentClient {
 public:
  AgentClient(const std::string& address, int port, const std::string& caFile);

  // From now on every request takes a connection of its own; libcurl repeats one that fails
  // on a kept one.
  void keepNothing();

  ClientAnswer post(const std::string& path, const ClientHeaders& headers, const std::string& body);

 private:
  std::unique_ptr<CURL, void (*)(CURL*)> _curl;
  std::string _origin;
};

}  // namespace korvane::server
