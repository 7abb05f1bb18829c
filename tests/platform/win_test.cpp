// What only the Win32 siblings promise.
#include "platform/driver_device.h"
#include "platform/handles_win.h"
//
#include <aclapi.h>
#include <gmock/gmock.h>
#include <sddl.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/pipes.h"
#include "platform/processes.h"
#include "platform/rights.h"
#include "platform/threading.h"
#include "platform/wide_win.h"
#include "tests/platform/patience.h"
#include "tests/support/temp_directory.h"

namespace korvane::platform {
namespace {

constexpr uint32_t kPeek = 0x0011400C;  // FSCTL_PIPE_PEEK
constexpr uint32_t kNoSuchCode = 0x0022FFFC;
constexpr size_t kPeekHeader = 16;  // bytes of its answer before the data

// Gives a file or folder this owner and list, in the security descriptor definition language.
void giveAccess(const std::string& path, const wchar_t* list) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(list, SDDL_REVISION_1,
                                                                     &descriptor, nullptr));
  EXPECT_TRUE(::SetFileSecurityW(widePath(path).c_str(),
                                 DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                 descriptor));
  ::LocalFree(descriptor);
}

class WinTest : public testing::Test {
 protected:
  tests::TempDirectory directory;
  std::unique_ptr<NativePlatform> native = makeNativePlatform({});
  Platform& platform = native->platform();
  Files& files = platform.files;

  std::string at(std::string_view name) { return joinPath(files, {directory.path(), name}); }

  void put(const std::string& path, std::string_view bytes) {
    std::unique_ptr<File> file;
    ASSERT_EQ(files.open(path, OpenMode::create, file), 0) << path;
    ASSERT_EQ(file->write(bytes.data(), bytes.size()), 0);
  }

  // Another program's handle on the file.
  FileHandle hold(const std::string& path, DWORD share) {
    FileHandle held(::CreateFileW(widePath(path).c_str(), GENERIC_READ, share, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(held) << path;
    return held;
  }
};

TEST_F(WinTest, requestsThatEndAtOnceGiveTheirOutput) {
  const std::string name = "\\\\.\\pipe\\korvane-test-" + std::to_string(::GetCurrentProcessId());
  const FileHandle pipe(::CreateNamedPipeW(wide(name).c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE,
                                           1, 4096, 4096, 0, nullptr));
  std::unique_ptr<Device> device, second;
  std::unique_ptr<DeviceRequest> request;
  ASSERT_EQ(platform.devices.open(name, device), kOk);
  DWORD size = 0;
  ASSERT_TRUE(::WriteFile(pipe.get(), "said", 4, &size, nullptr));
  ASSERT_EQ(device->prepare(kPeek, {}, kPeekHeader + 8, request), kOk);
  EXPECT_EQ(request->issue(), kOk);
  EXPECT_EQ(request->wait(0), DeviceWait::signalled);
  EXPECT_EQ(request->result(), kOk);
  const auto bytes = request->output();
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()) + kPeekHeader, 8),
            std::string("said\0\0\0\0", 8))
      << "zeros beyond what was written";

  ASSERT_EQ(device->prepare(kNoSuchCode, {}, 0, request), kOk);
  const uint32_t refused = request->issue();
  EXPECT_NE(refused, kOk);
  EXPECT_NE(refused, kErrorIoPending);
  EXPECT_NE(platform.devices.open(name, second), kOk) << "shared with nobody";
}

TEST_F(WinTest, aMissingDeviceIsAMissingFile) {
  std::unique_ptr<Device> device;
  EXPECT_EQ(platform.devices.open("\\\\.\\KorvaneNoSuchDevice", device), kErrorFileNotFound);
}

TEST_F(WinTest, longAndForeignPathsWork) {
  std::string deep = directory.path();
  while (deep.size() < 400) deep = joinPath(files, {deep, "Verzeichnis mit \xC3\xA4 \xE6\x97\xA5"});
  ASSERT_EQ(files.makeDirectories(deep), 0);
  ASSERT_EQ(writeFileAtomically(files, joinPath(files, {deep, "a"}), "x"), 0);
  std::vector<DirectoryEntry> entries;
  ASSERT_EQ(files.list(deep, entries), 0);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].name, "a");
  ASSERT_EQ(files.remove(joinPath(files, {deep, "a"})), 0);
  for (; deep != directory.path(); deep = directoryOf(deep)) ASSERT_EQ(files.remove(deep), 0);
}

