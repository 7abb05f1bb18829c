// "ids.properties" as the IDS component's programs change it: read, changed and replaced
// atomically, while a lock file beside it ("ids.properties.lock") keeps the others out.
//
// Thread-safe; no state. Failures are thrown as FileError.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"

namespace korvane::ids_writer {

// directory: the component's folder. change: gets the text, empty when there is no file,
// and gives the new one.
void changeSettings(platform::Platform& system, const std::string& directory,
                    const std::function<std::string(const std::string&)>& change);
// The text; empty when the file cannot be read.
std::string readSettings(platform::Platform& system, const std::string& directory);

std::vector<std::string> linesOf(const std::string& text);
// The value behind "key="; empty when no line has it.
std::string settingIn(const std::string& text, std::string_view key);
// The text with one line for the key, at its end.
std::string withSetting(const std::string& text, std::string_view key, const std::string& value);

[[noreturn]] void failFile(int error, const char* operation, const std::string& path);

}  // namespace korvane::ids_writer
