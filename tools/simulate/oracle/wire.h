// What goes to and fro between an agent and the model server, and the files that the oracle sees.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace korvane::simulation {

// What a server can offer, by the ending of its keys: "update.NAME", and "result.NAME" of a report.
inline constexpr std::array<const char*, 9> kUpdateKinds = {"config",
                                                            "policy",
                                                            "software",
                                                            "policy.ids",
                                                            "config.ids",
                                                            "qel",
                                                            "ferrolyn.revocation",
                                                            "ferrolyn.settings",
                                                            "ferrolyn.vexvt"};

struct WireRequest {
  std::string host;     // that the agent has turned to
  std::string path;     // of the URL, with the message's word at its end
  std::string headers;  // those that the agent itself adds: "Name: value", a line each
  std::string body;
};

struct WireAnswer {
  enum class Fate {
    answered,  // after `delayMs`
    refused,   // the connection; code 7
    hung,      // the server has the request and stays silent until somebody gives up; code 28
    cutOff,    // `body` is what came before the connection broke; code 56
    lost,      // the server has the request, the connection breaks before the first byte; code 56
  };
  uint64_t id = 0;  // for ModelServer::arrived
  Fate fate = Fate::answered;
  int status = 200;
  std::string headers;  // "Name: value", a line each, without those that HTTP itself needs
  std::string body;
  int64_t delayMs = 0;
};

// Files as an agent would see them. The oracle only reads.
struct DiskView {
  std::function<std::optional<std::string>(const std::string& path)> read;
  std::function<std::vector<std::string>()> paths;
  // A value of the driver's parameters, for example "Filter File"; empty when there is none.
  std::function<std::string(const std::string& name)> parameter;
};

}  // namespace korvane::simulation
