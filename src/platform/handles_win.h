// Owned handles, one type per kind, since each kind has its own empty value and its own way of
// closing. Only for the Win32 siblings of the seam. A handle is moved, never copied.
//
//   const FileHandle file(::CreateFileW(...));
//   if (!file) return ::GetLastError();
#pragma once

#include <winsock2.h>
//
#include <windows.h>

#include <utility>

namespace korvane::platform {

template <class Kind>
class OwnedHandle {
 public:
  using Value = typename Kind::Value;

  OwnedHandle() : _value(Kind::empty()) {}
  explicit OwnedHandle(Value value) : _value(value) {}
  OwnedHandle(OwnedHandle&& other) noexcept : _value(std::exchange(other._value, Kind::empty())) {}
  OwnedHandle& operator=(OwnedHandle&& other) noexcept {
    std::swap(_value, other._value);
    return *this;
  }
  ~OwnedHandle() {
    if (_value != Kind::empty()) Kind::close(_value);
  }

  Value get() const { return _value; }
  explicit operator bool() const { return _value != Kind::empty(); }
  // For calls that give a handle back through a pointer; the handle must be empty.
  Value* receive() { return &_value; }

 private:
  Value _value;
};

// Events, semaphores, threads, processes: null when there is none.
struct KernelObjectKind {
  using Value = HANDLE;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::CloseHandle(value); }
};

// Files, devices and snapshots: INVALID_HANDLE_VALUE when there is none.
struct FileKind {
  using Value = HANDLE;
  static Value empty() { return INVALID_HANDLE_VALUE; }
  static void close(Value value) { ::CloseHandle(value); }
};

struct FindKind {
  using Value = HANDLE;
  static Value empty() { return INVALID_HANDLE_VALUE; }
  static void close(Value value) { ::FindClose(value); }
};

struct RegistryKeyKind {
  using Value = HKEY;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::RegCloseKey(value); }
};

struct SocketKind {
  using Value = SOCKET;
  static Value empty() { return INVALID_SOCKET; }
  static void close(Value value) { ::closesocket(value); }
};

struct SocketEventKind {
  using Value = WSAEVENT;
  static Value empty() { return WSA_INVALID_EVENT; }
  static void close(Value value) { ::WSACloseEvent(value); }
};

struct ModuleKind {
  using Value = HMODULE;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::FreeLibrary(value); }
};

using KernelObject = OwnedHandle<KernelObjectKind>;
using FileHandle = OwnedHandle<FileKind>;
using FindHandle = OwnedHandle<FindKind>;
using RegistryKey = OwnedHandle<RegistryKeyKind>;
using SocketHandle = OwnedHandle<SocketKind>;
using SocketEvent = OwnedHandle<SocketEventKind>;
using Module = OwnedHandle<ModuleKind>;

}  // namespace korvane::platform
