#include "agent/thread/locks.h"

#include "agent/thread/exceptions.h"
#include "platform/threading.h"

namespace korvane {
namespace {

constexpr int kNoMutex = 1;

platform::Mutex& made(PrimitiveHolder<platform::Mutex>& holder, const char* method) {
  platform::Mutex* mutex =
      holder.get([](platform::Threading& threading) { return threading.createMutex(); });
  if (!mutex) throw ThreadException(method, kNoMutex);
  return *mutex;
}

}  // namespace

void deletePrimitive(platform::Event* event) {
  delete event;
}
void deletePrimitive(platform::Mutex* mutex) {
  delete mutex;
}

void RecursiveMutex::lock() {
  made(_mutex, "RecursiveMutex::lock()").lock();
}
void RecursiveMutex::unlock() {
  _mutex.existing()->unlock();
}

void Win32Mutex::lock() {
  made(_mutex, "Win32Mutex::lock()").lock();
}
void Win32Mutex::unlock() {
  _mutex.existing()->unlock();
}

Synchronized::Synchronized(RecursiveMutex& mutex) : _recursive(&mutex) {
  mutex.lock();
}
Synchronized::Synchronized(Win32Mutex& mutex) : _win32(&mutex) {
  mutex.lock();
}
Synchronized::~Synchronized() {
  if (_recursive) _recursive->unlock();
  if (_win32) _win32->unlock();
}

}  // namespace korvane