TEST_F(WinTest, readersNeverStandInTheWayOfAWriter) {
  put(at("log"), "1\n");
  std::unique_ptr<File> reader;
  ASSERT_EQ(files.open(at("log"), OpenMode::read, reader), 0);
  const FileHandle writer(::CreateFileW(widePath(at("log")).c_str(), GENERIC_WRITE | DELETE,
                                        FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(writer) << "one that shares with readers alone and may rename the file";
  std::unique_ptr<File> refused;
  EXPECT_EQ(files.open(at("log"), OpenMode::readWrite, refused), EACCES) << "it shares no writing";
  FileInfo info;
  EXPECT_EQ(files.info(at("log"), info), 0);
  reader.reset();
}

TEST_F(WinTest, whatAnotherProgramHoldsIsTriedForAWhile) {
  put(at("state"), "old");
  put(at("new"), "new");
  {
    const FileHandle held = hold(at("state"), FILE_SHARE_READ);
    EXPECT_EQ(files.replace(at("new"), at("state")), EACCES);
    EXPECT_EQ(files.remove(at("state")), EACCES);
    std::unique_ptr<FileLock> lock;
    EXPECT_EQ(files.lock(at("state"), lock), EACCES);
  }
  FileHandle held = hold(at("state"), FILE_SHARE_READ);
  const auto release = platform.threading.createEvent(true, false);
  const auto holder = platform.threading.createThread(0, [&] {
    release->wait(50);
    held = FileHandle();
  });
  int error = EACCES;
  for (int i = 0; i < 50 && error == EACCES; ++i) error = files.replace(at("new"), at("state"));
  EXPECT_EQ(error, 0);
  holder->join(kLongMs);
  std::string bytes;
  ASSERT_EQ(readWholeFile(files, at("state"), 100, bytes), 0);
  EXPECT_EQ(bytes, "new");
}

TEST_F(WinTest, childrenInheritNoHandle) {
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  put(at("held"), "x");
  FileHandle held(::CreateFileW(widePath(at("held")).c_str(), GENERIC_READ, 0, &inheritable,
                                OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(held);
  std::unique_ptr<Process> child;
  ASSERT_EQ(platform.processes.start(KORVANE_TEST_CHILD, "hang", child), kOk);
  held = FileHandle();
  std::unique_ptr<File> file;
  EXPECT_EQ(files.open(at("held"), OpenMode::readWrite, file), 0) << "the child holds it";
  child->terminate();
  child->wait(kLongMs);
}

// The rights themselves come back as the generic ones or as those of files.
TEST_F(WinTest, aPipeIsForThisMachinesAccountsAlone) {
  const std::string bare = "korvane-test-access-" + std::to_string(::GetCurrentProcessId());
  std::unique_ptr<Pipe> server;
  ASSERT_EQ(platform.pipes.create(bare, PipeAudience::everyone, server), kOk);
  FileHandle client(::CreateFileW((L"\\\\.\\pipe\\" + wide(bare)).c_str(), READ_CONTROL, 0, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(client);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(::GetSecurityInfo(client.get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, nullptr, nullptr, &descriptor),
            DWORD{ERROR_SUCCESS});
  LPSTR text = nullptr;
  ASSERT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorA(
      descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
  const std::string list = text;
  EXPECT_THAT(
      list, testing::AllOf(testing::StartsWith("D:P(A;;"), testing::EndsWith("(A;;0x12019b;;;AU)"),
                           testing::HasSubstr(";;;SY)(A;;"), testing::HasSubstr(";;;BA)(A;;")))
      << "others may not add an end of their own";
  EXPECT_EQ(std::count(list.begin(), list.end(), '('), 4);
  ::LocalFree(text);
  ::LocalFree(descriptor);
}

TEST_F(WinTest, registryTypesOfOtherWriters) {
  const std::string key = "SOFTWARE\\KorvaneWinTest" + std::to_string(::GetCurrentProcessId());
  ASSERT_EQ(platform.registry.createKey(key), kOk);
  RegistryKey opened;
  ASSERT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, wide(key).c_str(), 0,
                            KEY_SET_VALUE | KEY_WOW64_64KEY, opened.receive()),
            ERROR_SUCCESS);
  const auto set = [&](const wchar_t* name, DWORD type, const void* bytes, DWORD size) {
    ASSERT_EQ(::RegSetValueExW(opened.get(), name, 0, type, static_cast<const BYTE*>(bytes), size),
              ERROR_SUCCESS);
  };
  set(L"expand", REG_EXPAND_SZ, L"%x%\\y", 12);
  set(L"unended", REG_SZ, L"ab", 4);
  set(L"short", REG_DWORD, "\1\2", 2);
  const std::u16string longText(5000, u'l');
  STRING text;
  uint32_t number = 0;
  EXPECT_EQ(platform.registry.readString(key, "expand", text), kOk);
  EXPECT_EQ(text, "%x%\\y") << "not expanded";
  EXPECT_EQ(platform.registry.readString(key, "unended", text), kOk);
  EXPECT_EQ(text, "ab");
  EXPECT_EQ(platform.registry.readDword(key, "short", number), kErrorInvalidData);
  EXPECT_EQ(platform.registry.writeString(key, "a\nb", "x"), kErrorInvalidParameter);
  ASSERT_EQ(platform.registry.writeString(key, "long", STRING(longText)), kOk);
  ASSERT_EQ(platform.registry.readString(key, "long", text), kOk);
  EXPECT_EQ(text, STRING(longText));
  EXPECT_EQ(platform.registry.deleteKey(key), kOk);
}

TEST_F(WinTest, whatStrangersMayChangeIsFound) {
  const std::string folder = at("folder"), file = joinPath(files, {folder, "file"});
  ASSERT_EQ(files.makeDirectories(folder), 0);
  put(file, "x");
  constexpr wchar_t kOwn[] = L"D:PAI(A;;FA;;;SY)(A;;FA;;;BA)(A;;0x1200a9;;;WD)";
  constexpr wchar_t kEverybodys[] = L"D:PAI(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;WD)";
  giveAccess(folder, kOwn);
  giveAccess(file, kOwn);
  EXPECT_EQ(unsafePart(file), "");
  EXPECT_EQ(unsafePart(at("folder\\none\\deeper")), "");
  giveAccess(file, kEverybodys);
  EXPECT_THAT(unsafePart(file), testing::EndsWith("file is writable by S-1-1-0"));
  giveAccess(file, kOwn);
  giveAccess(folder, kEverybodys);
  EXPECT_THAT(unsafePart(file), testing::EndsWith("folder is writable by S-1-1-0"))
      << "who may remove the file and make another";
}

TEST_F(WinTest, aChildEndsWithAParentThatIsKilled) {
  const std::string told = at("told");
  std::unique_ptr<Process> parent;
  ASSERT_EQ(platform.processes.start(KORVANE_TEST_CHILD, "parent \"" + told + "\"", parent), kOk);
  const auto pause = platform.threading.createEvent(true, false);
  std::string text;
  for (int i = 0; i < 3000 && !text.ends_with('\n'); ++i) {
    pause->wait(10);
    static_cast<void>(readWholeFile(files, told, 100, text));
  }
  const KernelObject child(
      ::OpenProcess(SYNCHRONIZE, FALSE, std::strtoul(text.c_str(), nullptr, 10)));
  ASSERT_TRUE(child) << text;
  EXPECT_EQ(::WaitForSingleObject(child.get(), 0), WAIT_TIMEOUT);
  const KernelObject itself(
      ::OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(parent->id())));
  ASSERT_TRUE(::TerminateProcess(itself.get(), 9)) << "not its job, which would end both";
  EXPECT_EQ(::WaitForSingleObject(child.get(), kLongMs), WAIT_OBJECT_0);
}

}  // namespace
}  // namespace korvane::platform
