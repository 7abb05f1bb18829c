// The byte transport of the local channel: whole messages over one named pipe, as a run of frames.
//
// Every frame is exactly 4096 bytes. The first one of a message begins with DE AD BE EF and the
// message's length (32-bit little-endian) and holds its first 4088 bytes; each further one holds
// 4096 bytes; the last one is filled up with zeros. docs/rpc.md has the table.
//
// Lifetime: `pipes` and `clock` must outlive the object. The destructor closes the pipe. The
// server's end recreates its pipe when the client has gone; a client's end stays closed
// until it is opened again.
// Threads: one at a time; interrupt() from any other.
// Errors: false, or 138 (time-out) and 32 (pipe failure) at the level of bytes; traces of source
// "RPC" name the system's number.
// Units: milliseconds. Waits go in steps of 100 ms. A step ends early when the pipe tells that
// something has come (Linux), and one for data may be a second there; what is there already is
// never waited for. Frames that begin no message are skipped, in one call for as long as it may
// wait for data, but a second at least; the next call goes on with them.
// Bounds: a message above Limits::messageBytes (ordinaryBytes, for a server's end) is neither sent nor received, and none takes longer
// than Limits::messageMs from its first frame to its last, however slow the peer is.
//
//   Fifo server(pipes, clock, "korvane-agent");
//   server.create();
//   std::string request;
//   if (server.readMessage(request, 1000, 2000)) server.writeMessage(answerTo(request), 2000);
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "agent/thread/locks.h"
#include "platform/fwd.h"
#include "platform/pipes.h"

namespace korvane {

class Fifo {
 public:
  struct Limits {
    uint32_t messageBytes = 8u << 20;
    int messageMs = 30000;
    uint32_t ordinaryBytes = 64u << 10;  // messageBytes of a client that is no administrator
  };
  // How the last readMessage() ended.
  enum class ReadEnd {
    message,
    nothing,  // no byte came, or nothing but frames that begin no message
    reset,    // the peer has gone
    stalled,  // no whole frame in time
    tooLong,  // the declared length is above the limit; what follows of it is skipped as it comes
  };

  static constexpr size_t kFrameBytes = 4096;
  static constexpr int kTimeout = 138;
  static constexpr int kPipeFailure = 32;

  Fifo(platform::Pipes& pipes, platform::Clock& clock, std::string name)
      : Fifo(pipes, clock, std::move(name), Limits()) {}
  // audience: of a server's end.
  Fifo(platform::Pipes& pipes, platform::Clock& clock, std::string name, Limits limits,
       platform::PipeAudience audience = platform::PipeAudience::everyone);
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;
  virtual ~Fifo();
  // Makes the server's end; one that is there lets its client go.
  [[nodiscard]] virtual bool create();
  virtual void close();
  // Opens a client's end; true at once when it is open.
  [[nodiscard]] virtual bool open();

  [[nodiscard]] bool readMessage(std::string& out, int waitMs, int readTimeoutMs);
  [[nodiscard]] bool writeMessage(const std::string& message, int timeoutMs);

  // Bytes moved, kTimeout or kPipeFailure.
  [[nodiscard]] int readBytes(void* buffer, size_t count, int timeoutMs);
  [[nodiscard]] int writeBytes(const void* buffer, size_t count, int timeoutMs);
  // True as soon as a byte can be read.
  [[nodiscard]] bool waitForData(int timeoutMs);

  // Ends the present wait and every later one, of this pipe and those made after it.
  void interrupt();

  const Limits& limits() const { return _limits; }
  ReadEnd lastRead() const { return _lastRead; }
  // The seam's number of the last create() or open().
  uint32_t lastError() const { return _lastError; }
  bool isOpen() const { return _pipe != nullptr; }
  // Server's end: whether a client is connected.
  bool hasPeer();
  bool peerIsAdministrator();
  // Another number for every pipe that was made or opened.
  uint64_t connection() const { return _connection; }

 private:
  [[nodiscard]] bool adopt(uint32_t error, std::unique_ptr<platform::Pipe> pipe);
  void closePipe();
  [[nodiscard]] bool renew();
  void reset();
  uint32_t available(size_t& count);
  [[nodiscard]] uint32_t gather(size_t count);
  [[nodiscard]] bool step(platform::PipeEvent event, int leftMs = 0);
  [[nodiscard]] bool endRead(ReadEnd end);
  // The first frame of a message, others skipped; then the rest of it.
  [[nodiscard]] bool readHeader(int waitMs, int readTimeoutMs, int64_t deadline);
  uint32_t receivableBytes(uint32_t length);
  [[nodiscard]] bool readFrame(int readTimeoutMs, int64_t deadline);
  [[nodiscard]] bool writeFrame(int timeoutMs, int64_t deadline);
  int untilDeadline(int timeoutMs, int64_t deadline);

  platform::Pipes& _pipes;
  platform::Clock& _clock;
  const std::string _name;
  const Limits _limits;
  const platform::PipeAudience _audience;

  std::vector<char> _frame;
  std::unique_ptr<platform::Pipe> _pipe;
  bool _server = false;
  std::string _received;  // the beginning of a frame that has not come whole yet
  ReadEnd _lastRead = ReadEnd::nothing;
  uint32_t _lastError = 0;
  uint64_t _connection = 0;

  Win32Mutex _lock;
  platform::Pipe* _interruptible GUARDED_BY(_lock) = nullptr;  // _pipe, for interrupt()
  bool _interrupted GUARDED_BY(_lock) = false;
};

}  // namespace korvane
