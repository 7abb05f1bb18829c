#include "discovery/app_data_requests.h"

#include <utility>

#include "agent/thread/exceptions.h"
#include "platform/threading.h"

namespace korvane {

platform::Event& AppDataRequests::changed() {
  platform::Event* event = _changed.get(
      [](platform::Threading& threading) { return threading.createEvent(false, false); });
  if (!event) throw ThreadException("AppDataRequests::changed()", 8);
  return *event;
}

void AppDataRequests::post(const STRING& outputFile) {
  {
    const Synchronized hold(_lock);
    _request = outputFile;
  }
  changed().set();
}

bool AppDataRequests::take(STRING& outputFile) {
  const Synchronized hold(_lock);
  if (!_request) return false;
  outputFile = std::move(*_request);
  _request.reset();
  return true;
}

bool AppDataRequests::await(StopToken& stop, STRING& outputFile) {
  platform::Event& event = changed();
  const StopCallback wake(stop, [&event] { event.set(); });
  while (!stop.requested()) {
    if (take(outputFile)) return true;
    event.wait(platform::kInfinite);
  }
  return false;
}

}  // namespace korvane
