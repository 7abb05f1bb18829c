#include "update/policy/retrans_check.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "config/settings.h"
#include "platform/fake/faulty_files.h"
#include "tests/driver/driver_fixture.h"
#include "tests/support/temp_directory.h"
#include "translator/translator.h"
#include "translator/translator_abi.h"
#include "update/policy/machine_state.h"

namespace korvane {
namespace {

using Kind = RetransItem::Kind;

constexpr char kItems[] = "/opt/korvane/IPS/driver/policy1.trans";
constexpr char kVariables[] = "System\\CurrentControlSet\\Control\\Session Manager\\Environment";
constexpr char kKey[] = "SOFTWARE\\Example";

// The translator library of a test.
struct Library {
  std::string existing;
  std::vector<std::string> addresses;
  int32_t error = 0;
} library;

uint32_t abiVersion() {
  return KAVIPS_TRANSLATOR_ABI_VERSION;
}
int32_t initialize(const KavipsChar*) {
  return 0;
}
int32_t functionValues(const KavipsChar* name, KavipsValueSink sink, void* context) {
  if (STRING(name) != "LocalIPs") return 2;
  for (const std::string& address : library.addresses) sink(context, STRING(address).c_str());
  return library.error;
}
int32_t fileExists(const KavipsChar* path) {
  return STRING(path) == STRING(library.existing) ? 1 : 0;
}
void shutDown() {}

class RetransCheckTest : public DriverFixture {
 protected:
  RetransCheckTest() {
    fake.devices.setHandler([this](const platform::FakeDevices::Call&) {
      return platform::DeviceScript::atOnce(0, policyRecord(builtIn));
    });
    library = Library();
  }
  ~RetransCheckTest() override { Translator::shutdown(); }

  void useLibrary() {
    fake.libraries.install(
        "/ext/libkavipstranslator.so",
        {{KAVIPS_TRANSLATOR_ABI_VERSION_NAME, reinterpret_cast<void*>(abiVersion)},
         {KAVIPS_TRANSLATOR_INITIALIZE_NAME, reinterpret_cast<void*>(initialize)},
         {KAVIPS_TRANSLATOR_GET_FUNCTION_VALUES_NAME, reinterpret_cast<void*>(functionValues)},
         {KAVIPS_TRANSLATOR_FILE_EXISTS_NAME, reinterpret_cast<void*>(fileExists)},
         {KAVIPS_TRANSLATOR_SHUTDOWN_NAME, reinterpret_cast<void*>(shutDown)}});
    ASSERT_TRUE(Translator::initialize("/ext"));
  }
  void load(const RetransItems& items) {
    fake.files.put(kItems, retransItemsText(items));
    ASSERT_TRUE(check.loadRetransItems(kItems));
  }
  bool requested() { return AgentConfig::getInstance()->getRetranslateNow(); }

