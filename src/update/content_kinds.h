// The four kinds of content package: how each is asked for, where it is unpacked, and the settings
// that say what is to be done with it.
//
// Constant data; the two directories depend on the settings and the install root of the moment.
#pragma once

#include <span>
#include <string>

#include "agent/thread/locks.h"
#include "config/settings_file.h"
#include "config/update_settings.h"
#include "platform/fwd.h"

namespace korvane {

struct ContentKind {
  int bit;                 // the update kind, 32 to 256
  const char* binaryName;  // what the server's answer is asked for
  const char* product;     // as the server names it
  const char* shortName;   // of folders and files
  STRING (UpdateSettings::*configuredDirectory)() const;
  bool (UpdateSettings::*updateNow)() const;
  void (UpdateSettings::*setUpdateNow)(bool);
  STRING (UpdateSettings::*metadata)() const;
  void (UpdateSettings::*setMetadata)(const STRING&);

  // Where the package is unpacked: the configured folder, or IPS/content/<short name>.
  std::string directory(const platform::Files& files, const UpdateSettings& settings) const;
  // IDS/content, where the detection component finds all of them.
  static std::string handOverDirectory(const platform::Files& files);
};

// In the order of the bits.
std::span<const ContentKind> contentKinds();
// Null for a bit that is not a content kind's.
const ContentKind* contentKindOf(int bit);

inline constexpr char kContentArchive[] = "data.zip";
// An archive that is larger is not read back.
inline constexpr uint64_t kLargestContentArchive = 256 * 1024 * 1024;

// What changes the content of one agent; all of it outlives who is given it.
struct ContentParts {
  platform::Files& files;
  UpdateSettings& settings;
  SettingsFile& settingsFile;
  // Whoever changes a kind's directory or its update-now flag holds it, so that a package is never
  // taken over while the next one is being put in its place.
  Win32Mutex& lock;
};

}  // namespace korvane
