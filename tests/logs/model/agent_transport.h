// Stands where libcurl does: takes the messages of a standard agent apart for the model's
// receiver and answers what it says. A body that does not come apart is a broken promise of
// the program, so it throws std::logic_error.
#pragma once

#include <charconv>
#include <stdexcept>
#include <string>
#include <string_view>

#include "comm/transport.h"
#include "tests/logs/model/forwarder.h"

namespace korvane::log_model {

// Reads a message body; every byte of it has to be accounted for.
class BodyReader {
 public:
  explicit BodyReader(std::string_view body) : _rest(body) {}

  Batch batch() {
    Batch records;
    while (!_rest.starts_with("EOF_FLAG\n")) records.push_back(record());
    if (_rest.size() != std::string_view("EOF_FLAG\n").size()) refuse("more behind its end");
    return records;
  }

 private:
  [[noreturn]] static void refuse(const std::string& what) {
    throw std::logic_error("a message that does not come apart: " + what);
  }
  void expect(std::string_view text) {
    if (!_rest.starts_with(text)) refuse("no \"" + std::string(text) + "\"");
    _rest.remove_prefix(text.size());
  }
  std::string_view line(std::string_view& of) {
    const size_t end = of.find('\n');
    if (end == std::string_view::npos) refuse("a line without an end");
    const std::string_view text = of.substr(0, end);
    of.remove_prefix(end + 1);
    return text;
  }
  Record record() {
    expect("Data-Format=text/plain\nData-Type=properties\nData-Length=");
    size_t length = 0;
    const std::string_view digits = line(_rest);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
    if (error != std::errc() || end != digits.data() + digits.size()) refuse("a length");
    expect("\n");
    if (length > _rest.size()) refuse("a length beyond its end");
    std::string_view payload = _rest.substr(0, length);
    _rest.remove_prefix(length);
    expect("\n");
    Record record;
    while (!payload.empty()) {
      const std::string_view pair = line(payload);
      const size_t equals = pair.find('=');
      if (equals == std::string_view::npos) refuse("a line that is not a pair");
      record.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
    }
    return record;
  }

  std::string_view _rest;
};

class ScriptedTransport final : public Transport {
 public:
  explicit ScriptedTransport(Receiver& receiver) : _receiver(receiver) {}
  bool open() override { return _open = true; }
  void close() override { _open = false; }
  bool isOpen() const override { return _open; }

  int perform(const TransportRequest& request, TransportSink& sink,
              TransportResult& result) override {
    const Answer answer = _receiver.take(BodyReader(request.body).batch());
    if (answer.outcome != Outcome::answered) return fail(answer, result);
    respond(sink, result, 200, answer.code);
    return 0;
  }

 private:
  static constexpr int kLostAnswer = 56, kNoConnection = 7;

  int fail(const Answer& answer, TransportResult& result) {
    if (answer.code > 200) {
      result.httpStatus = answer.code;
      return 0;
    }
    if (answer.code != 0) return answer.code;
    return answer.outcome == Outcome::answerLost ? kLostAnswer : kNoConnection;
  }
  static void respond(TransportSink& sink, TransportResult& result, int status, int code) {
    result.httpStatus = status;
    sink.onHeader("HTTP/1.1 " + std::to_string(status) + " OK\r\n");
    sink.onHeader("Korvane-Error: " + std::to_string(code) + "\r\n");
    sink.onHeader("Content-Length: 9\r\n");
    sink.onHeader("\r\n");
    sink.onBody("EOF_FLAG\n");
  }

  Receiver& _receiver;
  bool _open = false;
};

}  // namespace korvane::log_model
