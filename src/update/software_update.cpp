#include "update/software_update.h"

#include <memory>

#include "agent/thread/stop_token.h"
#include "archive/unpacking.h"
#include "comm/https_handler.h"
#include "comm/report_answer.h"
#include "config/install_root.h"
#include "config/server_settings.h"
#include "config/settings_file.h"
#include "config/update_settings.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "update/policy/policy_housekeeping.h"
#include "update/policy/proof.h"
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

bool keep(platform::Files& files, const std::string& path, std::string_view bytes,
          archive::Refusal& refusal) {
  const int error = platform::writeFileAtomically(files, path, bytes);
  if (!error) return true;
  refusal = {archive::Fault::fileOperation, "software package", path, "cannot write", error};
  return false;
}

void makeUpdateDirectory(platform::Files& files, const std::string& directory) {
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

bool writeResults(platform::Files& files, const std::string& directory, const std::string& text) {
  archive::Refusal refusal;
  return keep(files, platform::joinPath(files, {directory, kUpdateResultsFile}), text, refusal);
}

}  // namespace

bool SoftwareUpdate::unpackPackage(const std::string& directory, std::string_view bytes,
                                   archive::Refusal& refusal) {
  platform::Files& files = _parts.files;
  const std::string name =
      expandDatePattern("policy%M%S%T.sbp.zip", _parts.clock.wallMs()).toUtf8();
  archive::ZipArchive zip(name, bytes);
  archive::Unpacking unpacking(files, directory, [this] { return _parts.stop.requested(); });
  if (!zip.open(refusal) || !unpacking.stage(zip, refusal)) {
    eventlog::trace(kSoftwareTag, "Failed to decompress %d", refusal.code());
    return false;
  }
  // What stays is overwritten, or the unpacking fails on it.
  ignoreResult(PolicyHousekeeping::cleanUpdateDirectory(files, directory));
  if (keep(files, platform::joinPath(files, {directory, name}), bytes, refusal) &&
      unpacking.commit(refusal))
    return true;
  eventlog::trace(kSoftwareTag, "Failed to extract software update to disk");
  return false;
}

void SoftwareUpdate::processSoftwareUpdate() {
  _exchange.run([this](HttpsHandler& handler, int) { downloadPackage(handler); });
}

void SoftwareUpdate::downloadPackage(HttpsHandler& handler) {
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
  const trust::Verdict verdict =
      prove({_parts.files, _parts.clock, _parts.policy}, {trust::Kind::software},
            {package.get(), static_cast<size_t>(size)});
  if (!verdict.accepted()) return report(verdict.refusal.code(), verdict.refusal.text, results);
  installPackage(verdict.content, results);
}

void SoftwareUpdate::installPackage(std::string_view bytes, const PropertyList& results) {
  platform::Files& files = _parts.files;
  const std::string directory =
      platform::joinPath(files, {installDirectory(), "update", "software"});
  makeUpdateDirectory(files, directory);
  archive::Refusal refusal;
  const bool unpacked = unpackPackage(directory, bytes, refusal);
  if (!unpacked && _parts.stop.requested()) return;
  if (!unpacked) {
    eventlog::event(EventId::packageRejected, kSoftwareTag,
                    {propertyValue(results, "software.name"), refusal.text()});
    // What stays goes with the next package.
    ignoreResult(PolicyHousekeeping::cleanUpdateDirectory(files, directory));
  }
  const std::string text =
      updateResultsText(unpacked ? results : failure(), _parts.server.isUnicode());
  if (!writeResults(files, directory, text) || !unpacked)
    return report(kFailed, kFailedText, results);
  recordDirectory(directory);
  report(0, "No Error", results);
}

void SoftwareUpdate::sendUpdateResults(const STRING& directory) {
  platform::Files& files = _parts.files;
  std::string bytes;
  // Without a result the update has failed, which is what is reported.
  ignoreResult(platform::readWholeFile(
      files, platform::joinPath(files, {directory.toUtf8(), kUpdateResultsFile}), kLargestResults,
      bytes));
  PropertyList pairs = parseUpdateResults(bytes);
  if (!findProperty(pairs, "result.errorcode"))
    pairs.insert(pairs.begin(), failure().begin(), failure().end());
  HttpsHandler handler(_parts.connection);
  if (!reportTaken(handler, handler.setUpdateResult(HttpsHandler::SOFTWARE_UPDATE, pairs))) return;
  recordDirectory({});
}

void SoftwareUpdate::report(int code, const STRING& text, const PropertyList& pairs) {
  reportUpdateResult(_parts.connection, HttpsHandler::SOFTWARE_UPDATE, {code, text}, pairs);
}

void SoftwareUpdate::recordDirectory(const STRING& directory) {
  _parts.settings.setSoftwareUpdateDirectory(directory);
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_parts.settingsFile.updateIniFile());
}

}  // namespace korvane
