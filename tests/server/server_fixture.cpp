#include "tests/server/server_fixture.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace korvane::server {

namespace {

constexpr char kBasePath[] = "/korvane/agent/";

}  // namespace

WireProperties Answer::properties() const {
  const WireMessage message = readMessage(body);
  EXPECT_EQ(message.error, "") << body;
  return message.sections.empty() ? WireProperties()
                                  : readProperties(message.sections.front().payload);
}

std::string messageOf(const std::vector<WireProperties>& sections) {
  std::string body;
  for (const WireProperties& section : sections) writeProperties(body, section);
  writeEnd(body);
  return body;
}

std::string eventsFrom(int64_t first, int64_t last) {
  std::vector<WireProperties> records;
  for (int64_t i = first; i <= last; ++i) {
    records.push_back(
        {{"v2", std::to_string(i)}, {"v3", "2026-11-21 10:00:00"}, {"v1", "TFIL"}, {"a5", "1"}});
  }
  return messageOf(records);
}

ClientHeaders headersOf(const std::string& guid) {
  ClientHeaders headers = {{"Korvane-Format-Version", "1.0"},
                           {"Content-Type", "application/x-korvane"},
                           {"Korvane-Charset", ""}};
  if (!guid.empty()) headers.emplace_back("Korvane-GUID", guid);
  return headers;
}

std::string statusMessage(const WireProperties& ledger) {
  WireProperties status = {{"result.type", "policy"},   {"result.errorcode", "0"},
                           {"result.errormessage", ""}, {"rid.applied", ""},
                           {"rid.group", ""},           {"policy.name", ""},
                           {"policy.path", "builtin"},  {"agent.timezone", "UTC"},
                           {"agent.domain.name", ""},   {"agent.osversion", "x"}};
  status.insert(status.end(), ledger.begin(), ledger.end());
  return messageOf({status});
}

std::string certificateFile(const std::string& name) {
  return std::string(KORVANE_TEST_CERTS "/") + name;
}

ServerTest::ServerTest() {
  char pattern[] = "/tmp/korvane-server-XXXXXX";
  _directory = mkdtemp(pattern);
  _options.dataDirectory = _directory;
  _options.certificateFile = certificateFile("server.pem");
  _options.keyFile = certificateFile("server.key");
}

ServerTest::~ServerTest() {
  _client.reset();
  _server.reset();
  std::filesystem::remove_all(_directory);
}

void ServerTest::start() {
  _server = std::make_unique<Server>(_options);
  _server->start();
  _client = std::make_unique<AgentClient>(client(_server->port()));
}

AgentClient ServerTest::client(int port, const std::string& address) const {
  return {address, port, certificateFile("ca.pem")};
}

Answer ServerTest::post(const std::string& word, const std::string& body, const std::string& guid) {
  return post(*_client, word, body, guid);
}

Answer ServerTest::post(AgentClient& by, const std::string& word, const std::string& body,
                        const std::string& guid) {
  return post(by, word, body, headersOf(guid));
}

Answer ServerTest::post(AgentClient& by, const std::string& word, const std::string& body,
                        const ClientHeaders& headers) {
  ClientAnswer got = by.post(kBasePath + word, headers, body);
  const std::string error = got.header("Korvane-Error");
  return {got.arrived, got.status, error.empty() ? 0 : std::stoi(error),
          got.header("Korvane-Charset"), std::move(got.body)};
}

std::string ServerTest::registerAgent(const WireProperties& attributes) {
  return post("register", messageOf({attributes, {}})).property("agent.id");
}

Json ServerTest::get(const std::string& path) const {
  const auto result = httplib::Client("127.0.0.1", _server->adminPort()).Get(path);
  EXPECT_TRUE(result && result->status == 200) << path;
  return result ? Json::parse(result->body) : Json();
}

httplib::Result ServerTest::tryCommand(const std::string& path, const Json& body) const {
  return httplib::Client("127.0.0.1", _server->adminPort())
      .Post(path, body.dump(), "application/json");
}

Json ServerTest::command(const std::string& path, const Json& body) const {
  const auto result = tryCommand(path, body);
  EXPECT_TRUE(result && result->status == 200)
      << path << " " << body << (result ? result->body : "no answer");
  return result ? Json::parse(result->body) : Json();
}

void ServerTest::remove(const std::string& path) const {
  const auto result = httplib::Client("127.0.0.1", _server->adminPort()).Delete(path);
  EXPECT_TRUE(result && result->status == 200) << path;
}

void ServerTest::serveFile(const std::string& name, const std::string& bytes) const {
  std::ofstream(_directory + "/served/" + name, std::ios::binary) << bytes;
}

}  // namespace korvane::server
