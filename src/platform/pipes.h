// Local byte pipes: one server, one client at a time, both on this machine. No call but wait()
// blocks, and open() for a moment. Returns are Win32 error numbers.
//
// Names are what follows "\\.\pipe\", which may stand before them. One end exists on the server's
// side for a name; a second one is refused with 231. Where everyone may connect, a client of
// another account may read and write: who may do what is decided by the peer's rights.
// Lifetime: a pipe is closed by its destructor, what the peer has not read is lost then.
// Threads: a pipe is used by one thread; interrupt() may be called by any other.
//
// Further clients connect, may write, and wait for their turn: an ordinary account has one place,
// what else it connects is closed; administrators are served before others, and one who waits ends
// an ordinary client's turn kTurnMs after it began (109). Ordinary clients have a small share of the
// processor (platform/caller_allowance.h); where it is used up, their bytes are not there yet. One
// for whom there is no place at all is refused with 231, after a tenth of a second.
//
// Windows: CreateNamedPipe with PIPE_NOWAIT and PIPE_REJECT_REMOTE_CLIENTS, 65536 bytes each way, an
// instance for each client; a DACL of SYSTEM, Administrators and the server's account (all) and
// authenticated users (read, write, no instances of their own). Whose process has connected decides
// about places and turns; clients whose account is not known share a place. A client is refused with
// 5 at a pipe whose owner is neither SYSTEM, nor Administrators, nor the client's own account.
// wait() sleeps for its whole time, in an alertable wait, since a pipe without overlapped calls
// cannot be waited for; who comes meanwhile is let in by the next call.
// Linux: a Unix stream socket "<name>.pipe" in the run directory, mode 0666 or 0600. A client is
// refused with 5 by a server that is neither root's, nor its own account's, nor of the account that
// the run directory belongs to. wait() ends as soon as something has happened.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace korvane::platform {

enum class PipeWait {
  ended,  // something may have changed, or the time is up
  interrupted,
};

enum class PipeEvent {
  readable,  // bytes, or a client, have come
  writable,  // there is room again
};

// Who may connect; the operating system refuses others.
enum class PipeAudience {
  everyone,        // every account of this machine
  administrators,  // SYSTEM and Administrators, or root; and the server's own account
};

class Pipe {
 public:
  static constexpr uint32_t kTurnMs = 2000;

  virtual ~Pipe() = default;
  // How many bytes can be read. 230: no client has come yet. 109: the peer has gone and all
  // is read.
  [[nodiscard]] virtual uint32_t peek(size_t& available) = 0;
  // Reads at most `size` bytes; 232: none there, 109: as above.
  [[nodiscard]] virtual uint32_t read(void* buffer, size_t size, size_t& got) = 0;
  // Writes a whole frame of at most 4096 bytes or, when there is no room, nothing: `written` is 0
  // then and the call has not failed. 536: no client has come yet. 232: the peer has gone.
  [[nodiscard]] virtual uint32_t write(const void* bytes, size_t size, size_t& written) = 0;
  [[nodiscard]] virtual PipeWait wait(PipeEvent event, uint32_t timeoutMs) = 0;
  // Whether wait() ends as soon as something has happened, so that a long one is as good as
  // many short ones.
  virtual bool wakes() const { return false; }
  // Server's end, once bytes of the client have been read: whether the client may change what
  // the agent does. Windows: a member of Administrators, or SYSTEM. Linux: root or the
  // server's own user.
  virtual bool peerIsAdministrator() = 0;
  // Server's end: lets its client go and is as if recreated, for the next one, who may wait already;
  // the name is served all the time, and an interrupt stays. After an error the end is good for
  // nothing but its destruction.
  [[nodiscard]] virtual uint32_t renew() = 0;
  // Makes wait(), the present call and every later one, end as interrupted. Any thread.
  virtual void interrupt() = 0;
};

class Pipes {
 public:
  virtual ~Pipes() = default;
  // The server's end. 231: somebody serves that name already. 3, on Linux: no run directory is set.
  [[nodiscard]] virtual uint32_t create(const std::string& name, PipeAudience audience,
                                        std::unique_ptr<Pipe>& out) = 0;
  // A client's end. 2: nobody serves that name. 231: there is no place to wait in. 5: it is for
  // administrators, or served by somebody who is not to be trusted.
  [[nodiscard]] virtual uint32_t open(const std::string& name, std::unique_ptr<Pipe>& out) = 0;
};

// A pipe's name without "\\.\pipe\".
inline std::string barePipeName(const std::string& name) {
  constexpr char kPrefix[] = "\\\\.\\pipe\\";
  constexpr size_t kLength = sizeof kPrefix - 1;
  return name.compare(0, kLength, kPrefix) == 0 ? name.substr(kLength) : name;
}

}  // namespace korvane::platform
