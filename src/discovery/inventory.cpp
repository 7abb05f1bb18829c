#include "discovery/inventory.h"

#include <cerrno>
#include <cstring>
#include <optional>

#include "agent/thread/locks.h"
#include "discovery/collector.h"
#include "discovery/definition.h"
#include "platform/paths.h"

namespace korvane {
namespace {

// Reads one definition file; gives the refusal.
std::string loadDefinition(platform::Files& files, const std::string& path, int format,
                           Definition& out) {
  std::string text;
  const int error = platform::readWholeFile(files, path, kMaxDefinitionBytes, text);
  if (error == EFBIG)
    return path + ": larger than " + std::to_string(kMaxDefinitionBytes) + " bytes";
  if (error)
    return path + ": cannot be read: " + std::strerror(error) + " (" + std::to_string(error) + ")";
  const std::string refusal = readDefinition(text, format, out);
  return refusal.empty() ? "" : path + ": " + refusal;
}

// Both definitions as one; gives the refusal.
std::string loadDefinitions(platform::Files& files, const InventoryOrder& order, Definition& out) {
  const std::string first = order.definitionFile.toUtf8(), second = order.definitionFileV2.toUtf8();
  if (first.empty() && second.empty()) return "no discovery definition is set";
  Definition ofFirst, ofSecond;
  std::string refusal;
  if (!first.empty()) refusal = loadDefinition(files, first, 1, ofFirst);
  if (refusal.empty() && !second.empty()) refusal = loadDefinition(files, second, 2, ofSecond);
  if (refusal.empty()) out = merged(ofFirst, std::move(ofSecond));
  return refusal;
}

}  // namespace

struct Inventory::State {
  State(platform::Clock& withClock, platform::Files& withFiles, platform::Survey& withSurvey)
      : clock(withClock), files(withFiles), survey(withSurvey) {}

  platform::Clock& clock;
  platform::Files& files;
  platform::Survey& survey;
  Win32Mutex lock;
  std::optional<Definition> accepted GUARDED_BY(lock);
};

Inventory::Inventory(platform::Clock& clock, platform::Files& files, platform::Survey& survey)
    : _state(std::make_unique<State>(clock, files, survey)) {}

Inventory::~Inventory() = default;

InventoryOutcome Inventory::collect(StopToken& stop, const InventoryOrder& order) {
  std::optional<Definition> definition;
  std::string refusal;
  {
    Definition read;
    refusal = loadDefinitions(_state->files, order, read);
    const Synchronized hold(_state->lock);
    if (refusal.empty()) _state->accepted = std::move(read);
    definition = _state->accepted;
  }
  InventoryOutcome outcome;
  if (definition) {
    Collector collector({_state->clock, _state->files, _state->survey, stop}, *definition, order);
    outcome = collector.run();
  }
  if (!refusal.empty() && outcome.error.empty()) outcome.error = STRING(refusal);
  return outcome;
}

}  // namespace korvane
