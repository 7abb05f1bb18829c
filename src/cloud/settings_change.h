// A change of settings that came over a channel: {"settings": {key: value ...}}, all of it
// or nothing. Threads: any.
#pragma once

#include "rpc/json_text.h"
#include "util/property_list.h"

namespace korvane {

class SettingsFile;

// Throws RPCError kRpcInvalidParams, naming the key, for a key that is not a setting, a value that
// is not of its kind, and for no settings at all.
PropertyList settingsFrom(const JsonTree& params, const SettingsFile& settings);
// How many values differ now. Throws RPCError when the settings are refused, locked or cannot be
// written; nothing has changed then.
int changeSettings(SettingsFile& settings, const PropertyList& changes);

}  // namespace korvane
