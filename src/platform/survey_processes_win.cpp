#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/errno_win.h"
#include "platform/survey_win.h"
#include "platform/wide_win.h"

// Behind winsock2.h, which they need.
#include <iphlpapi.h>
#include <tlhelp32.h>
#include <winternl.h>
#include <ws2tcpip.h>

namespace korvane::platform {
namespace {

constexpr DWORD kMostTableBytes = 16 * 1024 * 1024;
constexpr DWORD kMostPathUnits = 32768;
constexpr auto kCommandLineInformation = static_cast<PROCESSINFOCLASS>(60);

// The text lies behind its own description, in one answer of the kernel.
std::string commandLineOf(HANDLE process) {
  alignas(UNICODE_STRING) BYTE bytes[sizeof(UNICODE_STRING) + 2 * 32768];
  ULONG size = 0;
  if (::NtQueryInformationProcess(process, kCommandLineInformation, bytes, sizeof bytes, &size) < 0)
    return {};
  const auto* text = reinterpret_cast<const UNICODE_STRING*>(bytes);
  const auto* begin = reinterpret_cast<const BYTE*>(text->Buffer);
  if (begin < bytes || begin + text->Length > bytes + sizeof bytes) return {};
  return narrow({text->Buffer, text->Length / sizeof(wchar_t)});
}

std::string imageOf(HANDLE process) {
  std::wstring name(kMostPathUnits, L'\0');
  DWORD units = kMostPathUnits;
  return ::QueryFullProcessImageNameW(process, 0, name.data(), &units)
             ? narrow({name.data(), units})
             : std::string();
}

void tellProcess(SurveyGuide& guide, const PROCESSENTRY32W& entry,
                 const Survey::Taker<SurveyedProcess>& take) {
  SurveyedProcess row{
      entry.th32ProcessID, entry.th32ParentProcessID, narrow(entry.szExeFile), {}, {}};
  const KernelObject process(
      ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ProcessID));
  if (process) {
    row.image = imageOf(process.get());
    row.commandLine = commandLineOf(process.get());
  } else if (::GetLastError() == ERROR_ACCESS_DENIED) {
    guide.skipped("process " + std::to_string(row.id), EACCES);
  }
  take(row);
}

// A table of the IP helper, which says how large it is.
template <class Call>
std::vector<BYTE> tableOf(SurveyGuide& guide, const char* what, Call call) {
  std::vector<BYTE> table(64 * 1024);
  for (;;) {
    DWORD size = static_cast<DWORD>(table.size());
    const DWORD error = call(table.data(), &size);
    if (error == NO_ERROR) return table;
    if (error != ERROR_INSUFFICIENT_BUFFER || size > kMostTableBytes || !guide.goOn()) {
      guide.skipped(what, error == ERROR_INSUFFICIENT_BUFFER ? ENOBUFS : errnoOfWin32(error));
      return {};
    }
    table.resize(size + size / 4);
  }
}

std::string addressText(int family, const void* address) {
  char text[INET6_ADDRSTRLEN] = "";
  return ::inet_ntop(family, address, text, sizeof text) ? text : "";
}

void tellPort(const char* protocol, int family, const void* address, DWORD port, DWORD process,
              const Survey::Taker<SurveyedPort>& take) {
  DWORD unused = 0;
  take({protocol, addressText(family, address), ::ntohs(static_cast<u_short>(port)), process,
        imageOfProcess(process, unused)});
}

// Hands over each row of a table that begins with their count.
template <class Table, class Each>
void eachRow(SurveyGuide& guide, const std::vector<BYTE>& bytes, Each each) {
  if (bytes.empty()) return;
  const auto* table = reinterpret_cast<const Table*>(bytes.data());
  for (DWORD i = 0; i < table->dwNumEntries && guide.goOn(); ++i) each(table->table[i]);
}

std::vector<BYTE> tcpTable(SurveyGuide& guide, ULONG family) {
  return tableOf(guide, "TCP table", [&](void* into, DWORD* size) {
    return ::GetExtendedTcpTable(into, size, FALSE, family, TCP_TABLE_OWNER_PID_LISTENER, 0);
  });
}

std::vector<BYTE> udpTable(SurveyGuide& guide, ULONG family) {
  return tableOf(guide, "UDP table", [&](void* into, DWORD* size) {
    return ::GetExtendedUdpTable(into, size, FALSE, family, UDP_TABLE_OWNER_PID, 0);
  });
}

}  // namespace

std::string imageOfProcess(DWORD id, DWORD& error) {
  const KernelObject process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
  error = process ? 0 : ::GetLastError();
  return process ? imageOf(process.get()) : std::string();
}

void surveyProcesses(SurveyGuide& guide, const Survey::Taker<SurveyedProcess>& take) {
  const FileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return guide.skipped("processes", lastErrno());
  PROCESSENTRY32W entry;
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more && guide.goOn();
       more = ::Process32NextW(snapshot.get(), &entry))
    tellProcess(guide, entry, take);
}

void surveyPorts(SurveyGuide& guide, const Survey::Taker<SurveyedPort>& take) {
  eachRow<MIB_TCPTABLE_OWNER_PID>(guide, tcpTable(guide, AF_INET), [&](auto& row) {
    tellPort("tcp", AF_INET, &row.dwLocalAddr, row.dwLocalPort, row.dwOwningPid, take);
  });
  eachRow<MIB_TCP6TABLE_OWNER_PID>(guide, tcpTable(guide, AF_INET6), [&](auto& row) {
    tellPort("tcp", AF_INET6, row.ucLocalAddr, row.dwLocalPort, row.dwOwningPid, take);
  });
  eachRow<MIB_UDPTABLE_OWNER_PID>(guide, udpTable(guide, AF_INET), [&](auto& row) {
    tellPort("udp", AF_INET, &row.dwLocalAddr, row.dwLocalPort, row.dwOwningPid, take);
  });
  eachRow<MIB_UDP6TABLE_OWNER_PID>(guide, udpTable(guide, AF_INET6), [&](auto& row) {
    tellPort("udp", AF_INET6, row.ucLocalAddr, row.dwLocalPort, row.dwOwningPid, take);
  });
}

}  // namespace korvane::platform
