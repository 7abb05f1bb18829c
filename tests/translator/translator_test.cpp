#include "translator/translator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/fake/fake_platform.h"
#include "tests/support/logged_events.h"
#include "tests/support/temp_directory.h"
#include "translator/translator_abi.h"

namespace korvane {
namespace {

constexpr char kFolder[] = "/opt/korvane/IPS/extensions";
constexpr char kLibrary[] = "/opt/korvane/IPS/extensions/libkavipstranslator.so";

// What the library of a test does and has seen.
struct Library {
  uint32_t version = KAVIPS_TRANSLATOR_ABI_VERSION;
  int32_t initializeResult = 0;
  int initialized = 0;
  std::u16string initializedWith;
  size_t values = 2;
  size_t valueLength = 3;
  size_t offered = 0;
} library;

// Apart, since the thread whose call was the last in a library shuts it down.
std::atomic<int> shutDowns{0};

uint32_t abiVersion() {
  return library.version;
}
int32_t initialize(const KavipsChar* path) {
  ++library.initialized;
  library.initializedWith = path;
  return library.initializeResult;
}
int32_t functionValues(const KavipsChar* name, KavipsValueSink sink, void* context) {
  if (std::u16string(name) == u"Nothing") return 2;
  if (std::u16string(name) == u"Shutdown") Translator::shutdown();
  for (library.offered = 1; library.offered <= library.values; ++library.offered)
    if (sink(context, std::u16string(library.valueLength, u'v').c_str()) != 0) break;
  return sink(context, nullptr) == 0 || library.values > 2 ? 0 : 3;
}
int32_t fileExists(const KavipsChar* path) {
  return std::u16string(path) == u"/there" ? 1 : 0;
}
void shutDown() {
  ++shutDowns;
}

template <class Function>
void* address(Function* function) {
  return reinterpret_cast<void*>(function);
}

class TranslatorTest : public testing::Test {
 protected:
  TranslatorTest() {
    library = Library();
    shutDowns = 0;
  }
  ~TranslatorTest() override { Translator::shutdown(); }

  platform::FakeLibraries::Symbols symbols() {
    return {{KAVIPS_TRANSLATOR_ABI_VERSION_NAME, address(abiVersion)},
            {KAVIPS_TRANSLATOR_INITIALIZE_NAME, address(initialize)},
            {KAVIPS_TRANSLATOR_GET_FUNCTION_VALUES_NAME, address(functionValues)},
            {KAVIPS_TRANSLATOR_FILE_EXISTS_NAME, address(fileExists)},
            {KAVIPS_TRANSLATOR_SHUTDOWN_NAME, address(shutDown)}};
  }

