#include "tests/service/process_figures_win.h"

#include <windows.h>
//
#include <winternl.h>

#include <algorithm>
#include <vector>

namespace korvane::tests {
namespace {

using Query = NTSTATUS(WINAPI*)(ULONG, void*, ULONG, ULONG*);

constexpr ULONG kExtendedHandles = 64;

struct HandleEntry {
  void* object;
  ULONG_PTR processId;
  ULONG_PTR value;
  ULONG access;
  USHORT creator;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};
struct HandleList {
  ULONG_PTR count;
  ULONG_PTR reserved;
  HandleEntry entries[1];
};

// Empty when the system does not answer.
std::vector<BYTE> ask(ULONG what) {
  const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  std::vector<BYTE> bytes(8 << 20);
  ULONG size = 0;
  const NTSTATUS failed = query(what, bytes.data(), static_cast<ULONG>(bytes.size()), &size);
  bytes.resize(failed ? 0 : size);
  return bytes;
}

int64_t handlesOf(uint32_t processId) {
  const std::vector<BYTE> bytes = ask(kExtendedHandles);
  if (bytes.empty()) return 0;
  const auto& list = reinterpret_cast<const HandleList&>(bytes[0]);
  return std::count_if(list.entries, list.entries + list.count,
                       [processId](const HandleEntry& one) { return one.processId == processId; });
}

}  // namespace

std::string ProcessFigures::text() const {
  return std::to_string(handles) + " handles, " + std::to_string(threads) + " threads, " +
         std::to_string(residentKb) + " KB resident";
}

ProcessFigures figuresOf(uint32_t processId) {
  const std::vector<BYTE> bytes = ask(SystemProcessInformation);
  for (size_t at = 0; at < bytes.size();) {
    const auto& process = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION&>(bytes[at]);
    if (reinterpret_cast<uintptr_t>(process.UniqueProcessId) == processId)
      return {handlesOf(processId), process.NumberOfThreads,
              static_cast<int64_t>(process.VirtualMemoryCounters.WorkingSetSize / 1024)};
    if (process.NextEntryOffset == 0) break;
    at += process.NextEntryOffset;
  }
  return {};
}

}  // namespace korvane::tests