  bool builtIn = false;
  platform::FaultyFiles faulty{fake.files};
  RetransCheck check{{faulty, fake.registry, fake.systemInfo},
                     driver,
                     settingsOf(*AgentConfig::getInstance()).policy};
};

TEST_F(RetransCheckTest, EachKindOfChangeAsksForARetranslation) {
  const struct {
    RetransItem then;
    void (*change)(platform::FakePlatform&);
    const char* trace;
  } cases[] = {
      {{Kind::path, "", "/data/a", false, ""},
       [](auto& machine) { machine.files.put("/data/a", "x"); },
       "file/directory created /data/a"},
      {{Kind::path, "", "/data/a", true, ""},
       [](auto& machine) { machine.files.remove("/data/a"); },
       "file/directory deleted /data/a"},
      {{Kind::path, "", "/data/b/c", false, ""},
       [](auto& machine) { machine.files.put("/data/b/c", "x"); },
       "file/directory created /data/b/c"},
      {{Kind::path, "", "/data/b/c", true, ""},
       [](auto& machine) {
         machine.files.remove("/data/b/c");
         machine.files.remove("/data/b");
         machine.files.put("/data/b", "a file where a directory was");
       },
       "file/directory deleted /data/b/c"},
      {{Kind::path, "", "/data/dir", false, ""},
       [](auto& machine) { machine.files.makeDirectories("/data/dir"); },
       "file/directory created /data/dir"},
      {{Kind::environment, "", "ROOT", false, "ignored"},
       [](auto& machine) { machine.systemInfo.variables["ROOT"] = "/r"; },
       "environment variable changed from nothing to '/r': ROOT"},
      {{Kind::environment, "", "ROOT", true, "/r"},
       [](auto& machine) { machine.registry.put(kVariables, "ROOT", STRING("/machine")); },
       "environment variable changed from '/r' to '/machine': ROOT"},
      {{Kind::registry, kKey, "Size", false, ""},
       [](auto& machine) { machine.registry.put(kKey, "Size", 4294967295u); },
       "registry key value(s) changed from nothing to '4294967295': SOFTWARE\\Example"},
      {{Kind::registry, kKey, "Size", true, "4294967295"},
       [](auto& machine) { machine.registry.put(kKey, "Size", STRING("")); },
       "registry key value(s) changed from '4294967295' to '': SOFTWARE\\Example"},
      {{Kind::registry, kKey, "Size", true, ""},
       [](auto& machine) { machine.registry.deleteKey(kKey); },
       "registry key value(s) changed from '' to nothing: SOFTWARE\\Example"},
      {{Kind::addresses, "", "", true, "192.0.2.10"},
       [](auto& machine) {
         machine.systemInfo.addresses = {"192.0.2.11", "192.0.2.10"};
       },
       "LocalIPAddresses changed from '192.0.2.10' to '192.0.2.10,192.0.2.11'"},
  };
  for (const auto& each : cases) {
    load({{Kind::path, "", "/never", false, ""}, each.then});
    EXPECT_FALSE(check.checkRetrans()) << "nothing has changed yet: " << each.trace;
    EXPECT_FALSE(requested());
    each.change(fake);
    EXPECT_TRUE(check.checkRetrans()) << each.trace;
    EXPECT_TRUE(requested());
    const std::string log = events.text();
    EXPECT_NE(log.find(each.trace), std::string::npos) << each.trace << "\n" << log;
    AgentConfig::getInstance()->setRetranslateNow(false);
  }
  EXPECT_TRUE(events.all().empty());
}

TEST_F(RetransCheckTest, TheLibraryIsAskedWhereThereIsOne) {
  useLibrary();
  library.addresses = {"198.51.100.1", "192.0.2.10"};
  library.existing = "/only/there";
  fake.files.put("/only/here", "x");
  load({{Kind::path, "", "/only/there", true, ""},
        {Kind::path, "", "/only/here", false, ""},
        {Kind::addresses, "", "", true, "192.0.2.10,198.51.100.1"}});
  EXPECT_FALSE(check.checkRetrans());
  library.error = 3;
  EXPECT_FALSE(check.checkRetrans()) << "addresses that cannot be told count as no change";
  EXPECT_NE(events.text().find("Cannot tell the state"), std::string::npos);
  library.error = 0;
  library.addresses.pop_back();
  EXPECT_TRUE(check.checkRetrans());
}

TEST_F(RetransCheckTest, TheBuiltInPolicyDependsOnNothing) {
  builtIn = true;
  load({{Kind::path, "", "/gone", true, ""}});
  EXPECT_FALSE(check.checkRetrans());
  EXPECT_FALSE(requested());
  EXPECT_NE(
      events.text().find("Bypassing retranslation check because built-in IPS Policy is in use"),
      std::string::npos);
}

TEST_F(RetransCheckTest, AnUnusableFileLeavesNoItemsAndSaysWhy) {
  const auto fails = [&] {
    fake.files.put("/good", retransItemsText({{Kind::path, "", "/gone", true, ""}}));
    return check.loadRetransItems("/good") && !check.loadRetransItems(kItems) &&
           check.items().empty() && !check.checkRetrans();
  };
  EXPECT_TRUE(fails());
  EXPECT_TRUE(events.all().empty()) << "a missing file is not an event";
  fake.files.put(kItems, "korvane-items 1\npath\tpresent\n");
  EXPECT_TRUE(fails());
  faulty.failAll(platform::FileOperation::read, 5, "policy1");
  EXPECT_TRUE(fails());
  faulty.heal();
  fake.files.put(kItems, std::string(kMaxItemsBytes + 1, 'x'));
  EXPECT_TRUE(fails());
  EXPECT_EQ(events.all(), (std::vector<int>{10591, 10590, 10590}));
  EXPECT_NE(events.text().find(std::string(kItems) + ",2,wrong number of fields"),
            std::string::npos);
}

MachineState::Sources sourcesOf(platform::Platform& system) {
  return {system.files, system.registry, system.systemInfo};
}

// On the real system: files, directories, and values of the registry as the agent would read them.
TEST(RetransOnThisMachine, ChangesAreSeen) {
  const tests::TempDirectory folder;
  const auto native = platform::makeNativePlatform({folder.path() + "/registry.reg", ""});
  const platform::CurrentPlatform current(native->platform());
  platform::Registry& registry = native->platform().registry;
  const std::string key =
      "Software\\Korvane Tests " + std::to_string(native->platform().processes.currentId());
  const std::string path = folder.path() + "/\xc3\xa4 b";
  MachineState machine(sourcesOf(native->platform()));
  RetransItem value{Kind::registry, key, "V", true, ""};
  RetransItem file{Kind::path, "", path, true, ""};
  RetransItem addresses{Kind::addresses, "", "", false, ""};
  const auto read = [&] { return machine.read(value) && machine.read(file); };
  ASSERT_TRUE(read());
  EXPECT_FALSE(value.present || file.present);
  std::filesystem::create_directory(tests::fsPath(path));
  ASSERT_EQ(registry.createKey(key), 0u);
  ASSERT_EQ(registry.writeString(key, "V", "\xc3\xa4%"), 0u);
  ASSERT_TRUE(read());
  EXPECT_TRUE(file.present);
  EXPECT_EQ(value.value, "\xc3\xa4%");
  ASSERT_EQ(registry.writeDword(key, "V", 7), 0u);
  ASSERT_TRUE(read());
  EXPECT_EQ(value.value, "7");
  registry.deleteKey(key);
  std::filesystem::remove(tests::fsPath(path));
  ASSERT_TRUE(read());
  EXPECT_FALSE(value.present || file.present);
  ASSERT_TRUE(machine.read(addresses));
  EXPECT_EQ(addresses.value, addressList(native->platform().systemInfo.ipAddresses()));
}

// The whole round on the real system: the translator program writes the items, the agent reads them
// and asks the translator library, and the program takes up what has changed.
TEST(RetransOnThisMachine, WhatTheTranslatorRecordedIsWhatTheCheckCompares) {
  const tests::TempDirectory folder;
  const auto native = platform::makeNativePlatform({});
  const platform::CurrentPlatform current(native->platform());
  setInstallRoot(folder.path());
  const std::string watched = folder.path() + "/\xc3\xa4 watched";
  const auto put = [&](const std::string& name, const std::string& bytes) {
    std::ofstream(tests::fsPath(folder.path() + "/" + name), std::ios::binary) << bytes;
  };
  const auto translate = [&](const std::string& words) {
    std::unique_ptr<platform::Process> program;
    uint32_t code = 1;
    return native->platform().processes.start(KORVANE_TRANSLATE, words, program) == 0 &&
           program->wait(60000) == platform::ProcessWait::ended && program->exitCode(code) &&
           code == 0;
  };
  const auto quoted = [&](const char* name) { return "\"" + folder.path() + "/" + name + "\""; };
  put("text.pol", "korvane-policy 1\nname N\nversion 1\nid i\nwhen \"" + watched +
                      "\" rule deny file a b\nrule log network n $(address)\n"
                      "rule deny file a $(registry:Software\\Korvane None|V)\n"
                      "rule deny file a $(env:PATH)\n");
  ASSERT_TRUE(translate("--make-policy " + quoted("text.pol") + " " + quoted("p.zip")));
  std::filesystem::create_directory(tests::fsPath(folder.path() + "/IPS"));
  const std::string extensions = std::filesystem::path(KORVANE_TRANSLATOR).parent_path().string();
  ASSERT_TRUE(Translator::initialize(extensions));
  RetransCheck check(sourcesOf(native->platform()), currentDriver(),
                     settingsOf(*AgentConfig::getInstance()).policy);
  const auto settled = [&] {
    EXPECT_TRUE(translate("-agent -loadtext " + quoted("p.zip") + " " + quoted("minus") + " " +
                          quoted("items")));
    EXPECT_TRUE(check.loadRetransItems(folder.path() + "/items"));
    EXPECT_EQ(check.items().size(), 4u);
    return !check.checkRetrans();
  };
  EXPECT_TRUE(settled());
  put("\xc3\xa4 watched", "");
  EXPECT_TRUE(check.checkRetrans());
  EXPECT_TRUE(AgentConfig::getInstance()->getRetranslateNow());
  EXPECT_TRUE(settled());
  std::filesystem::remove(tests::fsPath(watched));
  EXPECT_TRUE(check.checkRetrans());
}

}  // namespace
}  // namespace korvane
