// A read pointer's file with any content: it is loaded without fault, and what is written
// back loads to the same pointer.
#include <cstdlib>

#include "logs/file_log_pointer.h"
#include "platform/fake/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  constexpr char kPath[] = "/IPS/hidslog1rtfilepointer";
  static platform::FakePlatform fake;
  static const platform::CurrentPlatform current(fake.platform());
  fake.files.put(kPath, {reinterpret_cast<const char*>(data), size});
  FileLogPointer pointer(kPath);
  pointer.addOffset(1);
  pointer.writePointer();
  FileLogPointer again(kPath);
  const bool same = again.getOffset() == pointer.getOffset() &&
                    again.getCurrentLogName() == pointer.getCurrentLogName() &&
                    again.getStartTimeStamp() == pointer.getStartTimeStamp() &&
                    again.getEndTimeStamp() == pointer.getEndTimeStamp();
  if (!same || fake.files.content(kPath).size() != FileLogPointer::kFileBytes) std::abort();
  return 0;
}
