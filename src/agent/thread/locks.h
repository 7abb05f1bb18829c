// Locks. RecursiveMutex and Win32Mutex are both mutexes that their holder may take again (Windows:
// critical sections); the two names say what they guard: RecursiveMutex a Thread's or a store's
// state, Win32Mutex a piece of data that several threads share. Synchronized holds a lock for a
// scope.
//
// Members guarded by one of them carry GUARDED_BY. A lock must not be held during a wait of unknown
// length.
//
// Making one costs nothing and cannot fail, also as an object of static lifetime; the platform's
// mutex is made when it is first taken. Errors: lock() throws ThreadException 1
// ("RecursiveMutex::lock()", "Win32Mutex::lock()") when the system refuses it then.
#pragma once

#include "agent/thread/primitive_holder.h"
#include "util/thread_annotations.h"

namespace korvane {

class CAPABILITY("mutex") RecursiveMutex {
 public:
  RecursiveMutex() = default;
  RecursiveMutex(const RecursiveMutex&) = delete;
  RecursiveMutex& operator=(const RecursiveMutex&) = delete;

  void lock() ACQUIRE();
  void unlock() RELEASE();

 private:
  PrimitiveHolder<platform::Mutex> _mutex;
};

class CAPABILITY("mutex") Win32Mutex {
 public:
  Win32Mutex() = default;
  Win32Mutex(const Win32Mutex&) = delete;
  Win32Mutex& operator=(const Win32Mutex&) = delete;

  void lock() ACQUIRE();
  void unlock() RELEASE();

 private:
  PrimitiveHolder<platform::Mutex> _mutex;
};

// Holds a lock from construction to destruction.
class SCOPED_CAPABILITY Synchronized {
 public:
  explicit Synchronized(RecursiveMutex& mutex) ACQUIRE(mutex);
  explicit Synchronized(Win32Mutex& mutex) ACQUIRE(mutex);
  ~Synchronized() RELEASE();
  Synchronized(const Synchronized&) = delete;
  Synchronized& operator=(const Synchronized&) = delete;

 private:
  RecursiveMutex* _recursive = nullptr;
  Win32Mutex* _win32 = nullptr;
};

}  // namespace korvane
