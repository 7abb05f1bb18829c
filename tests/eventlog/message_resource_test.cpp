// The message resource of the agent library, which the Windows event viewer reads.
#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "eventlog/catalogue.h"

namespace korvane::eventlog {
namespace {

struct Unload {
  void operator()(HMODULE module) const { ::FreeLibrary(module); }
};
using Module = std::unique_ptr<std::remove_pointer_t<HMODULE>, Unload>;

std::wstring wide(const std::string& utf8) {
  const int bytes = static_cast<int>(utf8.size());
  std::wstring text(utf8.size(), L'\0');
  text.resize(static_cast<size_t>(
      ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, text.data(), bytes)));
  return text;
}

DWORD severityOf(const std::string& type) {
  return type == "AINF" ? 1u : type == "AWRN" ? 2u : 3u;
}

std::wstring messageOf(HMODULE module, DWORD id, const std::vector<std::wstring>& insertions) {
  std::vector<DWORD_PTR> arguments;
  for (const std::wstring& text : insertions)
    arguments.push_back(reinterpret_cast<DWORD_PTR>(text.c_str()));
  std::wstring text(65536, L'\0');
  text.resize(::FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, module,
                               id, 0, text.data(), static_cast<DWORD>(text.size()),
                               reinterpret_cast<va_list*>(arguments.data())));
  return text;
}

TEST(MessageResource, EveryEventReadsAsInTheCatalogue) {
  std::ifstream file(KORVANE_SOURCE_DIR "/src/eventlog/catalogue.txt", std::ios::binary);
  Catalogue catalogue;
  ASSERT_FALSE(parseCatalogue(std::string(std::istreambuf_iterator<char>(file), {}), catalogue));
  const Module library(
      ::LoadLibraryExW(wide(KORVANE_AGENT_LIBRARY).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  ASSERT_TRUE(library) << ::GetLastError();
  std::vector<std::string> values;
  std::vector<std::wstring> wideValues;
  for (int i = 1; i <= 9; ++i) {
    values.push_back("<" + std::to_string(i) + ": 50%!s! \xC3\xA4>");
    wideValues.push_back(wide(values.back()));
  }
  for (const auto& [number, entry] : catalogue) {
    const DWORD id = severityOf(entry.type) << 30 | static_cast<DWORD>(number);
    EXPECT_EQ(messageOf(library.get(), id, wideValues),
              wide(expandInsertions(entry.text, values)) + L"\r\n")
        << number << " " << entry.text;
  }
  EXPECT_EQ(messageOf(library.get(), 10106, wideValues), L"") << "its severity is missing";
}

}  // namespace
}  // namespace korvane::eventlog
