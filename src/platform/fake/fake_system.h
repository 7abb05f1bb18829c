// The machine and its libraries as a test wants them: settable answers, and libraries that are
// tables of symbols. The answers are set before other threads ask for them.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/error_codes.h"
#include "platform/fake/fake_lock.h"
#include "platform/shared_library.h"
#include "platform/system_info.h"

namespace korvane::platform {

class FakeSystemInfo final : public SystemInfo {
 public:
  std::string hostName() override { return host; }
  std::string domainName() override { return domain; }
  std::vector<std::string> ipAddresses() override { return addresses; }
  std::string osDescription() override { return os; }
  std::string timeZone() override { return zone; }
  SystemVersion version() override { return systemVersion; }
  bool hasNetworkFilter() override { return networkFilter; }
  std::string environment(const std::string& name) override {
    const auto found = variables.find(name);
    return found == variables.end() ? "" : found->second;
  }
  void adoptUserLocale() override { localeAdopted = true; }
  std::string moduleDirectory() override { return moduleFolder; }

  std::string host = "testhost";
  std::string domain = "example.test";
  std::vector<std::string> addresses = {"192.0.2.10"};
  std::string os = "Test System 1.0";
  std::string zone = "+00:00";
  SystemVersion systemVersion = {10, 0, 20348};
  bool networkFilter = true;
  std::map<std::string, std::string> variables;
  bool localeAdopted = false;
  std::string moduleFolder = "/opt/korvane/bin";
};

class FakeLibraries final : public SharedLibraries {
 public:
  using Symbols = std::map<std::string, void*>;

  uint32_t load(const std::string& path, std::unique_ptr<SharedLibrary>& out,
                std::string& detail) override;
  std::string fileName(const std::string& baseName) const override {
    return "lib" + baseName + ".so";
  }

  void install(const std::string& path, Symbols symbols);
  // How many libraries are loaded at this moment.
  long loaded() const { return _loads.use_count() - 1; }

 private:
  const std::shared_ptr<int> _loads = std::make_shared<int>();
  FakeMutex _mutex;
  std::map<std::string, Symbols> _libraries GUARDED_BY(_mutex);
};

}  // namespace korvane::platform
