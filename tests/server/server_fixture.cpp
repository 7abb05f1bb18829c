#include "tests/server/server_fixture.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>

namespace korvane::server {

namespace {

constexpr char kBasePath[] = "/korvane/agent/";
constexpr time_t kClientLimitSeconds = 30;

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
  _client = client(_server->port());
}

std::unique_ptr<httplib::SSLClient> ServerTest::client(int port) const {
  auto made = std::make_unique<httplib::SSLClient>("127.0.0.1", port);
  made->set_ca_cert_path(certificateFile("ca.pem").c_str());
  made->enable_server_certificate_verification(true);
  made->set_keep_alive(true);
  made->set_read_timeout(kClientLimitSeconds);
  return made;
}

Answer ServerTest::post(const std::string& word, const std::string& body, const std::string& guid) {
  return post(*_client, kBasePath + word, body, guid);
}

Answer ServerTest::post(httplib::SSLClient& by, const std::string& path, const std::string& body,
                        const std::string& guid) {
  httplib::Headers headers = {{"Korvane-Format-Version", "1.0"}, {"Korvane-Charset", ""}};
  if (!guid.empty()) headers.emplace("Korvane-GUID", guid);
  const auto result = by.Post(path, headers, body, "application/x-korvane");
  Answer answer;
  answer.arrived = static_cast<bool>(result);
  if (!result) return answer;
  answer.status = result->status;
  answer.charset = result->get_header_value("Korvane-Charset");
  const std::string error = result->get_header_value("Korvane-Error");
  answer.korvaneError = error.empty() ? 0 : std::stoi(error);
  answer.body = result->body;
  return answer;
}

std::string ServerTest::registerAgent(const WireProperties& attributes) {
  return post("register", messageOf({attributes})).property("agent.id");
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
