// Win32's error numbers of file operations as errno values. Only for the Win32 siblings of
// the seam.
#pragma once

namespace korvane::platform {

// 0 for 0; EIO for what has no value of its own.
int errnoOfWin32(unsigned long error);
// The calling thread's last error. Never 0: a failed call that left no number is EIO.
int lastErrno();

}  // namespace korvane::platform
