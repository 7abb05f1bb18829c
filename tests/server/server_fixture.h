// A running server of the test's own with a plain client for either port.
#pragma once

#include <gmock/gmock.h>
#include <httplib.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/server/agent_client.h"
#include "tools/server/server.h"

namespace korvane::server {

using Json = nlohmann::json;

struct Answer {
  bool arrived = false;  // a whole HTTP answer
  int status = 0;
  int korvaneError = 0;
  std::string charset;
  std::string body;

  // The properties of a well-formed answer.
  WireProperties properties() const;
  std::string property(const std::string& name) const { return propertyOf(properties(), name); }
};

// A body of properties sections, closed with the end marker.
std::string messageOf(const std::vector<WireProperties>& sections);
// The headers of an agent, in their order; without a GUID when it is empty.
ClientHeaders headersOf(const std::string& guid);
// A status message of an agent.
std::string statusMessage(const WireProperties& ledger = {});
// A body of records with these sequence numbers.
std::string eventsFrom(int64_t first, int64_t last);
std::string certificateFile(const std::string& name);

class ServerTest : public testing::Test {
 protected:
  ServerTest();
  ~ServerTest() override;

  // Starts the server; a test that needs options sets them before.
  void start();
  AgentClient client(int port, const std::string& address = "127.0.0.1") const;
  // With the headers of an agent; one without a GUID, for registrations and connection tests.
  Answer post(const std::string& word, const std::string& body, const std::string& guid = {});
  static Answer post(AgentClient& by, const std::string& word, const std::string& body,
                     const std::string& guid);
  static Answer post(AgentClient& by, const std::string& word, const std::string& body,
                     const ClientHeaders& headers);
  std::string registerAgent(const WireProperties& attributes = {{"agent.name", "one"}});

  Json get(const std::string& path) const;
  // Sends JSON and expects success.
  Json command(const std::string& path, const Json& body) const;
  httplib::Result tryCommand(const std::string& path, const Json& body) const;
  void remove(const std::string& path) const;
  // Puts a file where assignments find it.
  void serveFile(const std::string& name, const std::string& bytes) const;

  std::string _directory;
  ServerOptions _options;
  std::unique_ptr<Server> _server;
  std::unique_ptr<AgentClient> _client;
};

}  // namespace korvane::server
