// A registry in memory, with the behaviour of the file registry. Thread-safe.
//
//   MemoryRegistry registry;
//   registry.put("SOFTWARE\\Dalvora", "AgentType", STRING("1"));   // with its key
//   registry.refuseBelow("SYSTEM", 5);                             // every write there fails with 5
#pragma once

#include <vector>

#include "platform/fake/fake_lock.h"
#include "platform/reg_text.h"
#include "platform/registry.h"

namespace korvane::platform {

class MemoryRegistry final : public Registry {
 public:
  uint32_t readString(std::string_view key, std::string_view name, STRING& out) override;
  uint32_t readDword(std::string_view key, std::string_view name, uint32_t& out) override;
  uint32_t writeString(std::string_view key, std::string_view name, const STRING& value) override;
  uint32_t writeDword(std::string_view key, std::string_view name, uint32_t value) override;
  uint32_t createKey(std::string_view key) override;
  uint32_t deleteKey(std::string_view key) override;
  std::string problem() override { return {}; }

  void put(std::string_view key, std::string_view name, const STRING& value);
  void put(std::string_view key, std::string_view name, uint32_t value);
  // Writes, creations and deletions of `key` and of what is below it fail with `error`; 0
  // lifts that.
  void refuseBelow(std::string_view key, uint32_t error);

 private:
  struct Refusal {
    std::string folded;
    uint32_t error;
  };
  uint32_t find(std::string_view key, std::string_view name, RegItem::Kind kind,
                const RegItem*& item) REQUIRES(_mutex);
  uint32_t checkWrite(std::string_view key) REQUIRES(_mutex);

  FakeMutex _mutex;
  RegDocument _document GUARDED_BY(_mutex);
  std::vector<Refusal> _refusals GUARDED_BY(_mutex);
};

}  // namespace korvane::platform
