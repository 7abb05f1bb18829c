// A change of settings that came over a channel: {"settings": {key: value ...}}, all of it
// or nothing. Threads: any.
#pragma once

#include <string>

#include "config/incoming_settings.h"
#include "rpc/json_text.h"
#include "util/property_list.h"

namespace korvane {

class SettingsFile;

// Throws RPCError kRpcInvalidParams, naming the key, for a key that is not a setting, a pair that is not
// taken from there (config/incoming_settings.h), and for no settings at all. Event 10527 tells of a pair
// that is forbidden there.
PropertyList settingsFrom(const JsonTree& params, const SettingsFile& settings,
                          SettingsSource source);
// Throws the same for one pair.
void checkIncoming(const IncomingSettings& incoming, SettingsSource source, const std::string& key,
                   const std::string& value);
// How many values differ now. Throws RPCError when the settings are refused, locked or cannot be
// written; nothing has changed then.
int changeSettings(SettingsFile& settings, const PropertyList& changes);

}  // namespace korvane
