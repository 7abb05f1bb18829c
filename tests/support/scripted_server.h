// A management server in the place of libcurl: it answers each exchange with the next
// answer queued for its path word, else with the standing one, else with an empty answer of
// status 200, and keeps the requests.
//
//   ScriptedServer server;                       // takes the transport's place for its lifetime
//   server.always("register", Answer::properties("agent.id=guid-1\n"));
//   server.queue("result", Answer::failure(7));
//   server.setHandler(...);                      // or asks the test itself, on the agent's thread
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/thread/stop_token.h"
#include "comm/https_handler.h"
#include "comm/transport.h"

namespace korvane::tests {

struct Answer {
  int result = 0;  // libcurl's
  long status = 200;
  std::string headers;
  std::string body = "EOF_FLAG\n";
  bool hangs = false;  // until the agent stops

  static Answer failure(int curlCode) { return {curlCode, 0, "", "", false}; }
  static Answer http(long status) { return {0, status, "", "", false}; }
  static Answer error(int code) {
    return {0, 200, "Korvane-Error: " + std::to_string(code) + "\r\n", "EOF_FLAG\n", false};
  }
  static Answer properties(const std::string& lines) {
    return {0, 200, "",
            "Data-Format=text/plain\nData-Type=properties\nData-Length=" +
                std::to_string(lines.size()) + "\n\n" + lines + "\nEOF_FLAG\n",
            false};
  }
  static Answer hanging() { return {0, 0, "", "", true}; }
};

// The properties of a registration that gives an identity.
inline constexpr char kRegistered[] = "agent.id=guid-7\n";

class ScriptedServer {
 public:
  struct Request {
    std::string path;  // the path word
    std::string host;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
  };
  using Handler = std::function<Answer(const Request&)>;

  ScriptedServer() : _state(std::make_shared<State>()) { serveThisRun(); }
  // The exchanges of the current run come here.
  void serveThisRun() { HttpsHandler::setTransport(std::make_unique<ScriptedTransport>(_state)); }
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  void queue(const std::string& path, Answer answer) {
    const std::lock_guard hold(_state->lock);
    _state->queued[path].push_back(std::move(answer));
  }
  void always(const std::string& path, Answer answer) {
    const std::lock_guard hold(_state->lock);
    _state->standing[path] = std::move(answer);
  }
  // Answers every exchange from now on; it may let simulated time pass.
  void setHandler(Handler handler) {
    const std::lock_guard hold(_state->lock);
    _state->handler = std::move(handler);
  }
  // Exchanges with that host fail with libcurl's 7 while it is down; they count as requests.
  void setDown(const std::string& host, bool down) {
    const std::lock_guard hold(_state->lock);
    if (down)
      _state->down.insert(host);
    else
      _state->down.erase(host);
  }
  std::vector<Request> requests(const std::string& path) const {
    const std::lock_guard hold(_state->lock);
    std::vector<Request> found;
    for (const Request& request : _state->requests)
      if (request.path == path) found.push_back(request);
    return found;
  }
  size_t count(const std::string& path) const { return requests(path).size(); }

 private:
  struct State {
    std::mutex lock;
    std::map<std::string, std::deque<Answer>> queued;
    std::map<std::string, Answer> standing;
    std::vector<Request> requests;
    std::set<std::string> down;
    Handler handler;

    Answer take(const TransportRequest& request) {
      std::unique_lock hold(lock);
      const std::string path = request.url.substr(request.url.rfind('/') + 1);
      const size_t host = request.url.find("//") + 2;
      const std::string name =
          request.url.substr(host, request.url.find_first_of(":/", host) - host);
      requests.push_back({path, name, std::string(request.body), request.headers});
      if (down.count(name)) return Answer::failure(7);
      if (const Handler ask = handler) {
        const Request asked = requests.back();
        hold.unlock();
        return ask(asked);
      }
      std::deque<Answer>& queue = queued[path];
      if (queue.empty()) {
        const auto found = standing.find(path);
        return found == standing.end() ? Answer() : found->second;
      }
      Answer answer = std::move(queue.front());
      queue.pop_front();
      return answer;
    }
  };

  class ScriptedTransport : public Transport {
   public:
    explicit ScriptedTransport(std::shared_ptr<State> state) : _state(std::move(state)) {}
    bool open() override { return _open = true; }
    void close() override { _open = false; }
    bool isOpen() const override { return _open; }
    int perform(const TransportRequest& request, TransportSink& sink,
                TransportResult& result) override {
      const Answer answer = _state->take(request);
      if (answer.hangs) {
        shutdownToken().sleepFor(platform::kInfinite);
        return kCurlAbortedByCallback;
      }
      result.httpStatus = answer.status;
      if (answer.result != 0) return answer.result;
      sink.onHeader("HTTP/1.1 200 OK\r\n");
      if (!answer.headers.empty()) sink.onHeader(answer.headers);
      sink.onHeader("\r\n");
      sink.onBody(answer.body);
      return 0;
    }

   private:
    std::shared_ptr<State> _state;
    bool _open = false;
  };

  std::shared_ptr<State> _state;
};

}  // namespace korvane::tests
