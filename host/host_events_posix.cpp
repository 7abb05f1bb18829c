#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "host/host_events.h"

namespace korvane::host {
namespace {

constexpr char kStop = 's';
constexpr char kEnded = 'e';

int pipeEnds[2] = {-1, -1};
sigset_t signalsOfWaiting;

void put(char what) {
  const int before = errno;
  // A full pipe holds more of the same already.
  while (write(pipeEnds[1], &what, 1) < 0 && errno == EINTR) {
  }
  errno = before;
}

void onSignal(int) {
  put(kStop);
}

void handle(int signalNumber, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigaction(signalNumber, &action, nullptr);
}

}  // namespace

// The signals stay blocked in every thread, as all inherit the main thread's mask, and reach their
// handler only while the main thread waits.
HostEvents::HostEvents(StopRequests requests, const std::string&) {
  if (pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) std::abort();
  handle(SIGPIPE, SIG_IGN);
  pthread_sigmask(SIG_SETMASK, nullptr, &signalsOfWaiting);
  if (requests == StopRequests::fromCaller) return;
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, &signalsOfWaiting);
  sigdelset(&signalsOfWaiting, SIGINT);
  sigdelset(&signalsOfWaiting, SIGTERM);
  handle(SIGINT, onSignal);
  handle(SIGTERM, onSignal);
}

HostEvents::~HostEvents() {
  handle(SIGINT, SIG_IGN);
  handle(SIGTERM, SIG_IGN);
  close(pipeEnds[0]);
  close(pipeEnds[1]);
}

HostEvent HostEvents::wait(uint32_t timeoutMs) {
  pollfd readable = {pipeEnds[0], POLLIN, 0};
  const timespec limit = {timeoutMs / 1000, timeoutMs % 1000 * 1000000L};
  // A signal interrupts the wait, and its byte is there then.
  if (ppoll(&readable, 1, &limit, &signalsOfWaiting) < 0 && errno != EINTR)
    return HostEvent::nothing;
  char what = 0;
  if (read(pipeEnds[0], &what, 1) != 1) return HostEvent::nothing;
  return what == kEnded ? HostEvent::agentEnded : HostEvent::stopRequested;
}

void HostEvents::requestStop() {
  put(kStop);
}

void HostEvents::agentEnded() {
  put(kEnded);
}

void setEnvironment(const char* name, const std::string& value) {
  setenv(name, value.c_str(), /*overwrite=*/1);
}

std::string programPath() {
  return std::filesystem::read_symlink("/proc/self/exe").string();
}

std::string programDirectory() {
  return std::filesystem::path(programPath()).parent_path().string();
}

}  // namespace korvane::host
