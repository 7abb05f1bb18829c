// Fills the answer of one message with what a transfer receives; lives as long as the transfer.
#pragma once

#include "comm/https_message_generator.h"
#include "comm/transport.h"

namespace korvane {

class ResponseSink : public TransportSink {
 public:
  explicit ResponseSink(HttpsMessageGenerator& generator) : _generator(generator) {}
  void onHeader(std::string_view line) override { _generator.addResponseHeaderLine(line); }
  void onBody(std::string_view piece) override { _generator.addResponseBodyLine(piece); }
  bool refuses() const override { return _generator.response().refused(); }

 private:
  HttpsMessageGenerator& _generator;
};

}  // namespace korvane
