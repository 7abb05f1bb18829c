#include "translator/translator_library.h"

#include <new>

#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/paths.h"
#include "platform/rights.h"
#include "platform/shared_library.h"
#include "translator/translator.h"

namespace korvane {
namespace {

constexpr char kLibraryTag[] = "Translator";

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

TranslatorLibrary::~TranslatorLibrary() {
  if (_initialized) _shutdown();
}

template <class Function>
bool TranslatorLibrary::find(const char* name, Function& out) {
  out = reinterpret_cast<Function>(_library->symbol(name));
  return out != nullptr;
}

bool TranslatorLibrary::open(platform::SharedLibraries& libraries, const std::string& path) {
  std::string detail;
  const uint32_t error = libraries.load(path, _library, detail);
  if (error == platform::kOk) return true;
  eventlog::event(EventId::translatorNotLoaded, kLibraryTag,
                  {path, detail + " (" + std::to_string(error) + ")"});
  return false;
}

bool TranslatorLibrary::bind(const std::string& path) {
  KavipsTranslatorAbiVersion abiVersion = nullptr;
  const bool complete = find(KAVIPS_TRANSLATOR_ABI_VERSION_NAME, abiVersion) &&
                        find(KAVIPS_TRANSLATOR_INITIALIZE_NAME, _initialize) &&
                        find(KAVIPS_TRANSLATOR_GET_FUNCTION_VALUES_NAME, _getFunctionValues) &&
                        find(KAVIPS_TRANSLATOR_FILE_EXISTS_NAME, _fileExists) &&
                        find(KAVIPS_TRANSLATOR_SHUTDOWN_NAME, _shutdown);
  if (!complete) {
    eventlog::event(EventId::translatorUnusable, kLibraryTag, {path, "a function is missing"});
    return false;
  }
  const uint32_t version = abiVersion();
  if (version == KAVIPS_TRANSLATOR_ABI_VERSION) return true;
  eventlog::event(EventId::translatorUnusable, kLibraryTag,
                  {path, "interface version " + std::to_string(version)});
  return false;
}

bool TranslatorLibrary::initialize(const std::string& path, const std::string& directory) {
  const int32_t error = _initialize(STRING(directory).c_str());
  _initialized = error == 0;
  if (!_initialized) eventlog::event(EventId::translatorNotInitialised, kLibraryTag, {path, error});
  return _initialized;
}

std::shared_ptr<TranslatorLibrary> TranslatorLibrary::load(platform::Files& files,
                                                           platform::SharedLibraries& libraries,
                                                           platform::Rights& rights,
                                                           const std::string& directory) {
  const std::string path =
      platform::joinPath(files, {directory, libraries.fileName("kavipstranslator")});
  if (const std::string unsafe = rights.refusal(path); !unsafe.empty()) {
    eventlog::event(EventId::translatorNotLoaded, kLibraryTag, {path, unsafe});
    return nullptr;
  }
  auto loaded = std::make_shared<TranslatorLibrary>();
  if (!loaded->open(libraries, path) || !loaded->bind(path) || !loaded->initialize(path, directory))
    return nullptr;
  eventlog::trace(kLibraryTag, "Loaded %s", path);
  return loaded;
}

bool TranslatorLibrary::functionValues(const STRING& name, std::vector<STRING>& list) {
  Listing listing{list};
  const int32_t error = _getFunctionValues(name.c_str(), takeValue, &listing);
  if (error != 0) {
    eventlog::trace(kLibraryTag, "getFunctionValues(%s) failed: %d", name, error);
    list.clear();
    return false;
  }
  if (listing.cut) eventlog::event(EventId::translatorValuesCut, kLibraryTag, {name, list.size()});
  return true;
}

bool TranslatorLibrary::fileExists(const STRING& path) {
  return _fileExists(path.c_str()) == 1;
}

}  // namespace korvane
