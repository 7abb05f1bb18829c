// What the simulator does with requests and commands, without any socket: which requests are
// answered, when, and how the operator changes that. docs/file-formats.md lists the commands.
//
// Used by one thread. Connections are named by numbers that the caller chooses; time is in
// milliseconds on any clock that does not go back.
//
//   simulator.request(connection, frame, now);
//   for (Answer& answer : simulator.due(now)) send(answer.connection, encode(answer.frame));
#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "driver-simulator/driver_model.h"
#include "driver-simulator/frames.h"

namespace korvane::simulator {

inline constexpr uint32_t kCommandCode = KVP_COMMAND_CODE;

struct Answer {
  int connection = 0;
  Frame frame;
};

class Simulator {
 public:
  explicit Simulator(DriverModel& model) : _model(model) {}

  // A request or cancel frame from the device's socket. False for a frame that has no business
  // there.
  bool request(int connection, const Frame& frame, int64_t nowMs);
  // A request frame from the control socket.
  Frame command(const Frame& frame);
  // Forgets what is pending on a connection that has ended.
  void closed(int connection);
  // The answers that are due now.
  std::vector<Answer> due(int64_t nowMs);
  // When the next answer is due, if any is.
  std::optional<int64_t> nextDue() const;
  // Whether the device exists at present.
  bool present() const { return _model.control().vanished == 0; }

 private:
  struct Pending {
    int connection;
    Frame frame;
    kvp_mode mode;
    uint32_t error;
    int64_t dueMs;
  };

  void cancel(int connection, uint32_t number);
  Frame perform(const Pending& pending);
  std::string state();

  DriverModel& _model;
  std::list<Pending> _pending;
};

}  // namespace korvane::simulator
