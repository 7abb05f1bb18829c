// What every SharedLibraries and SystemInfo must do.
#include <gtest/gtest.h>

#include <regex>

#include "platform/error_codes.h"
#include "platform/fake/fake_system.h"
#include "platform/native.h"

namespace korvane::platform {
namespace {

int fakeAnswer() {
  return 42;
}

struct NativeSystemWorld {
  std::unique_ptr<SharedLibraries> owned = makeNativeSharedLibraries();
  std::unique_ptr<SystemInfo> ownedInfo = makeNativeSystemInfo();
  SharedLibraries& libraries = *owned;
  SystemInfo& info = *ownedInfo;
};

struct FakeSystemWorld {
  FakeLibraries libraries;
  FakeSystemInfo info;
  FakeSystemWorld() {
    libraries.install(KORVANE_TEST_LIBRARY,
                      {{"korvaneTestAnswer", reinterpret_cast<void*>(&fakeAnswer)}});
    libraries.install(KORVANE_TEST_NO_LIBRARY, {});
  }
};

template <class World>
class SystemConformance : public testing::Test {
 protected:
  World world;
};

using SystemWorlds = testing::Types<NativeSystemWorld, FakeSystemWorld>;
TYPED_TEST_SUITE(SystemConformance, SystemWorlds);

TYPED_TEST(SystemConformance, librariesLoadByFullPathOnly) {
  SharedLibraries& libraries = this->world.libraries;
  std::unique_ptr<SharedLibrary> library;
  std::string detail;
  EXPECT_EQ(libraries.load("libsomething.so", library, detail), kErrorInvalidParameter);
  EXPECT_NE(detail.find("libsomething.so"), std::string::npos);
  EXPECT_EQ(libraries.load("/no/such/library.so", library, detail), kErrorFileNotFound);
  EXPECT_EQ(libraries.load(KORVANE_TEST_NO_LIBRARY, library, detail), kErrorBadExeFormat);
  EXPECT_FALSE(detail.empty());
  EXPECT_EQ(library, nullptr);

  ASSERT_EQ(libraries.load(KORVANE_TEST_LIBRARY, library, detail), kOk) << detail;
  EXPECT_EQ(detail, "");
  auto* answer = reinterpret_cast<int (*)()>(library->symbol("korvaneTestAnswer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(library->symbol("noSuchSymbol"), nullptr);
  EXPECT_NE(libraries.fileName("kavipstranslator").find("kavipstranslator."), std::string::npos);
}

TYPED_TEST(SystemConformance, theMachineAnswersInTheAgreedForms) {
  SystemInfo& info = this->world.info;
  EXPECT_FALSE(info.hostName().empty());
  EXPECT_EQ(info.hostName().find('.'), std::string::npos) << "without its domain";
  EXPECT_FALSE(info.ipAddresses().empty());
  for (const std::string& address : info.ipAddresses())
    EXPECT_TRUE(std::regex_match(address, std::regex("\\d+\\.\\d+\\.\\d+\\.\\d+"))) << address;
  EXPECT_FALSE(info.osDescription().empty());
  EXPECT_EQ(info.osDescription().find('\n'), std::string::npos);
  EXPECT_TRUE(std::regex_match(info.timeZone(), std::regex("[+-]\\d\\d:\\d\\d")))
      << info.timeZone();
  EXPECT_GT(info.version().major, 0u);
  EXPECT_TRUE(info.hasNetworkFilter());
  EXPECT_EQ(info.environment("KORVANE_NO_SUCH_VARIABLE"), "");
  EXPECT_FALSE(info.moduleDirectory().empty());
}

}  // namespace
}  // namespace korvane::platform
