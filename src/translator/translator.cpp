#include "translator/translator.h"

#include <memory>

#include "agent/thread/locks.h"
#include "platform/platform.h"
#include "translator/translator_library.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

// The library of one run.
struct Shared {
  Win32Mutex lock;
  std::shared_ptr<TranslatorLibrary> library GUARDED_BY(lock);
};

Shared& shared() {
  return AgentRun::current().part<Shared>(RunPart::translator);
}

std::shared_ptr<TranslatorLibrary> current() {
  Synchronized hold(shared().lock);
  return shared().library;
}

}  // namespace

bool Translator::initialize(const STRING& path) {
  if (available()) return true;
  platform::Platform& system = platform::current();
  std::shared_ptr<TranslatorLibrary> loaded =
      TranslatorLibrary::load(system.files, system.sharedLibraries, system.rights, path.toUtf8());
  if (!loaded) return false;
  Synchronized hold(shared().lock);
  if (!shared().library) shared().library = std::move(loaded);
  return true;
}

bool Translator::getFunctionValues(const STRING& name, std::vector<STRING>& list) {
  list.clear();
  const std::shared_ptr<TranslatorLibrary> library = current();
  return library && library->functionValues(name, list);
}

bool Translator::fileExists(const STRING& path) {
  const std::shared_ptr<TranslatorLibrary> library = current();
  return library && library->fileExists(path);
}

bool Translator::available() {
  return current() != nullptr;
}

void Translator::shutdown() {
  std::shared_ptr<TranslatorLibrary> last;
  Synchronized hold(shared().lock);
  last.swap(shared().library);
}

}  // namespace korvane
