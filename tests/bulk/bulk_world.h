// Bulk log transfer on a machine in memory, and a server that keeps account.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/zip_archive.h"
#include "bulk/bulk_transfer.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/settings.h"
#include "eventlog/event_log_file.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/faulty_files.h"
#include "platform/paths.h"
#include "util/sha256.h"

namespace korvane::tests {

inline constexpr char kHome[] = "/opt/korvane/IPS";
inline constexpr char kOwn[] = "/opt/korvane/IPS/logs/korvane-agent-20260101000000000-";
inline constexpr char kIds[] = "/opt/korvane/IDS/logs/events-";
inline constexpr char kDriverLog[] = "/opt/korvane/drv/driver";
inline constexpr char kApp[] = "/srv/app/app.log";
inline constexpr char kStateFile[] = "/opt/korvane/IPS/bulk/bulk.state";

// What a management server has of the logs: by identifier, the bytes by their place.
struct BulkServer {
  struct Log {
    std::string path;
    std::map<uint64_t, std::string> ranges;
  };
  std::map<std::string, std::string> bundles;  // name: digest
  std::map<std::string, Log> logs;
  size_t repeated = 0;
  size_t parts = 0;
  std::string fault;  // the first

  void take(const std::string& name, const std::string& bytes) {
    const auto [known, fresh] = bundles.emplace(name, sha256Hex(bytes));
    if (!fresh) {
      ++repeated;
      if (known->second != sha256Hex(bytes)) note("other bytes under the name " + name);
      return;
    }
    archive::ZipArchive zip(name, bytes);
    archive::Refusal refusal;
    std::string text;
    bulk::Manifest manifest;
    if (!zip.open(refusal) || !zip.read(bulk::kManifestName, text, refusal) ||
        !bulk::parseManifest(text, manifest) || manifest.bundle != name ||
        zip.entries().size() != manifest.parts.size() + 1)
      return note("no bundle: " + refusal.text());
    for (const bulk::Part& part : manifest.parts) {
      std::string content;
      if (!zip.read(part.entry, content, refusal) || content.size() != part.to - part.from ||
          (!part.digest.empty() && part.digest != sha256Hex(content)))
        note("part " + part.entry);
      Log& log = logs[part.log];
      log.path = part.path;
      for (const auto& [from, had] : log.ranges)
        if (part.from < from + had.size() && from < part.to) note("twice: " + part.path);
      log.ranges[part.from] = content;
      ++parts;
    }
  }
  void note(const std::string& text) {
    if (fault.empty()) fault = text;
  }
  // The content of all logs of a path, one behind the other.
  std::string content(const std::string& path) const {
    std::string all;
    for (const auto& [id, log] : logs)
      if (log.path == path)
        for (const auto& [from, bytes] : log.ranges) all += bytes;
    return all;
  }
  uint64_t bytes() const {
    uint64_t sum = 0;
    for (const auto& [id, log] : logs)
      for (const auto& [from, had] : log.ranges) sum += had.size();
    return sum;
  }
};

inline std::string linesOf(size_t bytes, char letter, bool random = false) {
  std::string text;
  for (uint64_t i = 0, bits = static_cast<uint64_t>(letter) + 1; text.size() < bytes; ++i) {
    text += std::to_string(i) + letter;
    for (int j = 0; random && j < 40; ++j) {
      bits = bits * 6364136223846793005u + 1442695040888963407u;
      text += static_cast<char>('!' + (bits >> 33) % 90);
    }
    text += '\n';
  }
  return text;
}

class BulkWorld : public testing::Test {
 protected:
  BulkWorld() {
    fake.files.makeDirectories(std::string(kHome) + "/logs");
    _current.emplace(system);
    setInstallRoot("/opt/korvane");
    eventlog::Settings own;
    own.directory = "/opt/korvane/own";
    eventlog::EventLog::open(own, fake.files, fake.clock);
    settings().setBulkTransferEnabled(true);
    settings().setHIDSLogFile(STRING(std::string(kIds) + "9.csv"));
  }
  ~BulkWorld() override { eventlog::EventLog::close(); }

