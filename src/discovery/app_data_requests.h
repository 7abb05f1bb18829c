// The server's requests for application data, on their way from the update thread to the thread
// that collects. One request is kept; a newer one takes its place.
//
// One object for each run of an agent. Threads: any; await() is for the collecting thread.
//
//   requests.post(outputFile);               // update thread
//   while (requests.await(stopToken(), file)) collectInto(file);
#pragma once

#include <optional>

#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "util/string.h"

namespace korvane {

class AppDataRequests {
 public:
  // outputFile: where the collecting thread is to write, a full path.
  void post(const STRING& outputFile);
  // Waits for a request and takes it; false once `stop` is set.
  [[nodiscard]] bool await(StopToken& stop, STRING& outputFile);
  // Takes a request that is there.
  [[nodiscard]] bool take(STRING& outputFile);

 private:
  platform::Event& changed();

  PrimitiveHolder<platform::Event> _changed;
  Win32Mutex _lock;
  std::optional<STRING> _request GUARDED_BY(_lock);
};

}  // namespace korvane
