// The translated policy's parser with the records that a driver answers from it, and the
// operator's commands.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "stand-in-policy/driver_control.h"
#include "stand-in-policy/policy_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::unique_ptr<kvp_driver> driver = std::make_unique<kvp_driver>();
  static kvp_control control;
  char state[KVP_STATE_BYTES];
  uint8_t record[1028];
  uint8_t refusal[516];
  kvp_load(driver.get(), reinterpret_cast<const char*>(data), size);
  kvp_policy_record(driver.get(), record);
  kvp_refusal_record(driver.get(), refusal);
  kvp_obey(&control, {reinterpret_cast<const char*>(data), size});
  if (kvp_state(&control, driver.get(), state, sizeof state) >= sizeof state - 1) std::abort();
  kvp_path_units(driver.get(), data, size);
  return 0;
}
