// The simulator's two sockets and its loop: the device's "kavips.sock" and the operator's
// "kavips-control.sock" in the run directory, both for this user alone. One thread does everything.
#pragma once

#include <map>
#include <string>

#include "driver-simulator/frames.h"
#include "driver-simulator/simulator.h"
#include "platform/clock.h"
#include "platform/descriptor_posix.h"

namespace korvane::simulator {

class Server {
 public:
  Server(std::string runDirectory, Simulator& simulator, platform::Clock& clock);
  // Closes everything and removes the sockets that it made.
  ~Server();

  // Opens the sockets; a left-over one that nobody listens on is replaced. False, with the reason
  // in `problem`, when that fails.
  bool open(std::string& problem);
  // Serves until `stopDescriptor` becomes readable.
  void run(int stopDescriptor);

 private:
  struct Connection {
    platform::Descriptor descriptor;
    bool control = false;
    FrameReader reader;
    std::string unsent;
  };

  bool listen(const std::string& path, platform::Descriptor& out, std::string& problem);
  void followPresence();
  void accept(const platform::Descriptor& listener, bool control);
  bool read(int number, Connection& connection);
  bool serve(int number, Connection& connection, const Frame& frame);
  void answerDue();
  bool write(Connection& connection);
  void close(int number);
  int pollTimeout() const;
  void pass(int stopDescriptor, bool& stop);

  const std::string _devicePath;
  const std::string _controlPath;
  Simulator& _simulator;
  platform::Clock& _clock;
  platform::Descriptor _device;
  platform::Descriptor _control;
  std::map<int, Connection> _connections;  // by a number that is never used again
  int _lastNumber = 0;
};

}  // namespace korvane::simulator
