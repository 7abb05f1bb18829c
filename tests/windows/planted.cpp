// Leaves "<its own path>.loaded" wherever it is loaded.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE self, DWORD reason, LPVOID) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  wchar_t path[MAX_PATH + 8] = L"";
  ::GetModuleFileNameW(self, path, MAX_PATH);
  ::lstrcatW(path, L".loaded");
  const HANDLE mark =
      ::CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (mark != INVALID_HANDLE_VALUE) ::CloseHandle(mark);
  return TRUE;
}
