// Simulated threads as fibers of the thread that made the simulation.
#include <cxxabi.h>
#include <elf.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <boost/context/fiber.hpp>
#include <boost/context/protected_fixedsize_stack.hpp>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "platform/fake/sim_context.h"

namespace korvane::platform {
namespace {

using boost::context::fiber;

// What the agent gives its threads is enough for the simulation's own and for what a test asks
// for with 0; the pages that nobody touches cost nothing.
constexpr size_t kLeastStack = 128 * 1024;
constexpr size_t kDefaultStack = 512 * 1024;

// The calling thread's block of the program's thread-local variables, and what it begins with.
struct ThreadLocals {
  char* block = nullptr;
  const char* begin = nullptr;
  size_t beginSize = 0;
  size_t size = 0;

  static ThreadLocals find() {
    ThreadLocals found;
    // The program itself is the first that is named.
    dl_iterate_phdr(
        [](dl_phdr_info* object, size_t, void* out) {
          for (int i = 0; i < object->dlpi_phnum; ++i) {
            const ElfW(Phdr)& part = object->dlpi_phdr[i];
            if (part.p_type != PT_TLS || !object->dlpi_tls_data) continue;
            *static_cast<ThreadLocals*>(out) = {
                static_cast<char*>(object->dlpi_tls_data),
                reinterpret_cast<const char*>(object->dlpi_addr + part.p_vaddr), part.p_filesz,
                part.p_memsz};
          }
          return 1;
        },
        &found);
    return found;
  }
};

// The runtime's account of a thread's exceptions, __cxa_eh_globals of the Itanium C++ ABI: those
// that are caught and how many are not yet.
using ExceptionsUnderWay = std::array<void*, 2>;

// What a thread has beside its stack.
class ThreadOwned {
 public:
  explicit ThreadOwned(const ThreadLocals& locals) : _locals(locals), _variables(locals.size) {
    std::copy_n(locals.begin, locals.beginSize, _variables.begin());
  }

  void save() {
    std::copy_n(_locals.block, _locals.size, _variables.begin());
    std::memcpy(_exceptions.data(), abi::__cxa_get_globals(), sizeof _exceptions);
    _errno = errno;
  }
  void restore() const {
    std::copy(_variables.begin(), _variables.end(), _locals.block);
    std::memcpy(static_cast<void*>(abi::__cxa_get_globals()), _exceptions.data(),
                sizeof _exceptions);
    errno = _errno;
  }

 private:
  const ThreadLocals _locals;
  std::vector<char> _variables;
  ExceptionsUnderWay _exceptions{};
  int _errno = 0;
};

class FiberContext final : public SimContext {
 public:
  FiberContext() : _owned(ThreadLocals::find()) {}

  void begin(size_t stackBytes, Body body) {
    _rest = fiber(std::allocator_arg, boost::context::protected_fixedsize_stack(stackBytes),
                  [this, body = std::move(body)](fiber&&) mutable {
                    _owned.restore();
                    auto& next = static_cast<FiberContext&>(body());
                    body = nullptr;
                    return std::move(next._rest);
                  });
  }

  void switchTo(SimContext& next) override {
    _owned.save();
    std::move(static_cast<FiberContext&>(next)._rest).resume_with([this](fiber&& left) {
      _rest = std::move(left);
      return fiber();
    });
    _owned.restore();
  }

  void join() override {}

 private:
  ThreadOwned _owned;
  fiber _rest;  // where it goes on
};

}  // namespace

std::unique_ptr<SimContext> SimContext::ofCaller(Threading&) {
  return std::make_unique<FiberContext>();
}

std::unique_ptr<SimContext> SimContext::make(Threading&, uint32_t stackBytes, Body body) {
  auto made = std::make_unique<FiberContext>();
  try {
    made->begin(stackBytes ? std::max(size_t{stackBytes}, kLeastStack) : kDefaultStack,
                std::move(body));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return made;
}

}  // namespace korvane::platform
