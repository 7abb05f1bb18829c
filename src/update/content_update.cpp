#include "update/content_update.h"

#include "agent/thread/stop_token.h"
#include "archive/unpacking.h"
#include "comm/https_handler.h"
#include "config/policy_settings.h"
#include "config/settings_file.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "update/policy/proof.h"
#include "update/update_result.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kContentTag[] = "UpdateThread::processComponentUpdates()";
constexpr char kDataTag[] = "UpdateThread::processComponentData()";
constexpr char kUnzipTag[] = "UpdateThread::processVexQELData";

bool makeDirectory(platform::Files& files, const std::string& directory,
                   archive::Refusal& refusal) {
  const int error = files.makeDirectories(directory);
  if (error)
    refusal = {archive::Fault::fileOperation, kContentArchive, directory, "cannot make directory",
               error};
  return error == 0;
}

bool keepArchive(platform::Files& files, const std::string& directory, std::string_view bytes,
                 archive::Refusal& refusal) {
  const std::string path = platform::joinPath(files, {directory, kContentArchive});
  const int error = platform::writeFileAtomically(files, path, bytes);
  if (error)
    refusal = {archive::Fault::fileOperation, kContentArchive, path, "cannot write", error};
  return error == 0;
}

}  // namespace

// With the flag off on disk, so that a crash in between leaves nothing that would be taken over.
bool ContentUpdate::unpackPackage(const ContentKind& kind, std::string_view bytes,
                                  const std::string& directory, archive::Refusal& refusal) {
  const Synchronized hold(_parts.content.lock);
  platform::Files& files = _parts.content.files;
  UpdateSettings& settings = _parts.content.settings;
  archive::ZipArchive zip(kContentArchive, bytes);
  if (!makeDirectory(files, directory, refusal) || !zip.open(refusal)) return false;
  archive::Unpacking unpacking(files, directory, [this] { return _parts.stop.requested(); });
  if (!unpacking.stage(zip, refusal)) return false;
  if ((settings.*kind.updateNow)()) (settings.*kind.setUpdateNow)(false);
  return keepArchive(files, directory, bytes, refusal) && unpacking.commit(refusal);
}

void ContentUpdate::processComponentUpdates() {
  if (!_parts.policy.isIPSEnabled() || !_exchange.due()) return;
  eventlog::trace(kContentTag, "*****Component Freshline available on server*****");
  _exchange.run([this](HttpsHandler& handler, int bit) {
    const ContentKind& kind = *contentKindOf(bit);
    std::string* bytes = nullptr;
    if (handler.getBinaryData(kind.binaryName, bytes) == 0)
      // It reports its own failure to the server.
      ignoreResult(processComponentData(
          bit, bytes, kind.directory(_parts.content.files, _parts.content.settings)));
  });
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_parts.content.settingsFile.updateIniFile());
}

int ContentUpdate::processComponentData(int kind, const std::string* bytes,
                                        const STRING& directory) {
  const ContentKind* content = contentKindOf(kind);
  if (!content || !bytes) return -1;
  eventlog::trace(kDataTag, "Unzipping Freshline data to %s", directory);
  const trust::Verdict verdict = prove({_parts.content.files, _parts.clock, _parts.policy},
                                       {trust::Kind::content, content->shortName}, *bytes);
  if (!verdict.accepted()) {
    reportUpdateResult(_parts.connection, kind, {verdict.refusal.code(), verdict.refusal.text});
    return verdict.refusal.code();
  }
  archive::Refusal refusal;
  if (!unpackPackage(*content, verdict.content, directory.toUtf8(), refusal)) {
    if (_parts.stop.requested()) return kDiskFailure;
    eventlog::trace(kUnzipTag,
                    "Failed to unzip VexQEL Freshline content to directory %s Error : %d",
                    directory, refusal.code());
    eventlog::event(EventId::packageRejected, kUnzipTag, {content->product, refusal.text()});
    reportUpdateResult(_parts.connection, kind, {kDiskFailure, "Error unzipping to disk."});
    return kDiskFailure;
  }
  eventlog::trace(kUnzipTag, "UnZip VexQEL Freshline content successfully to directory %s",
                  directory);
  reportUpdateResult(_parts.connection, kind, {});
  const Synchronized hold(_parts.content.lock);
  (_parts.content.settings.*content->setUpdateNow)(true);
  return 0;
}

}  // namespace korvane
