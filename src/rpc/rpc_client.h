// A client of one of the agent's pipes: calls a method and gives its answer.
//
// The pipe is opened when it is needed and stays open between calls; the server closes it after 10
// seconds of silence, and serves one client at a time: close() lets the next one in. Within the
// time of a call the client retries when
//   - the server has another client (231),
//   - the pipe is closed before the answer came (109): it was disconnected, or waited in vain,
//   - nobody serves the name (2), for kRemakeMs at most: the server is recreating its pipe.
// A request may therefore be carried out more than once.
// Lifetime: pipes and clock outlive the object. Threads: one at a time.
// Errors: RPCCallError for an answer that is an error, RPCUnreachable when there was none.
// Units: milliseconds.
//
//   RPCClient client(current().pipes, current().clock, kLocalPipe);
//   const RPCResponse answer = client.call("getAgentVersion", {}, 5000);
//   const std::string version = answer.result.get<std::string>("version");
#pragma once

#include <stdexcept>
#include <string>

#include "agent/thread/stop_token.h"
#include "rpc/fifo.h"
#include "rpc/rpc_message.h"

namespace korvane {

// The server's answer was an error: "setSettings failed: -32602 Invalid params
// (agent.http.url: ...)".
class RPCCallError : public std::runtime_error {
 public:
  RPCCallError(const std::string& method, int code, std::string text, std::string detail);
  int code() const { return _code; }
  const std::string& text() const { return _text; }  // the code's
  const std::string& detail() const {
    return _detail;
  }  // what the method says beyond that; may be empty

 private:
  int _code;
  std::string _text;
  std::string _detail;
};

// There was no answer; what() says what was tried. code(): the number of the system (2, 5,
// 109, 231 ...) or RPCClient::kTimeout.
class RPCUnreachable : public std::runtime_error {
 public:
  RPCUnreachable(uint32_t code, const std::string& what) : std::runtime_error(what), _code(code) {}
  uint32_t code() const { return _code; }

 private:
  uint32_t _code;
};

class RPCClient {
 public:
  static constexpr uint32_t kTimeout = Fifo::kTimeout;
  static constexpr int kRemakeMs = 1000;

  RPCClient(platform::Pipes& pipes, platform::Clock& clock, std::string pipeName);

  RPCResponse call(const std::string& method, const JsonTree& params, int timeoutMs);
  // Leaves `params` empty: large ones are sent without a copy.
  RPCResponse call(const std::string& method, JsonTree&& params, int timeoutMs);
  // For an answer in pieces: the application data of all of them, asked for with "piece" from 0 on
  // and the "snapshot" that the first answer names. timeoutMs is for each.
  std::string callAll(const std::string& method, const JsonTree& params, int timeoutMs);
  void close() { _fifo.close(); }

 private:
  std::string requestText(const std::string& method, JsonTree&& params);
  void open(const std::string& method, int64_t deadline);
  [[nodiscard]] bool exchange(const std::string& request, int64_t deadline, RPCResponse& out);
  bool isAnswer(std::string&& text, RPCResponse& out) const;
  int remaining(int64_t deadline) const;
  [[noreturn]] void unreachable(uint32_t code, const std::string& method, const char* what);

  platform::Clock& _clock;
  const std::string _name;
  Fifo _fifo;
  StopToken _never;
  int _id = 0;
};

}  // namespace korvane
