// Delivers what was collected for a request to the management server: piece after piece, each until
// the server has taken it. docs/application-data.md has the messages, the answers and the bounds.
//
// Refers to what it is given. Used by one thread. A stop ends a transfer and every wait at once.
#pragma once

#include <cstdint>

#include "agent/thread/stop_token.h"
#include "discovery/delivery_folder.h"
#include "platform/fwd.h"

namespace korvane {

class HttpsHandler;
class ServerConnection;
class UpdateSettings;

class AppDataSender {
 public:
  struct Parts {
    platform::Files& files;
    StopToken& stop;
    const UpdateSettings& settings;
    ServerConnection& connection;
    DeliveryFolder& folder;
  };
  enum class Result {
    delivered,
    givenUp,
    stopped,
    unreadable,  // the archive cannot be read any more
  };

  static constexpr int32_t kMostPayloadMib = 16;

  explicit AppDataSender(const Parts& parts) : _parts(parts) {}

  // Sends what `state` says is still to be sent, and keeps it up to date, on disk too.
  [[nodiscard]] Result send(DeliveryState& state);
  // Why the last message was not taken.
  const STRING& reason() const { return _reason; }

 private:
  enum class Answer { taken, refused, again, stopped, unreadable };

  Answer sendPiece(const DeliveryState& state, uint64_t length);
  Answer judge(HttpsHandler& handler, int result);
  bool stopping() const;
  uint64_t nextLength(const DeliveryState& state) const;
  void note(const DeliveryState& state);

  const Parts _parts;
  STRING _reason;
};

}  // namespace korvane
