// What every Registry must do: the system's own, and the one in memory.
#include <gtest/gtest.h>

#include "platform/error_codes.h"
#include "platform/fake/memory_registry.h"
#include "platform/native.h"
#include "platform/processes.h"
#include "tests/support/temp_directory.h"

namespace korvane::platform {
namespace {

struct NativeRegistryWorld {
  tests::TempDirectory directory;
  std::unique_ptr<NativePlatform> native =
      makeNativePlatform({directory.path() + "/registry.reg", directory.path()});
  Registry& registry = native->platform().registry;
};

struct MemoryRegistryWorld {
  MemoryRegistry registry;
};

// Everything lies below a key of the tests' own, since on Windows the registry is the machine's.
const std::string kOwn = std::to_string(makeNativeProcesses()->currentId());
const std::string kKey = "SOFTWARE\\KorvaneConformance" + kOwn;

template <class World>
class RegistryConformance : public testing::Test {
 protected:
  World world;
  Registry& registry = world.registry;

  void SetUp() override { ASSERT_EQ(registry.createKey(kKey), kOk); }
  void TearDown() override { registry.deleteKey(kKey); }
};

using RegistryWorlds = testing::Types<NativeRegistryWorld, MemoryRegistryWorld>;
TYPED_TEST_SUITE(RegistryConformance, RegistryWorlds);

TYPED_TEST(RegistryConformance, valuesComeBackByNameWithoutCase) {
  Registry& store = this->registry;
  STRING text;
  uint32_t number = 0;
  EXPECT_EQ(store.readString(kKey, "Path", text), kErrorFileNotFound);
  ASSERT_EQ(store.writeString(kKey, "Path", STRING(u"C:\\a \"b\" \u00e4")), kOk);
  ASSERT_EQ(store.writeDword(kKey, "Start", 0xFFFFFFFF), kOk);
  ASSERT_EQ(store.readString("software\\KORVANEconformance" + kOwn, "PATH", text), kOk);
  EXPECT_EQ(text, STRING(u"C:\\a \"b\" \u00e4"));
  ASSERT_EQ(store.readDword(kKey, "start", number), kOk);
  EXPECT_EQ(number, 0xFFFFFFFF);
  ASSERT_EQ(store.writeString(kKey, "path", STRING()), kOk);
  ASSERT_EQ(store.readString(kKey, "Path", text), kOk);
  EXPECT_TRUE(text.empty());
}

TYPED_TEST(RegistryConformance, anotherTypeIsInvalidDataAndCanBeOverwritten) {
  Registry& store = this->registry;
  STRING text;
  uint32_t number = 0;
  ASSERT_EQ(store.writeDword(kKey, "v", 1), kOk);
  EXPECT_EQ(store.readString(kKey, "v", text), kErrorInvalidData);
  ASSERT_EQ(store.writeString(kKey, "v", "1"), kOk);
  EXPECT_EQ(store.readDword(kKey, "v", number), kErrorInvalidData);
}

TYPED_TEST(RegistryConformance, textsThatNeedCareSurvive) {
  for (const char16_t* text :
       {u"line\r\nbreak", u"\ttab", u"[HKEY]", u"\"=\\", u"\U0001F600", u";"}) {
    STRING read;
    ASSERT_EQ(this->registry.writeString(kKey, "v", STRING(text)), kOk);
    ASSERT_EQ(this->registry.readString(kKey, "v", read), kOk);
    EXPECT_EQ(read, STRING(text));
  }
}

TYPED_TEST(RegistryConformance, keysAreMadeWithThoseAboveAndRemovedAlone) {
  Registry& store = this->registry;
  EXPECT_EQ(store.writeString(kKey + "\\none", "v", "x"), kErrorFileNotFound);
  EXPECT_EQ(store.writeDword(kKey + "\\none", "v", 1), kErrorFileNotFound);
  ASSERT_EQ(store.createKey(kKey + "\\a\\b\\"), kOk);
  EXPECT_EQ(store.createKey(kKey + "\\a\\b"), kOk) << "it exists";
  EXPECT_EQ(store.writeString(kKey + "\\A", "v", "x"), kOk) << "made on the way";
  EXPECT_NE(store.deleteKey(kKey + "\\a"), kOk) << "it has a subkey";
  EXPECT_EQ(store.deleteKey(kKey + "\\a\\b"), kOk);
  EXPECT_EQ(store.deleteKey(kKey + "\\a\\b"), kErrorFileNotFound);
  STRING text;
  EXPECT_EQ(store.readString(kKey + "\\a", "v", text), kOk) << "the one above stays";
  EXPECT_EQ(store.deleteKey(kKey + "\\a"), kOk);
  EXPECT_EQ(store.readString(kKey + "\\a", "v", text), kErrorFileNotFound);
  EXPECT_EQ(store.problem(), "");
}

}  // namespace
}  // namespace korvane::platform
