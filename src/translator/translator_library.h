// A loaded and initialised translator library; shut down when the last user lets it go.
//
// Threads: any; calls run side by side. Errors: null or false, with the events that translator.h
// names.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/fwd.h"
#include "translator/translator_abi.h"
#include "util/string.h"

namespace korvane {

class TranslatorLibrary {
 public:
  // Null when the folder has no library that can be used.
  static std::shared_ptr<TranslatorLibrary> load(platform::Files& files,
                                                 platform::SharedLibraries& libraries,
                                                 platform::Rights& rights,
                                                 const std::string& directory);
  TranslatorLibrary() = default;
  ~TranslatorLibrary();
  TranslatorLibrary(const TranslatorLibrary&) = delete;
  TranslatorLibrary& operator=(const TranslatorLibrary&) = delete;

  // `list` is empty; what the function gives goes there.
  [[nodiscard]] bool functionValues(const STRING& name, std::vector<STRING>& list);
  bool fileExists(const STRING& path);

 private:
  bool open(platform::SharedLibraries& libraries, const std::string& path);
  bool bind(const std::string& path);
  bool initialize(const std::string& path, const std::string& directory);
  template <class Function>
  bool find(const char* name, Function& out);

  std::unique_ptr<platform::SharedLibrary> _library;
  KavipsTranslatorInitialize _initialize = nullptr;
  KavipsTranslatorGetFunctionValues _getFunctionValues = nullptr;
  KavipsTranslatorFileExists _fileExists = nullptr;
  KavipsTranslatorShutdown _shutdown = nullptr;
  bool _initialized = false;
};

}  // namespace korvane
