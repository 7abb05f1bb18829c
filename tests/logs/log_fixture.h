// An agent's surroundings in memory: files, clock, settings, and the agent's own log to
// look events up in.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/service_type.h"
#include "config/settings.h"
#include "eventlog/event_log_file.h"
#include "logs/event_notice.h"
#include "logs/forwarding_switch.h"
#include "logs/log_processor.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/faulty_files.h"

namespace korvane::tests {

inline constexpr char kLog[] = "/opt/korvane/IDS/logs/rt.csv";
inline constexpr char kNextLog[] = "/opt/korvane/IDS/logs/rt2.csv";
inline constexpr char kPointerFile[] = "/opt/korvane/IPS/hidslog1rtfilepointer";

class LogFixture : public testing::Test {
 protected:
  explicit LogFixture(int serviceType = 1) {
    fake.files.makeDirectories("/opt/korvane/IPS");
    beginRun(serviceType);
  }
  // A start of the agent on this machine.
  void beginRun(int serviceType) {
    _current.reset();
    _current.emplace(system);
    setInstallRoot("/opt/korvane");
    setServiceType(serviceType);
    eventlog::Settings settings;
    settings.directory = "/opt/korvane/IPS/logs";
    settings.tracing = true;
    eventlog::EventLog::open(settings, fake.files, fake.clock);
    config().setHIDSRTLogFile(kLog);
    setLimits(100, 100);
    ledger.emplace(platform::current().files, fake.clock);
    ledger->open("/opt/korvane/IPS/lossledger");
  }

  AgentConfig& config() { return *AgentConfig::getInstance(); }
  Settings settings() { return settingsOf(config()); }
  ForwardingParts parts() {
    platform::Platform& now = platform::current();
    return {now.files,          now.clock,
            shutdownToken(),    settings().logs,
            settings().machine, AgentConfig::getHIDSInterface(),
            counters,           *ledger};
  }
  void setLimits(int32_t read, int32_t batch) {
    config().setMaxMessagesToRead(read);
    config().setMaxBatchSize(batch);
  }
  void append(const std::string& path, const std::string& text) {
    std::unique_ptr<platform::File> file;
    ASSERT_EQ(files.open(path, platform::OpenMode::append, file), 0);
    ASSERT_EQ(file->write(text.data(), text.size()), 0);
  }
  // How many lines of the agent's own log hold a text.
  size_t inOwnLog(const std::string& text) {
    size_t count = 0;
    for (const std::string& path : fake.files.paths()) {
      if (path.find("/IPS/logs/") == std::string::npos) continue;
      const std::string content = fake.files.content(path);
      for (size_t at = 0; (at = content.find(text, at)) != std::string::npos; ++count)
        at = content.find('\n', at);
    }
    return count;
  }
  size_t events(int id) { return inOwnLog("," + std::to_string(id) + ","); }

  platform::FakePlatform fake;
  platform::FaultyFiles files{fake.files};
  platform::Platform system = platform::withFiles(fake.platform(), files);
  ForwardingCounters counters{fake.clock};
  std::optional<LossLedger> ledger;  // of the run
  ForwardingSwitch forwarding;

 private:
  std::optional<platform::CurrentPlatform> _current;
};

// Records as a writer hands them over.
class Batch {
 public:
  Batch(std::initializer_list<std::string> lines) {
    for (const std::string& line : lines) {
      ByteBuffer text;
      text.append(line);
      text.reserve(1);
      ParsedEvent record;
      EXPECT_EQ(parseEvent(text.data(), text.size(), record), ParseResult::accepted);
      _records.push(record);
    }
  }
  operator LogBatch() const { return {_records, _notes}; }

 private:
  RecordQueue _records;
  RecordNotes _notes{{"host", "192.0.2.1", "System", "hidslog1rt", "now"}};
};

inline std::vector<PropertyList> pairsOf(const LogBatch& batch) {
  std::vector<PropertyList> lists;
  for (size_t i = 0; i < batch.records.size(); ++i)
    lists.push_back(fieldPairs(batch.records.at(i), batch.notes));
  return lists;
}

// Keeps what it is given, and answers what the test says; 302 and 600 drop the batch.
class FakeDestination : public LogDestination {
 public:
  struct Received {
    std::vector<std::vector<PropertyList>> batches;
    std::function<int()> answer = [] { return 0; };  // asked when a batch has arrived
    bool bounded = false;                            // messages are, as an event notice is

    std::vector<PropertyList> records() const {
      std::vector<PropertyList> all;
      for (const auto& batch : batches) all.insert(all.end(), batch.begin(), batch.end());
      return all;
    }
    // "v2", or "v2+a5" of a summary, of each record.
    std::vector<std::string> sequence() const {
      std::vector<std::string> texts;
      for (const PropertyList& record : records()) {
        const std::string repeats = propertyValue(record, "a5").toUtf8();
        const bool summary = propertyValue(record, "a6").toUtf8().starts_with("t");
        texts.push_back(propertyValue(record, "v2").toUtf8() + (summary ? "+" + repeats : ""));
      }
      return texts;
    }
  };

  explicit FakeDestination(Received& received) : _received(received) {}
  int writeLog(const LogBatch& batch) override {
    _received.batches.push_back(pairsOf(batch));
    const int code = _received.answer();
    _droppedAs = code == 302 || code == 600 ? code : 0;
    return _droppedAs ? 0 : code;
  }
  int droppedAs() const override { return _droppedAs; }
  RecordBytes recordBytes() const override {
    return _received.bounded ? eventNoticeBytes : nullptr;
  }
  // The message that the pairs make, by the plain rules of the protocol.
  static std::string bodyOf(const std::vector<PropertyList>& batch) {
    std::string body;
    for (const PropertyList& record : batch) {
      std::string payload;
      for (const auto& [name, value] : record)
        payload += name.toUtf8() + "=" + value.toUtf8() + "\n";
      body += "Data-Format=text/plain\nData-Type=properties\nData-Length=" +
              std::to_string(payload.size()) + "\n\n" + payload + "\n";
    }
    return body + "EOF_FLAG\n";
  }

 private:
  Received& _received;
  int _droppedAs = 0;
};

// An event line: type, sequence number, time "t<number>", and a tail that makes it equal to
// others or not.
inline std::string eventLine(int number, const std::string& tail = "",
                             const std::string& type = "PFIL") {
  const std::string n = std::to_string(number);
  return type + "," + n + ",t" + n + "," + (tail.empty() ? "unique " + n : tail) + "\n";
}
inline std::string endLine(int number) {
  return "MEOF," + std::to_string(number) + ",t,,\n";
}

}  // namespace korvane::tests
