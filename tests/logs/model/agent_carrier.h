// The carrier at the other end of the event pipe: takes notices apart for the model's
// receiver and answers what it says. It is attached whenever the agent looks; what it
// leaves unanswered it leaves by going.
#pragma once

#include <deque>
#include <stdexcept>
#include <string>

#include "platform/fake/manual_clock.h"
#include "rpc/json_text.h"
#include "rpc/rpc_transport_base.h"
#include "tests/logs/model/forwarder.h"

namespace korvane::log_model {

class ScriptedCarrier final : public RPCTransportBase {
 public:
  ScriptedCarrier(Receiver& receiver, platform::ManualClock& waits)
      : _receiver(receiver), _waits(waits) {}

  bool start() override { return true; }
  RPCReceive receive(std::string& message, int waitMs) override {
    if (!_there) attach();
    if (_messages.empty()) {
      if (_leaving) leave();
      _waits.advance(waitMs);
      return RPCReceive::nothing;
    }
    message = _messages.front();
    _messages.pop_front();
    return RPCReceive::message;
  }
  bool send(const std::string& message) override {
    JsonTree tree;
    if (!parseJson(message, tree)) throw std::logic_error("no JSON: " + message);
    if (tree.get<std::string>("name", "") == "RPC_EVENT_NOTICE") take(tree.get_child("params"));
    return true;
  }
  void drop() override { leave(); }
  bool hasPeer() override { return _there; }
  bool peerIsAdministrator() override { return true; }
  uint64_t connection() const override { return _connection; }
  size_t messageBytes() const override { return 8u << 20; }
  uint32_t lastError() const override { return 0; }
  void interrupt() override {}

 private:
  void attach() {
    _there = true;
    _messages.push_back(R"({"jsonrpc":"2.0","id":1,"name":"attach"})");
  }
  void leave() {
    ++_connection;
    _there = _leaving = false;
    _messages.clear();
  }

  void take(const JsonTree& notice) {
    const auto id = notice.get<std::string>("eventSendID");
    Batch batch;
    for (const auto& [none, event] : notice.get_child("events")) {
      batch.emplace_back();
      for (const auto& [name, value] : event) batch.back().emplace_back(name, value.data());
    }
    if (std::to_string(batch.size()) != notice.get<std::string>("count"))
      throw std::logic_error("a notice that counts wrongly");
    const Answer answer = _receiver.take(batch);
    const std::string sent =
        R"({"jsonrpc":"2.0","name":"RPC_EVENT_SENT","params":{"eventSendID":")" + id + "\"}}";
    const bool sentFirst = ++_notices % 2 == 0;
    if (answer.outcome == Outcome::answered) {
      if (sentFirst) _messages.push_back(sent);
      _messages.push_back(R"({"jsonrpc":"2.0","name":"RPC_EVENT_ACK","params":{"eventAckID":")" +
                          id + R"(","code":")" + std::to_string(answer.code) + "\"}}");
      if (!sentFirst) _messages.push_back(sent);
      return;
    }
    if (answer.outcome == Outcome::answerLost && sentFirst) _messages.push_back(sent);
    _leaving = true;
  }

  Receiver& _receiver;
  platform::ManualClock& _waits;
  std::deque<std::string> _messages;
  bool _there = false;
  bool _leaving = false;
  uint64_t _connection = 1;
  int _notices = 0;
};

}  // namespace korvane::log_model
