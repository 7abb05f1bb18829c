#include "platform/waiting_room_win.h"

#include <sddl.h>

#include <algorithm>

#include "platform/error_codes.h"

namespace korvane::platform {
namespace {

constexpr DWORD kPipeBytes = 65536;
// SYSTEM, Administrators and the server's own account, which is the owner (S-1-3-4): all;
// authenticated users: read and write without FILE_APPEND_DATA, which with a pipe is the right to
// serve the name too, or nothing; nothing is inherited.
constexpr wchar_t kForEveryone[] =
    L"D:P(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;S-1-3-4)(A;;0x12019b;;;AU)";
constexpr wchar_t kForAdministrators[] = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;S-1-3-4)";
// Who is served, who waits, the doors, and one more while a caller goes from a door to its place.
constexpr DWORD kInstances = 1 + WaitingRoom::Places::kAccounts +
                             WaitingRoom::Places::kAdministrators + WaitingRoom::kDoors + 1;

bool isListening(HANDLE instance) {
  return !::PeekNamedPipe(instance, nullptr, 0, nullptr, nullptr, nullptr) &&
         ::GetLastError() == ERROR_BAD_PIPE;
}

// Its place is free for another connection of the account.
bool hasGone(const FileHandle& instance) {
  return !::PeekNamedPipe(instance.get(), nullptr, 0, nullptr, nullptr, nullptr);
}

// There is no end of the name's but this one.
bool isAlone(HANDLE instance) {
  DWORD instances = 0;
  return ::GetNamedPipeHandleStateW(instance, nullptr, &instances, nullptr, nullptr, nullptr, 0) &&
         instances == 1;
}

}  // namespace

FileHandle WaitingRoom::makeInstance(DWORD flags) {
  SECURITY_ATTRIBUTES security = {sizeof security, _access.get(), /*bInheritHandle=*/FALSE};
  return FileHandle(::CreateNamedPipeW(
      _name.c_str(), PIPE_ACCESS_DUPLEX | flags,
      PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_NOWAIT | PIPE_REJECT_REMOTE_CLIENTS, kInstances,
      kPipeBytes, kPipeBytes, /*nDefaultTimeOut=*/0, &security));
}

uint32_t WaitingRoom::open() {
  const bool everyone = _audience == PipeAudience::everyone;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(
          everyone ? kForEveryone : kForAdministrators, SDDL_REVISION_1, _access.receive(),
          nullptr))
    return ::GetLastError();
  FileHandle first = makeInstance(FILE_FLAG_FIRST_PIPE_INSTANCE);
  // Also of a pipe that somebody made to let others in beside its own end.
  if (!first) return ::GetLastError() == ERROR_ACCESS_DENIED ? kErrorPipeBusy : ::GetLastError();
  if (!isAlone(first.get())) return kErrorPipeBusy;
  _doors.push_back(std::move(first));
  return kOk;
}

void WaitingRoom::admit(bool sparingly) {
  const ULONGLONG now = ::GetTickCount64();
  if (now < _closedUntil) return;
  size_t knocked = 0, surplus = 0;
  for (FileHandle& door : _doors) {
    if (isListening(door.get())) continue;
    ++knocked;
    FileHandle instance = _places.isFull() ? FileHandle() : makeInstance(0);
    if (!instance) break;
    std::swap(door, instance);
    if (!place(std::move(instance))) ++surplus;
  }
  if (surplus > 0 || (knocked > 0 && sparingly)) _closedUntil = now + kPauseMs;
  if (knocked == 0 && _doors.size() > 1) _doors.resize(1);
  while (_doors.size() < std::min(kDoors, 2 * surplus)) {
    FileHandle another = makeInstance(0);
    if (!another) break;
    _doors.push_back(std::move(another));
  }
}

// Who can open a pipe for administrators alone is one.
bool WaitingRoom::place(FileHandle instance) {
  ClientAccount account;
  account.administrator = _audience == PipeAudience::administrators;
  if (!account.administrator) account = _accountOf(instance.get());
  return _places.place({std::move(instance), std::move(account.sid), account.administrator},
                       hasGone);
}

}  // namespace korvane::platform
