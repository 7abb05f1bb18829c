// Takes an unpacked content package over: verifies it, puts it into the IDS component's folder,
// records what it is in the settings and clears the kind's update-now flag.
//
// In InstallRoot/IDS/content every package has a directory of its own, "<short name>-<digits of its
// digest>", and "<short name>.properties" names the one in force. So the component sees the old
// package or the new one, never parts of both.
//
// Crash rule: the order is the new directory, the file that names it, metadata and flag in one
// write of the settings, and last the removal of directories that are not named any more. A crash
// before the write repeats all of it at the next start, and doing it again changes nothing.
//
// Threads: any; holds the content's lock meanwhile.
#pragma once

#include <functional>

#include "update/content_package.h"

namespace korvane {

// done: handed over. refused: the package cannot be used, the flag is cleared. failed: the disk
// refused or `cancelled` became true; the flag stays for another attempt. The refusal says why.
ContentPackage::Outcome handOverContent(const ContentParts& parts, const ContentKind& kind,
                                        const std::function<bool()>& cancelled,
                                        archive::Refusal& refusal);

}  // namespace korvane
