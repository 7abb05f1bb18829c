#include "update/software_update.h"

#include <memory>

#include "agent/thread/stop_token.h"
#include "archive/unpacking.h"
#include "comm/https_handler.h"
#include "comm/report_answer.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "update/policy/policy_processor.h"
#include "update/update_result.h"
#include "update/update_results_file.h"
#include "util/dates.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kSoftwareTag[] = "UpdateThread::processSoftwareUpdate";
constexpr char kPackageTag[] = "getsoftware";

constexpr char kNoInformationText[] = "Software update information not provided";
constexpr char kFailedText[] = "Software Update Failed. Unknown Error.";

constexpr uint64_t kLargestResults = 1024 * 1024;

const PropertyList& failure() {
  static const PropertyList& pairs =
      *new PropertyList{{"result.errorcode", std::to_string(SoftwareUpdate::kFailed)},
                        {"result.errormessage", kFailedText}};
  return pairs;
}

void report(int code, const char* text, const PropertyList& pairs = {}) {
  reportUpdateResult(HttpsHandler::SOFTWARE_UPDATE, {code, text}, pairs);
}

bool keep(const std::string& path, std::string_view bytes, archive::Refusal& refusal) {
  const int error = platform::writeFileAtomically(platform::current().files, path, bytes);
  if (!error) return true;
  refusal = {archive::Fault::fileOperation, "software package", path, "cannot write", error};
  return false;
}

void makeUpdateDirectory(const std::string& directory) {
  platform::Files& files = platform::current().files;
  platform::FileInfo info;
  if (files.info(directory, info) == 0 && info.isDirectory) {
    eventlog::trace(kSoftwareTag, "Directory already exists %s", directory);
  } else {
    eventlog::trace(kSoftwareTag, "Creating %s", directory);
    // A folder that cannot be made shows in the unpacking.
    ignoreResult(files.makeDirectories(directory));
  }
  eventlog::trace(kSoftwareTag, "After Create Dir");
}

bool writeResults(const std::string& directory, const PropertyList& pairs) {
  const std::string path =
      platform::joinPath(platform::current().files, {directory, kUpdateResultsFile});
  archive::Refusal refusal;
  return keep(path, updateResultsText(pairs, AgentConfig::getInstance()->isUnicode()), refusal);
}

// An earlier package goes before this one comes, but not before this one has been checked.
bool unpackPackage(const std::string& directory, std::string_view bytes,
                   archive::Refusal& refusal) {
  platform::Platform& system = platform::current();
  const std::string name =
      expandDatePattern("policy%M%S%T.sbp.zip", system.clock.wallMs()).toUtf8();
  archive::ZipArchive zip(name, bytes);
  archive::Unpacking unpacking(system.files, directory, [] { return shutdownToken().requested(); });
  if (!zip.open(refusal) || !unpacking.stage(zip, refusal)) {
    eventlog::trace(kSoftwareTag, "Failed to decompress %d", refusal.code());
    return false;
  }
  // What stays is overwritten, or the unpacking fails on it.
  ignoreResult(PolicyProcessor::cleanUpdateDirectory(directory));
  if (keep(platform::joinPath(system.files, {directory, name}), bytes, refusal) &&
      unpacking.commit(refusal))
    return true;
  eventlog::trace(kSoftwareTag, "Failed to extract software update to disk");
  return false;
}

}  // namespace

void SoftwareUpdate::processSoftwareUpdate() {
  _exchange.run([](HttpsHandler& handler, int) { takePackage(handler); });
}

void SoftwareUpdate::takePackage(HttpsHandler& handler) {
  int status = 0, size = 0;
  PropertyList properties;
  const std::unique_ptr<char[]> package(handler.getSoftware(status, size, properties));
  if (status == 0) return report(kNothingNew, "No new software data provided");
  if (!package || size == 0 || !findProperty(properties, "software.name")) {
    eventlog::trace(kPackageTag, kNoInformationText);
    return report(kNoInformation, kNoInformationText);
  }
  PropertyList results;
  for (const Property& pair : properties)
    if (pair.first.startsWith("software.")) results.push_back(pair);
  installPackage({package.get(), static_cast<size_t>(size)}, results);
}

void SoftwareUpdate::installPackage(std::string_view bytes, const PropertyList& results) {
  const std::string directory =
      platform::joinPath(platform::current().files, {installDirectory(), "update", "software"});
  makeUpdateDirectory(directory);
  archive::Refusal refusal;
  const bool unpacked = unpackPackage(directory, bytes, refusal);
  if (!unpacked && shutdownToken().requested()) return;
  if (!unpacked) {
    eventlog::event(EventId::packageRejected, kSoftwareTag,
                    {propertyValue(results, "software.name"), refusal.text()});
    // What stays goes with the next package.
    ignoreResult(PolicyProcessor::cleanUpdateDirectory(directory));
  }
  if (!writeResults(directory, unpacked ? results : failure()) || !unpacked)
    return report(kFailed, kFailedText, results);
  AgentConfig& config = *AgentConfig::getInstance();
  config.setSoftwareUpdateDirectory(directory);
  // What cannot be written now is written by one of the next loads.
  ignoreResult(config.updateIniFile());
  report(0, "No Error", results);
}

void SoftwareUpdate::sendUpdateResults(const STRING& directory) {
  platform::Files& files = platform::current().files;
  std::string bytes;
  // Without a result the update has failed, which is what is reported.
  ignoreResult(platform::readWholeFile(
      files, platform::joinPath(files, {directory.toUtf8(), kUpdateResultsFile}), kLargestResults,
      bytes));
  PropertyList pairs = parseUpdateResults(bytes);
  if (!findProperty(pairs, "result.errorcode"))
    pairs.insert(pairs.begin(), failure().begin(), failure().end());
  HttpsHandler handler;
  if (!reportTaken(handler, handler.setUpdateResult(HttpsHandler::SOFTWARE_UPDATE, pairs))) return;
  AgentConfig::getInstance()->setSoftwareUpdateDirectory({});
  // What cannot be written now is written by one of the next loads.
  ignoreResult(AgentConfig::getInstance()->updateIniFile());
}

}  // namespace korvane