  LogSettings& settings() { return settingsOf(*AgentConfig::getInstance()).logs; }

  bulk::Parts parts(platform::Files& disk) {
    return {
        .files = disk,
        .clock = fake.clock,
        .rights = fake.rights,
        .settings = settings(),
        .home = kHome,
        .send = [this, &disk](const std::string& path) { return receive(disk, path); },
        .ownLog = [] { return std::string(kOwn) + "9.log"; },
        .driver = {.current = [this](STRING& path) { return path = driverNow, !driverNow.empty(); },
                   .roll =
                       [this](const STRING& path, std::string& reason) {
                         reason = "refused";
                         if (!rolls) return false;
                         driverNow = path;
                         return true;
                       }},
        .profile = {},
        .lost =
            [this](const bulk::Loss& loss) {
              // As the ledger does: the same loss counts once.
              const bool again =
                  std::any_of(losses.begin(), losses.end(), [&](const bulk::Loss& told) {
                    return told.log == loss.log && told.from == loss.from && told.to == loss.to &&
                           told.cause == loss.cause;
                  });
              if (!again) losses.push_back(loss);
            }};
  }
  bulk::Offer receive(platform::Files& disk, const std::string& path) {
    offered.push_back(platform::fileNameOf(path));
    std::string bytes;
    if (platform::readWholeFile(disk, path, 64u << 20, bytes) != 0) return {.reason = "unreadable"};
    largest = std::max(largest, bytes.size());
    if (!answer.empty()) return {.reason = answer};
    server.take(platform::fileNameOf(path), bytes);
    if (onTaken) onTaken(platform::fileNameOf(path), bytes);
    return {.accepted = !answerIsLost, .reason = "lost"};
  }

  // A start of the agent.
  void restart(platform::Files* disk = nullptr) {
    _transfer.reset();
    _parts.emplace(parts(disk ? *disk : files));
    _transfer.emplace(*_parts, [this] { return stopAfter >= 0 && stopAfter-- == 0; });
  }
  // One look, and the wait behind it.
  uint32_t look() {
    if (!_transfer) restart();
    const uint32_t seconds = _transfer->look();
    fake.clock.advance(std::max<uint32_t>(seconds, 1) * 1000);
    return seconds;
  }
  void looks(int count) {
    while (count-- > 0) look();
  }
  const bulk::State& state() { return _transfer->state(); }

  void append(const std::string& path, const std::string& text) {
    std::unique_ptr<platform::File> file;
    ASSERT_EQ(fake.files.open(path, platform::OpenMode::append, file), 0);
    ASSERT_EQ(file->write(text.data(), text.size()), 0);
  }
  bool exists(const std::string& path) { return platform::fileExists(fake.files, path); }
  uint64_t lostBytes() const {
    uint64_t sum = 0;
    for (const bulk::Loss& loss : losses) sum += loss.to - loss.from;
    return sum;
  }
  size_t events(int id) {
    size_t count = 0;
    for (const std::string& path : fake.files.paths())
      if (path.starts_with("/opt/korvane/own/")) {
        const std::string content = fake.files.content(path),
                          wanted = "," + std::to_string(id) + ",";
        for (size_t at = 0; (at = content.find(wanted, at)) != std::string::npos; ++at) ++count;
      }
    return count;
  }

  platform::FakePlatform fake;
  platform::FaultyFiles files{fake.files};
  platform::Platform system = platform::withFiles(fake.platform(), files);
  BulkServer server;
  std::vector<std::string> offered;
  std::vector<bulk::Loss> losses;
  std::function<void(const std::string&, const std::string&)> onTaken;
  std::string answer;  // a refusal
  bool answerIsLost = false;
  STRING driverNow;
  bool rolls = true;
  size_t largest = 0;
  int stopAfter = -1;

 private:
  std::optional<platform::CurrentPlatform> _current;
  std::optional<bulk::Parts> _parts;
  std::optional<bulk::BulkTransfer> _transfer;
};

}  // namespace korvane::tests
