// When the cloud connector last sent a request over the command channel. Threads: any.
#pragma once

namespace korvane {

class ConnectorPresence {
 public:
  // So long after its last command it counts as there.
  static constexpr int kLatelyMs = 300000;

  static void noteAsked();
  static bool askedLately();
};

}  // namespace korvane
