#include "translator/translator.h"

#include <memory>
#include <new>
#include <string>

#include "agent/thread/locks.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/shared_library.h"
#include "translator/translator_abi.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

constexpr char kTag[] = "Translator";

// A loaded and initialised library; shut down when the last user lets it go.
class Binding {
 public:
  static std::shared_ptr<Binding> load(const std::string& directory);
  ~Binding() {
    if (_initialized) _shutdown();
  }

  KavipsTranslatorGetFunctionValues getFunctionValues = nullptr;
  KavipsTranslatorFileExists fileExists = nullptr;

 private:
  bool open(const std::string& path);
  bool bind(const std::string& path);
  bool initialize(const std::string& path, const std::string& directory);
  template <class Function>
  bool find(const char* name, Function& out) {
    out = reinterpret_cast<Function>(_library->symbol(name));
    return out != nullptr;
  }

  std::unique_ptr<platform::SharedLibrary> _library;
  KavipsTranslatorInitialize _initialize = nullptr;
  KavipsTranslatorShutdown _shutdown = nullptr;
  bool _initialized = false;
};

bool Binding::open(const std::string& path) {
  std::string detail;
  const uint32_t error = platform::current().sharedLibraries.load(path, _library, detail);
  if (error == platform::kOk) return true;
  eventlog::event(EventId::translatorNotLoaded, kTag,
                  {path, detail + " (" + std::to_string(error) + ")"});
  return false;
}

bool Binding::bind(const std::string& path) {
  KavipsTranslatorAbiVersion abiVersion = nullptr;
  const bool complete = find(KAVIPS_TRANSLATOR_ABI_VERSION_NAME, abiVersion) &&
                        find(KAVIPS_TRANSLATOR_INITIALIZE_NAME, _initialize) &&
                        find(KAVIPS_TRANSLATOR_GET_FUNCTION_VALUES_NAME, getFunctionValues) &&
                        find(KAVIPS_TRANSLATOR_FILE_EXISTS_NAME, fileExists) &&
                        find(KAVIPS_TRANSLATOR_SHUTDOWN_NAME, _shutdown);
  if (!complete) {
    eventlog::event(EventId::translatorUnusable, kTag, {path, "a function is missing"});
    return false;
  }
  const uint32_t version = abiVersion();
  if (version == KAVIPS_TRANSLATOR_ABI_VERSION) return true;
  eventlog::event(EventId::translatorUnusable, kTag,
                  {path, "interface version " + std::to_string(version)});
  return false;
}

bool Binding::initialize(const std::string& path, const std::string& directory) {
  const int32_t error = _initialize(STRING(directory).c_str());
  _initialized = error == 0;
  if (!_initialized) eventlog::event(EventId::translatorNotInitialised, kTag, {path, error});
  return _initialized;
}

std::shared_ptr<Binding> Binding::load(const std::string& directory) {
  auto& system = platform::current();
  const std::string path = platform::joinPath(
      system.files, {directory, system.sharedLibraries.fileName("kavipstranslator")});
  auto binding = std::make_shared<Binding>();
  if (!binding->open(path) || !binding->bind(path) || !binding->initialize(path, directory))
    return nullptr;
  eventlog::trace(kTag, "Loaded %s", path);
  return binding;
}

struct Shared {
  Win32Mutex lock;
  std::shared_ptr<Binding> binding GUARDED_BY(lock);
};

Shared& shared() {
  return AgentRun::current().part<Shared>(RunPart::translator);
}

std::shared_ptr<Binding> current() {
  Synchronized hold(shared().lock);
  return shared().binding;
}

struct Listing {
  std::vector<STRING>& values;
  bool cut = false;
};

// False when the listing has all that it may have.
bool addValue(Listing& listing, const KavipsChar* value) {
  size_t length = 0;
  while (length <= Translator::kMaxValueLength && value[length] != 0) ++length;
  listing.cut =
      length > Translator::kMaxValueLength || listing.values.size() >= Translator::kMaxValues;
  if (!listing.cut) listing.values.push_back(STRING(std::u16string(value, length)));
  return !listing.cut;
}

// Called by the library, which no exception may reach.
int32_t takeValue(void* context, const KavipsChar* value) noexcept {
  auto& listing = *static_cast<Listing*>(context);
  try {
    return value == nullptr || addValue(listing, value) ? 0 : 1;
  } catch (const std::bad_alloc&) {
    listing.cut = true;
    return 1;
  }
}

}  // namespace

bool Translator::initialize(const STRING& path) {
  if (available()) return true;
  std::shared_ptr<Binding> loaded = Binding::load(path.toUtf8());
  if (!loaded) return false;
  Synchronized hold(shared().lock);
  if (!shared().binding) shared().binding = std::move(loaded);
  return true;
}

bool Translator::getFunctionValues(const STRING& name, std::vector<STRING>& list) {
  list.clear();
  const std::shared_ptr<Binding> binding = current();
  if (!binding) return false;
  Listing listing{list};
  const int32_t error = binding->getFunctionValues(name.c_str(), takeValue, &listing);
  if (error != 0) {
    eventlog::trace(kTag, "getFunctionValues(%s) failed: %d", name, error);
    list.clear();
    return false;
  }
  if (listing.cut) eventlog::event(EventId::translatorValuesCut, kTag, {name, list.size()});
  return true;
}

bool Translator::fileExists(const STRING& path) {
  const std::shared_ptr<Binding> binding = current();
  return binding && binding->fileExists(path.c_str()) == 1;
}

bool Translator::available() {
  return current() != nullptr;
}

void Translator::shutdown() {
  std::shared_ptr<Binding> last;
  Synchronized hold(shared().lock);
  last.swap(shared().binding);
}

}  // namespace korvane
