// The translated policy's parser, with the records that a driver answers from it.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "stand-in-policy/policy_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::unique_ptr<kvp_driver> driver = std::make_unique<kvp_driver>();
  uint8_t record[1028];
  uint8_t refusal[516];
  kvp_load(driver.get(), reinterpret_cast<const char*>(data), size);
  kvp_policy_record(driver.get(), record);
  kvp_refusal_record(driver.get(), refusal);
  return 0;
}
