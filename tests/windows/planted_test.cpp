// Libraries planted under the names of the system's, where an attacker could put them, are
// not loaded.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/temp_directory.h"

namespace korvane {
namespace {

namespace fs = std::filesystem;
using tests::fsPath;

constexpr DWORD kStepMs = 50;
constexpr int kSteps = 1200;

// What the agent, its libraries or the system on their behalf may load. The names that Windows
// itself never looks for beside a program ("known DLLs") are planted everywhere but there.
using Names = std::vector<std::string>;
const Names kNames = {"version", "bcrypt",  "crypt32", "iphlpapi", "bcryptprimitives", "dnsapi",
                      "mswsock", "secur32", "winmm",   "rsaenh",   "cryptsp",          "cryptbase"};
const Names kKnownNames = {"ws2_32", "user32", "advapi32", "msvcrt"};

// Wine puts its own libraries in the place of others with the same name, unless it is told
// that a program brings its own.
constexpr wchar_t kHost[] = L"planted-host.exe", kVictim[] = L"planted-victim.exe";
constexpr wchar_t kWineKey[] = L"Software\\Wine\\AppDefaults\\";

class BringsItsOwn {
 public:
  explicit BringsItsOwn(const std::wstring& program) : _key(kWineKey + program) {
    for (const Names& list : {kNames, kKnownNames}) {
      for (const std::string& name : list)
        ::RegSetKeyValueW(HKEY_CURRENT_USER, (_key + L"\\DllOverrides").c_str(),
                          std::wstring(name.begin(), name.end()).c_str(), REG_SZ, L"native,builtin",
                          sizeof L"native,builtin");
    }
  }
  ~BringsItsOwn() { ::RegDeleteTreeW(HKEY_CURRENT_USER, _key.c_str()); }
  BringsItsOwn(const BringsItsOwn&) = delete;
  BringsItsOwn& operator=(const BringsItsOwn&) = delete;

 private:
  const std::wstring _key;
};

void plant(const fs::path& folder, const Names& names) {
  for (const std::string& name : names)
    fs::copy_file(fsPath(PLANTED_LIBRARY), folder / (name + ".dll"));
}

std::vector<std::string> loadedBelow(const fs::path& folder) {
  std::vector<std::string> marks;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.path().extension() == ".loaded") marks.push_back(entry.path().string());
  }
  return marks;
}

// A process that is ended with its object.
class Running {
 public:
  Running(const fs::path& program, const std::wstring& arguments, const fs::path& current) {
    std::wstring line = L"\"" + program.wstring() + L"\" " + arguments;
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    EXPECT_TRUE(::CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE,
                                 CREATE_NO_WINDOW, nullptr, current.c_str(), &start, &_process))
        << ::GetLastError();
  }
  ~Running() {
    ::TerminateProcess(_process.hProcess, 1);
    ::WaitForSingleObject(_process.hProcess, INFINITE);
    ::CloseHandle(_process.hThread);
    ::CloseHandle(_process.hProcess);
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  // False when the process has ended.
  bool goesOn() { return ::WaitForSingleObject(_process.hProcess, kStepMs) == WAIT_TIMEOUT; }

 private:
  PROCESS_INFORMATION _process = {};
};

bool logSays(const fs::path& logs, const std::string& text) {
  std::error_code missing;
  return std::ranges::any_of(fs::directory_iterator(logs, missing), [&](const auto& entry) {
    std::ifstream file(entry.path(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {}).find(text) != std::string::npos;
  });
}

TEST(PlantedLibraries, AreNotLoaded) {
  const tests::TempDirectory work;
  const fs::path root = fsPath(work.path());
  const fs::path bin = root / "bin", current = root / "current", logs = root / "IPS" / "logs";
  for (const fs::path& folder : {bin, current}) fs::create_directory(folder);
  for (const char* name : {"korvane-agent.dll", "korvane-events.txt"})
    fs::copy_file(fsPath(KORVANE_BIN) / name, bin / name);
  fs::copy_file(fsPath(KORVANE_BIN) / "korvane-host.exe", bin / kHost);
  fs::copy_file(fsPath(PLANTED_VICTIM), bin / kVictim);
  plant(bin, kNames);
  plant(current, kNames);
  plant(current, kKnownNames);
  const BringsItsOwn hostRule(kHost), victimRule(kVictim);
  fs::create_directories(logs);
  std::ofstream(root / "IPS" / "agent.ini")
      << "[Agent]\nagent.http.url=https://127.0.0.1:1/agent/\n";
  {
    Running host(bin / kHost, L"run --install-root \"" + root.wstring() + L"\"", current);
    int step = 0;
    while (!logSays(logs, ",10106,")) ASSERT_TRUE(host.goesOn() && ++step < kSteps);
    EXPECT_TRUE(host.goesOn());
  }
  EXPECT_EQ(loadedBelow(root), std::vector<std::string>{});

  // A program that takes no care, in the host's place, loads what is planted.
  for (Running victim(bin / kVictim, L"", current); victim.goesOn();) {
  }
  EXPECT_EQ(loadedBelow(root).size(), 1u);
}

}  // namespace
}  // namespace korvane
