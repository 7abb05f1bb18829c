// One agent's application data: a simulated machine, an inventory that the test makes up, and a
// management server that keeps what it is sent.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "archive/zip_archive.h"
#include "comm/server_connection.h"
#include "config/settings.h"
#include "discovery/app_data_worker.h"
#include "platform/fake/seeded_random.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "tests/support/simulated_agent.h"
#include "util/agent_run.h"
#include "util/sha256.h"

namespace korvane::tests {

inline constexpr char kFolder[] = "/opt/korvane/IPS/appdata/";
inline constexpr size_t kMib = 1024 * 1024;

// Text that hardly gets smaller.
inline std::string noise(size_t bytes, uint64_t seed = 1) {
  platform::SeededRandom random(seed);
  std::string text;
  while (text.size() < bytes) {
    const uint64_t next = random.next();
    text.append(reinterpret_cast<const char*>(&next), sizeof next);
  }
  text.resize(bytes);
  return text;
}

class MadeUpInventory final : public InventorySource {
 public:
  InventoryResult collect(StopToken& stop, const InventoryFiles& files) override {
    ++collections;
    definition = files.definition;
    if (takesMs && stop.sleepFor(takesMs)) return {.stopped = true};
    if (!result.written) return result;
    const auto put = [](const STRING& path, const std::string& bytes) {
      std::unique_ptr<platform::File> file;
      platform::Files& disk = platform::current().files;
      return disk.open(path.toUtf8(), platform::OpenMode::create, file) == 0 &&
             file->write(bytes.data(), bytes.size()) == 0;
    };
    bool written = put(files.output, xml);
    if (!shortcuts.empty()) written = put(files.shortcuts, shortcuts) && written;
    return written ? result : InventoryResult{.error = "No space left"};
  }

  std::string xml = "<inventory/>";
  std::string shortcuts;
  uint32_t takesMs = 0;
  int collections = 0;
  STRING definition;
  InventoryResult result{.written = true,
                         .complete = true,
                         .rows = 3,
                         .skipped = 1,
                         .applicationsChecksum = "aa",
                         .filesChecksum = "ff"};
};

// What a server makes of the messages.
struct ReceivedData {
  struct Message {
    std::map<std::string, std::string> properties;
    std::vector<std::string> names;  // of the properties, in their order
    std::string data;
    int64_t at = 0;
    std::string of(const std::string& name) const {
      const auto found = properties.find(name);
      return found == properties.end() ? "" : found->second;
    }
  };

  static Message parse(const std::string& body) {
    Message message;
    size_t at = 0;
    for (bool more = true; more && body.compare(at, 9, "EOF_FLAG\n") != 0;) {
      const size_t head = body.find("\n\n", at);
      const size_t length = std::stoul(body.substr(body.rfind('=', head) + 1));
      const std::string payload = body.substr(head + 2, length);
      if (body.compare(at, 23, "Data-Format=text/plain\n") == 0) {
        for (size_t line = 0, end; (end = payload.find('\n', line)) != std::string::npos;
             line = end + 1) {
          const std::string pair = payload.substr(line, end - line);
          const std::string name = pair.substr(0, pair.find('='));
          if (name.empty()) continue;
          message.names.push_back(name);
          message.properties[name] = pair.substr(name.size() + 1);
        }
      } else {
        message.data = payload;
      }
      at = head + 2 + length + 1;
      more = at < body.size();
    }
    return message;
  }

  // The archive of a request as far as it can be put together: the pieces of its last digest.
  static std::string assembled(const std::vector<Message>& messages, const std::string& request) {
    std::string digest, size, all;
    std::map<size_t, std::string> pieces;
    for (const Message& message : messages) {
      if (message.of("application.requestID") != request || message.data.empty()) continue;
      if (message.of("application.data.sha256") != digest) pieces.clear();
      digest = message.of("application.data.sha256");
      size = message.of("application.data.size");
      pieces[std::stoul(message.of("application.data.offset"))] = message.data;
    }
    for (const auto& [offset, bytes] : pieces)
      if (offset == all.size()) all += bytes;
    return std::to_string(all.size()) == size && sha256Hex(all) == digest ? all : "";
  }
  static std::string entry(const std::string& archive, const char* name) {
    archive::ZipArchive zip("received", archive);
    archive::Refusal refusal;
    std::string content;
    return zip.open(refusal) && zip.read(name, content, refusal) ? content : refusal.text();
  }
};

class AppDataWorld {
 public:
  explicit AppDataWorld(const std::string& settings = "", const char* serviceType = "1")
      : machine({.serviceType = serviceType,
                 .settings = "agent.id=known\n[ApplicationData]\n"
                             "appdata.config.file=discovery.xml\nappdata.max.payload=1\n" +
                             settings}) {
    machine.server.setHandler([this](const ScriptedServer::Request& request) {
      if (request.path != "result") return Answer();
      messages.push_back(ReceivedData::parse(request.body));
      messages.back().at = machine.now();
      return answer ? answer(messages.back()) : Answer();
    });
  }

  AgentConfig& config() { return *AgentConfig::getInstance(); }
  Settings settings() { return settingsOf(config()); }
  AppDataSettings kept() { return {settings().updates, settings().file}; }
  AppDataRequests& requests() {
    return AgentRun::current().part<AppDataRequests>(RunPart::applicationData);
  }
  AppDataParts parts(bool server = true) {
    platform::Platform& now = platform::current();
    return {now.files,  now.clock, kept(),
            requests(), inventory, server ? &currentConnection() : nullptr,
            false};
  }
  AppDataRequests::Asked ask(const char* request) { return requests().ask(kept(), request); }
  // What the collecting thread does with the requests that there are.
  void serve(bool server = true) {
    AppDataWorker worker(parts(server), shutdownToken());
    worker.recover();
    worker.serve();
  }
  std::vector<std::string> folder() {
    std::vector<std::string> names;
    for (const std::string& path : machine.fake.files.paths())
      if (path.starts_with(kFolder)) names.push_back(path.substr(sizeof kFolder - 1));
    return names;
  }
  std::string xml(const std::string& request = "r-1") {
    return ReceivedData::entry(ReceivedData::assembled(messages, request), "inventory.xml");
  }

  MadeUpInventory inventory;
  std::vector<ReceivedData::Message> messages;
  std::function<Answer(const ReceivedData::Message&)> answer;
  SimulatedMachine machine;
};

}  // namespace korvane::tests
