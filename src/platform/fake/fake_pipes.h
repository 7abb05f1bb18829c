// Pipes inside the process. Thread-safe, except for one Pipe used by one thread and its
// interrupt().
// Lifetime: pipes may outlive the object, but not its Threading.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "platform/fake/fake_lock.h"
#include "platform/pipes.h"
#include "platform/threading.h"

namespace korvane::platform {

struct FakePipeNames;

class FakePipes final : public Pipes {
 public:
  explicit FakePipes(Threading& threading);
  ~FakePipes() override;

  uint32_t create(const std::string& name, PipeAudience audience,
                  std::unique_ptr<Pipe>& out) override;
  uint32_t open(const std::string& name, std::unique_ptr<Pipe>& out) override;

  // What a server hears about the rights of its clients; true from the start.
  void setClientsAreAdministrators(bool are);
  // Whether pipes say that their waits end as soon as something has happened, as Linux's do, or
  // leave their users to look again and again, as Windows's do; false from the start.
  void setWakes(bool wakes);

 private:
  const std::shared_ptr<FakePipeNames> _names;
};

}  // namespace korvane::platform
