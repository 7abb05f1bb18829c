#include "update/content_update.h"

#include "agent/thread/stop_token.h"
#include "archive/unpacking.h"
#include "comm/https_handler.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "update/server_answer.h"
#include "update/update_result.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kContentTag[] = "UpdateThread::processComponentUpdates()";
constexpr char kFetchTag[] = "UpdateThread::getComponentUpdate()";
constexpr char kDataTag[] = "UpdateThread::processComponentData()";
constexpr char kUnzipTag[] = "UpdateThread::processVexQELData";

constexpr int kEventContentError = 10232;
constexpr int kEventContentRefused = 10585;

bool makeDirectory(const std::string& directory, archive::Refusal& refusal) {
  const int error = platform::current().files.makeDirectories(directory);
  if (error)
    refusal = {archive::Fault::fileOperation, kContentArchive, directory, "cannot make directory",
               error};
  return error == 0;
}

bool keepArchive(const std::string& directory, std::string_view bytes, archive::Refusal& refusal) {
  platform::Files& files = platform::current().files;
  const std::string path = platform::joinPath(files, {directory, kContentArchive});
  const int error = platform::writeFileAtomically(files, path, bytes);
  if (error)
    refusal = {archive::Fault::fileOperation, kContentArchive, path, "cannot write", error};
  return error == 0;
}

// With the flag off on disk, so that a crash in between leaves nothing that would be taken over.
bool unpackPackage(const ContentKind& kind, std::string_view bytes, const std::string& directory,
                   archive::Refusal& refusal) {
  const Synchronized hold(contentLock());
  archive::ZipArchive zip(kContentArchive, bytes);
  if (!makeDirectory(directory, refusal) || !zip.open(refusal)) return false;
  archive::Unpacking unpacking(platform::current().files, directory,
                               [] { return shutdownToken().requested(); });
  if (!unpacking.stage(zip, refusal)) return false;
  AgentConfig& config = *AgentConfig::getInstance();
  if ((config.*kind.updateNow)()) (config.*kind.setUpdateNow)(false);
  return keepArchive(directory, bytes, refusal) && unpacking.commit(refusal);
}

}  // namespace

int ContentUpdate::wantedKinds() const {
  int wanted = _retry.pending ? _retry.kinds : 0;
  for (const ContentKind& kind : contentKinds())
    if (_pending.*kind.flag) wanted |= kind.bit;
  return wanted;
}

void ContentUpdate::processComponentUpdates() {
  AgentConfig& config = *AgentConfig::getInstance();
  if (!config.isIPSEnabled() || !(_retry.due() || _pending.hasContent())) return;
  eventlog::trace(kContentTag, "*****Component Freshline available on server*****");
  const int wanted = wantedKinds();
  HttpsHandler handler;
  if (getComponentUpdate(handler, wanted)) {
    for (const ContentKind& kind : contentKinds()) {
      std::string* bytes = nullptr;
      if ((wanted & kind.bit) && handler.getBinaryData(kind.binaryName, bytes) == 0)
        // It reports its own failure to the server.
        ignoreResult(processComponentData(kind.bit, bytes, kind.directory()));
    }
  }
  // What cannot be written now is written by one of the next loads.
  ignoreResult(config.updateIniFile());
  _pending.clearContent();
}

bool ContentUpdate::getComponentUpdate(HttpsHandler& handler, int wanted) {
  if (handler.getCompUpdate() != 0) {
    eventlog::trace(kFetchTag, "Communication error while requesting Freshline data.");
    _retry.clear();
    return false;
  }
  const ServerAnswer answer = takeServerAnswer(handler, kEventContentError);
  if (answer.accepted()) {
    eventlog::trace(kFetchTag, "No Korvane error code detected. Raw FL data download.");
    _retry.clear();
  } else if (answer.comeBackLater()) {
    eventlog::trace(kFetchTag,
                    "processComponentUpdates:VexQEL and Ferrolyn:httpSender.getKorvaneError Server "
                    "asked us to retry after sometime. Retry count %d",
                    _retry.count);
    _retry.refuseWithinLimit(wanted);
  } else {
    _retry.giveUp();
    eventlog::trace(kFetchTag,
                    "UpdateThread::getComponentUpdate( HttpsHandler &httpSender ) Error Message - "
                    "%s Return Code - %d",
                    answer.text, answer.code);
  }
  return answer.accepted();
}

int ContentUpdate::processComponentData(int kind, const std::string* bytes,
                                        const STRING& directory) {
  const ContentKind* content = contentKindOf(kind);
  if (!content || !bytes) return -1;
  eventlog::trace(kDataTag, "Unzipping Freshline data to %s", directory);
  archive::Refusal refusal;
  if (!unpackPackage(*content, *bytes, directory.toUtf8(), refusal)) {
    if (shutdownToken().requested()) return kDiskFailure;
    eventlog::trace(kUnzipTag,
                    "Failed to unzip VexQEL Freshline content to directory %s Error : %d",
                    directory, refusal.code());
    eventlog::event(kEventContentRefused, kUnzipTag, {content->product, refusal.text()});
    reportUpdateResult(kind, {kDiskFailure, "Error unzipping to disk."});
    return kDiskFailure;
  }
  eventlog::trace(kUnzipTag, "UnZip VexQEL Freshline content successfully to directory %s",
                  directory);
  reportUpdateResult(kind, {});
  const Synchronized hold(contentLock());
  (AgentConfig::getInstance()->*content->setUpdateNow)(true);
  return 0;
}

}  // namespace korvane
