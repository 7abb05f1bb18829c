#include <cerrno>
#include <vector>

#include "platform/paths.h"
#include "platform/survey_win.h"
#include "platform/wide_win.h"

// Behind winsock2.h, which they need.
#include <objbase.h>
#include <shlobj.h>

namespace korvane::platform {
namespace {

constexpr wchar_t kProfiles[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
constexpr size_t kMostDepth = 8;
constexpr size_t kMostLinkBytes = 64 * 1024;
constexpr int kMostUnits = 4096;

// COM on this thread for a scope; a thread that has it in another way keeps that.
class ComScope {
 public:
  ComScope() : _ours(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
  ~ComScope() {
    if (_ours) ::CoUninitialize();
  }
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;

 private:
  const bool _ours;
};

struct Release {
  void operator()(IUnknown* object) const { object->Release(); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Release>;

// The link's bytes as they are: it is read from memory, so that no path is looked up twice.
Owned<IStream> streamOf(const std::string& bytes) {
  IStream* stream = nullptr;
  if (FAILED(::CreateStreamOnHGlobal(nullptr, TRUE, &stream))) return nullptr;
  Owned<IStream> made(stream);
  ULONG written = 0;
  made->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
  return FAILED(made->Seek({}, STREAM_SEEK_SET, nullptr)) ? nullptr : std::move(made);
}

int readLink(FileWalk& walk, std::string& bytes) {
  std::unique_ptr<SurveyedContent> content;
  int error = walk.open(content);
  bytes.resize(kMostLinkBytes);
  size_t length = 0;
  for (size_t got = 1; !error && got > 0 && length < bytes.size(); length += got)
    error = content->read(bytes.data() + length, bytes.size() - length, got);
  bytes.resize(length);
  return error;
}

// False for what is no shell link.
bool parseLink(const std::string& bytes, SurveyedShortcut& row) {
  IShellLinkW* made = nullptr;
  if (FAILED(::CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                reinterpret_cast<void**>(&made))))
    return false;
  const Owned<IShellLinkW> link(made);
  IPersistStream* loading = nullptr;
  if (FAILED(link->QueryInterface(IID_IPersistStream, reinterpret_cast<void**>(&loading))))
    return false;
  const Owned<IPersistStream> loader(loading);
  const Owned<IStream> stream = streamOf(bytes);
  if (!stream || FAILED(loader->Load(stream.get()))) return false;
  std::vector<wchar_t> text(kMostUnits);
  if (link->GetPath(text.data(), kMostUnits, nullptr, SLGP_RAWPATH) == S_OK)
    row.target = narrow(text.data());
  if (SUCCEEDED(link->GetArguments(text.data(), kMostUnits))) row.arguments = narrow(text.data());
  if (SUCCEEDED(link->GetWorkingDirectory(text.data(), kMostUnits)))
    row.directory = narrow(text.data());
  return true;
}

void tellLink(SurveyGuide& guide, FileWalk& walk, const std::string& path, const std::string& name,
              const Survey::Taker<SurveyedShortcut>& take) {
  constexpr size_t kSuffix = 4;
  std::string bytes;
  if (const int error = readLink(walk, bytes)) {
    if (error != ENOENT) guide.skipped(path, error);
    return;
  }
  SurveyedShortcut row{path, name.substr(0, name.size() - kSuffix), {}, {}, {}};
  if (parseLink(bytes, row)) take(row);
}

bool isLinkName(const std::string& name) {
  const size_t dot = name.rfind('.');
  return dot != std::string::npos && ::lstrcmpiA(name.c_str() + dot, ".lnk") == 0;
}

void tellLinksBelow(SurveyGuide& guide, const std::string& folder,
                    const Survey::Taker<SurveyedShortcut>& take) {
  std::unique_ptr<FileWalk> walk;
  const int error = walkFiles(guide, folder, walk);
  if (error && error != ENOENT && error != ENOTDIR) guide.skipped(folder, error);
  if (error) return;
  for (SurveyedEntry entry; walk->next(entry);) {
    if (entry.isFolder && walk->depth() < kMostDepth) walk->enter();
    if (!entry.isFolder && isLinkName(entry.name))
      tellLink(guide, *walk, folder + "\\" + entry.relative, entry.name, take);
  }
}

void tellLinksOfAll(SurveyGuide& guide, const GUID& id,
                    const Survey::Taker<SurveyedShortcut>& take) {
  wchar_t* path = nullptr;
  if (SUCCEEDED(::SHGetKnownFolderPath(id, KF_FLAG_DONT_VERIFY, nullptr, &path)))
    tellLinksBelow(guide, narrow(path), take);
  ::CoTaskMemFree(path);
}

}  // namespace

void surveyShellLinks(SurveyGuide& guide, const Survey::Taker<SurveyedShortcut>& take) {
  const ComScope com;
  tellLinksOfAll(guide, FOLDERID_CommonStartMenu, take);
  tellLinksOfAll(guide, FOLDERID_PublicDesktop, take);
  RegistryKey profiles;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kProfiles, 0, KEY_READ | KEY_WOW64_64KEY,
                      profiles.receive()))
    return;
  eachSubkey(guide, profiles.get(), [&](const std::wstring& user) {
    RegistryKey profile;
    if (::RegOpenKeyExW(profiles.get(), user.c_str(), 0, KEY_READ | KEY_WOW64_64KEY,
                        profile.receive()))
      return;
    const std::string folder = stringValue(profile.get(), L"ProfileImagePath");
    if (folder.empty()) return;
    tellLinksBelow(guide, folder + "\\AppData\\Roaming\\Microsoft\\Windows\\Start Menu", take);
    tellLinksBelow(guide, folder + "\\Desktop", take);
  });
}

}  // namespace korvane::platform
