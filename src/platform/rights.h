// Who may change what the agent loads, runs and reads.
//
// A file or folder is safe when nobody can change it, or put another in its place, but the system's
// administrators and the account of this process; so the folders above it count, and links on the
// way with what they lead to.
//
// POSIX: each belongs to root or this account, and others write to none of them, nor a group that is
// neither root's nor this process's own. Into a folder with the sticky bit others may write, as long
// as it is not the last part.
// Windows: owners, and accounts with a right to change it, are SYSTEM, the administrators, the
// installer of the system, or this process's account; of the folders above counts who may replace
// what is in them.
// Thread-safe; nothing is kept.
#pragma once

#include <string>

namespace korvane::platform {

// What is unsafe about a full path: "/srv/agent is writable by everybody". Empty when it is safe, not
// there, or an empty text.
std::string unsafePart(const std::string& path);

class Rights {
 public:
  virtual ~Rights() = default;
  // As unsafePart() says.
  virtual std::string fault(const std::string& path) = 0;
  // A fault is told and not acted upon: the host was started with --allow-unsafe.
  virtual bool faultsAllowed() const = 0;
  // The fault for which `path` must not be used.
  std::string refusal(const std::string& path) { return faultsAllowed() ? "" : fault(path); }
};

}  // namespace korvane::platform
