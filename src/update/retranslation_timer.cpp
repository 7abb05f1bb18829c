#include "update/retranslation_timer.h"

namespace korvane {

RetranslationTimer::RetranslationTimer(int32_t interval, bool enabled)
    : _interval(interval), _remaining(interval), _enabled(enabled) {}

int32_t RetranslationTimer::remaining() {
  const Synchronized hold(_lock);
  return _enabled ? _remaining : -1;
}

void RetranslationTimer::setEnabled(bool enabled) {
  const Synchronized hold(_lock);
  _enabled = enabled;
}

void RetranslationTimer::step() {
  const Synchronized hold(_lock);
  if (!_enabled) return;
  _remaining = _remaining > 0 ? _remaining - 1 : _interval;
}

}  // namespace korvane
