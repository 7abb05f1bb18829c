// The diagnostics of the local channel: a plain text with everything that helps to diagnose an
// agent, without secrets, and its delivery in pieces. Used by one thread.
#pragma once

#include <optional>
#include <string>

#include "cloud/local_service.h"
#include "rpc/rpc_message.h"

namespace korvane {

// Versions, system, state, settings, threads and the end of the agent's own log, in sections "==
// name ==".
std::string diagnosticsText(const AboutAgent& about, const LocalParts& parts);

class Diagnostics {
 public:
  // Bytes of the text in one answer, and of the agent's own log in the text.
  static constexpr size_t kPieceBytes = 64 * 1024;
  static constexpr size_t kLogTailBytes = 256 * 1024;
  // A text that nobody has asked for since is forgotten.
  static constexpr int64_t kKeptMs = 60000;

  // Both outlive the object.
  Diagnostics(const AboutAgent& about, const LocalParts& parts) : _about(about), _parts(parts) {}

  // Piece 0, or none, takes the text anew; the others are pieces of that one.
  void answer(const RPCRequest& request, RPCResponse& response);
  void forgetOld();

 private:
  struct Taken {
    std::string text;
    int number = 0;
    int64_t askedAt = 0;  // monotonic
  };
  // Throws for a text that is not there any more.
  Taken& taken(int piece, const RPCRequest& request);
  static size_t pieceStart(const std::string& text, size_t piece);

  const AboutAgent& _about;
  const LocalParts& _parts;
  std::optional<Taken> _taken;
  int _numbers = 0;
};

}  // namespace korvane
