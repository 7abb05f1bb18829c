// Loads a library as programs do that take no care.
#include <windows.h>

int main() {
  return ::LoadLibraryW(L"version.dll") ? 0 : 1;
}
