// The line between an agent and the model server, in the place of libcurl.
#pragma once

#include "comm/transport.h"
#include "simulate/machine.h"

namespace korvane::simulation {

class LineToServer final : public Transport {
 public:
  LineToServer(Machine& machine, ProcessLine& line) : _machine(machine), _line(line) {}

  bool open() override { return _open = true; }
  void close() override { _open = false; }
  bool isOpen() const override { return _open; }
  int perform(const TransportRequest& request, TransportSink& sink,
              TransportResult& result) override;

 private:
  int receive(const WireAnswer& answer, TransportSink& sink, TransportResult& result);
  // False when the agent is stopped, or has died, meanwhile.
  bool wait(int64_t ms);

  Machine& _machine;
  ProcessLine& _line;
  bool _open = false;
};

}  // namespace korvane::simulation
