#include "host/first_settings.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "host/host_events.h"

namespace korvane::host {
namespace {

namespace fs = std::filesystem;

constexpr char kDefaults[] = "agent-default.ini";
constexpr char kCertificate[] = "server-ca.pem";
constexpr char kLogs[] = "logs";
constexpr size_t kMaxUrlBytes = 1024;
constexpr uintmax_t kMaxFileBytes = 1 << 20;

fs::path pathOf(const std::string& utf8) {
  return std::u8string(utf8.begin(), utf8.end());
}

std::string textOf(const fs::path& path) {
  const std::u8string utf8 = path.u8string();
  return {utf8.begin(), utf8.end()};
}

std::string read(const fs::path& path) {
  std::error_code missing;
  std::ifstream file(path, std::ios::binary);
  if (!file || fs::file_size(path, missing) > kMaxFileBytes || missing)
    throw std::runtime_error(textOf(path) + ": cannot be read, or larger than 1 MiB");
  return {std::istreambuf_iterator<char>(file), {}};
}

// The whole file or nothing, also when the installation is cut short. The folder is closed to others
// by now; what one of them may have put there before is not written through.
void write(const fs::path& path, const std::string& bytes) {
  fs::path whole = path;
  whole += ".new-" + std::to_string(std::random_device()());
  if (fs::exists(fs::symlink_status(whole)))
    throw std::runtime_error(textOf(whole) + ": is there already");
  std::ofstream file(whole, std::ios::binary | std::ios::trunc);
  file << bytes;
  file.close();
  if (!file) throw std::runtime_error(textOf(whole) + ": cannot be written");
  fs::rename(whole, path);
}

void checkUrl(const std::string& url) {
  const bool plain = url.find_first_of(std::string("\r\n\t \"\0", 6)) == std::string::npos;
  if (!plain || url.size() > kMaxUrlBytes || !url.starts_with("https://"))
    throw std::runtime_error("the server URL \"" + url +
                             "\" does not begin with https:// or contains blanks");
}

std::string certificateIn(const std::string& file) {
  const std::string bytes = read(pathOf(file));
  if (bytes.find("-----BEGIN CERTIFICATE-----") == std::string::npos)
    throw std::runtime_error(file + ": contains no PEM certificate");
  return bytes;
}

// The URL with what every exchange's name is appended to.
std::string withSlash(std::string url) {
  if (!url.ends_with('/')) url += '/';
  return url;
}

}  // namespace

std::string writeFirstSettings(const std::string& root, const FirstSettings& settings) {
  const fs::path home = pathOf(root) / "IPS";
  const fs::path ini = home / "agent.ini";
  if (fs::exists(ini) || fs::exists(home / "fallback.ini")) return "settings kept: " + textOf(ini);
  std::string text;
  if (!settings.serverUrl.empty()) {
    checkUrl(settings.serverUrl);
    text += "[Agent]\r\nagent.http.url=" + withSlash(settings.serverUrl) + "\r\n";
  }
  if (!settings.certificate.empty()) {
    const fs::path trusted = home / kCertificate;
    write(trusted, certificateIn(settings.certificate));
    text += "[System]\r\nssl.trustStore=" + textOf(trusted) + "\r\n";
  }
  write(ini, text + read(pathOf(programDirectory()) / kDefaults));
  return "settings written: " + textOf(ini);
}

std::string removeSettings(const std::string& root) {
  const fs::path home = pathOf(root) / "IPS";
  std::error_code missing;
  for (const fs::directory_entry& entry : fs::directory_iterator(home, missing)) {
    if (entry.path().filename() != kLogs) fs::remove_all(entry.path());
  }
  for (const char* empty : {"IDS/bin", "IDS", "IPS/logs", "IPS"}) {
    std::error_code notEmpty;
    fs::remove(pathOf(root) / empty, notEmpty);
  }
  return "settings removed; logs are kept in " + textOf(home / kLogs);
}

}  // namespace korvane::host