  platform::FakePlatform fake;
  platform::CurrentPlatform current{fake.platform()};
  LoggedEvents events{fake.files};
};

TEST_F(TranslatorTest, TheLibraryIsUsedFromInitialisationToShutdown) {
  fake.libraries.install(kLibrary, symbols());
  std::vector<STRING> list = {"left over"};
  EXPECT_FALSE(Translator::getFunctionValues("LocalIPs", list));
  EXPECT_TRUE(list.empty());
  EXPECT_TRUE(Translator::initialize(kFolder));
  EXPECT_TRUE(Translator::initialize(kFolder));
  EXPECT_EQ(library.initialized, 1);
  EXPECT_EQ(library.initializedWith, STRING(kFolder).utf16());
  EXPECT_TRUE(Translator::getFunctionValues("LocalIPs", list));
  EXPECT_EQ(list, (std::vector<STRING>{"vvv", "vvv"}));
  EXPECT_FALSE(Translator::getFunctionValues("Nothing", list));
  EXPECT_TRUE(list.empty());
  EXPECT_TRUE(Translator::fileExists("/there"));
  EXPECT_FALSE(Translator::fileExists("/elsewhere"));
  Translator::shutdown();
  Translator::shutdown();
  EXPECT_EQ(shutDowns, 1);
  EXPECT_EQ(fake.libraries.loaded(), 0);
  EXPECT_FALSE(Translator::fileExists("/there"));
  EXPECT_TRUE(events.all().empty());
}

TEST_F(TranslatorTest, AShutdownDuringACallLetsTheCallFinish) {
  fake.libraries.install(kLibrary, symbols());
  ASSERT_TRUE(Translator::initialize(kFolder));
  std::vector<STRING> list;
  EXPECT_TRUE(Translator::getFunctionValues("Shutdown", list));
  EXPECT_EQ(list.size(), 2u);
  EXPECT_EQ(shutDowns, 1);
  EXPECT_EQ(fake.libraries.loaded(), 0);
  EXPECT_FALSE(Translator::available());
}

TEST_F(TranslatorTest, ALibraryThatCannotBeUsedIsNamedWithTheReason) {
  struct Case {
    const char* missing;
    uint32_t version;
    int32_t initializeResult;
    int event;
    const char* text;
  };
  EXPECT_FALSE(Translator::initialize(kFolder));
  EXPECT_EQ(events.all(), std::vector<int>{10530});
  for (const Case& each :
       {Case{KAVIPS_TRANSLATOR_FILE_EXISTS_NAME, 1, 0, 10531, "a function is missing"},
        Case{"", 2, 0, 10531, "interface version 2"}, Case{"", 1, 9, 10532, "9"}}) {
    library.version = each.version;
    library.initializeResult = each.initializeResult;
    platform::FakeLibraries::Symbols some = symbols();
    some.erase(each.missing);
    fake.libraries.install(kLibrary, some);
    EXPECT_FALSE(Translator::initialize(kFolder));
    EXPECT_EQ(events.all().back(), each.event);
    EXPECT_NE(events.text().find(std::string(kLibrary) + "," + each.text), std::string::npos)
        << each.text;
    EXPECT_EQ(fake.libraries.loaded(), 0);
  }
  EXPECT_EQ(shutDowns, 0) << "what was not initialised is not shut down";
}

TEST_F(TranslatorTest, ALibraryThatStrangersMayChangeIsNotLoadedUnlessThatIsAllowed) {
  fake.libraries.install(kLibrary, symbols());
  fake.rights.spoilt = {kFolder};
  EXPECT_FALSE(Translator::initialize(kFolder));
  EXPECT_EQ(library.initialized, 0);
  EXPECT_EQ(events.all(), std::vector<int>{10530});
  EXPECT_NE(events.text().find(std::string(kFolder) + " is writable"), std::string::npos);
  fake.rights.allowed = true;
  EXPECT_TRUE(Translator::initialize(kFolder));
}

TEST_F(TranslatorTest, ValuesAreBounded) {
  fake.libraries.install(kLibrary, symbols());
  ASSERT_TRUE(Translator::initialize(kFolder));
  library.values = 100000;
  std::vector<STRING> list;
  EXPECT_TRUE(Translator::getFunctionValues("LocalIPs", list));
  EXPECT_EQ(list.size(), Translator::kMaxValues);
  EXPECT_EQ(library.offered, Translator::kMaxValues + 1);
  library.valueLength = Translator::kMaxValueLength + 1;
  EXPECT_TRUE(Translator::getFunctionValues("LocalIPs", list));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(events.all(), (std::vector<int>{10533, 10533}));
}

TEST_F(TranslatorTest, ThreadsMayCallWhileItComesAndGoes) {
  fake.libraries.install(kLibrary, symbols());
  std::atomic<bool> stop{false};
  std::vector<std::thread> callers;
  for (int i = 0; i < 3; ++i)
    callers.emplace_back([&] {
      while (!stop) Translator::fileExists("/there");
    });
  for (int i = 0; i < 200; ++i) {
    Translator::initialize(kFolder);
    Translator::shutdown();
  }
  stop = true;
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(library.initialized, 200);
  EXPECT_EQ(shutDowns, 200);
  EXPECT_EQ(fake.libraries.loaded(), 0);
}

}  // namespace
}  // namespace korvane
