#include "archive/entry_name.h"

#include <algorithm>
#include <array>

#include "util/utf8.h"

namespace korvane::archive {
namespace {

constexpr std::string_view kDevices[] = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$", "CLOCK$"};

bool isLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

char upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool isForbidden(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f ||
         std::string_view("<>:\"|?*").find(c) != std::string_view::npos;
}

// COM and LPT are followed by one digit, the superscript ones of Latin-1 included.
bool isPort(const std::string& name) {
  if (!name.starts_with("COM") && !name.starts_with("LPT")) return false;
  const std::string number = name.substr(3);
  return (number.size() == 1 && number[0] >= '0' && number[0] <= '9') || number == "\u00b9" ||
         number == "\u00b2" || number == "\u00b3";
}

bool isDevice(std::string_view part) {
  std::string stem(part.substr(0, part.find('.')));
  while (!stem.empty() && stem.back() == ' ') stem.pop_back();
  std::transform(stem.begin(), stem.end(), stem.begin(), upper);
  return isPort(stem) ||
         std::find(std::begin(kDevices), std::end(kDevices), stem) != std::end(kDevices);
}

Fault refuse(Fault fault, const char* words, std::string& reason) {
  reason = words;
  return fault;
}

Fault checkPart(std::string_view part, std::string& reason) {
  if (part == "..") return refuse(Fault::leavesDirectory, "the path leaves the directory", reason);
  if (part.empty() || part == ".")
    return refuse(Fault::badName, "the path has an empty part", reason);
  if (part.size() > kLongestPart)
    return refuse(Fault::badName, "a part of the path is longer than 240 bytes", reason);
  if (std::any_of(part.begin(), part.end(), isForbidden))
    return refuse(Fault::badName, "the name has a character that no file may have", reason);
  if (part.back() == '.' || part.back() == ' ')
    return refuse(Fault::badName, "a part of the path ends in a dot or blank", reason);
  if (isDevice(part)) return refuse(Fault::reservedName, "the name is a device's", reason);
  return Fault::none;
}

Fault checkWhole(std::string_view name, std::string& reason) {
  if (name.empty()) return refuse(Fault::badName, "the name is empty", reason);
  if (name.size() > kLongestName)
    return refuse(Fault::badName, "the name is longer than 1000 bytes", reason);
  if (name.find('\\') != std::string_view::npos)
    return refuse(Fault::backslash, "the path has a backslash", reason);
  if (name[0] == '/' || (name.size() > 1 && isLetter(name[0]) && name[1] == ':'))
    return refuse(Fault::absolutePath, "the path is absolute", reason);
  if (!isValidUtf8(name)) return refuse(Fault::badName, "the name is not UTF-8", reason);
  if (std::count(name.begin(), name.end(), '/') >= static_cast<std::ptrdiff_t>(kDeepestPath))
    return refuse(Fault::badName, "the path is deeper than 32 parts", reason);
  return Fault::none;
}

}  // namespace

Fault checkEntryName(std::string_view name, std::string& reason) {
  if (const Fault fault = checkWhole(name, reason); fault != Fault::none) return fault;
  if (name.back() == '/') name.remove_suffix(1);
  for (size_t begin = 0, end; begin <= name.size(); begin = end + 1) {
    end = std::min(name.find('/', begin), name.size());
    const Fault fault = checkPart(name.substr(begin, end - begin), reason);
    if (fault != Fault::none) return fault;
  }
  return Fault::none;
}

}  // namespace korvane::archive
