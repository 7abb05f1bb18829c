#include "update/content_update.h"

#include "agent/thread/stop_token.h"
#include "archive/unpacking.h"
#include "comm/https_handler.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "update/update_result.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kContentTag[] = "UpdateThread::processComponentUpdates()";
constexpr char kDataTag[] = "UpdateThread::processComponentData()";
constexpr char kUnzipTag[] = "UpdateThread::processVexQELData";

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

void ContentUpdate::processComponentUpdates() {
  AgentConfig& config = *AgentConfig::getInstance();
  if (!config.isIPSEnabled() || !_exchange.due()) return;
  eventlog::trace(kContentTag, "*****Component Freshline available on server*****");
  _exchange.run([](HttpsHandler& handler, int bit) {
    const ContentKind& kind = *contentKindOf(bit);
    std::string* bytes = nullptr;
    if (handler.getBinaryData(kind.binaryName, bytes) == 0)
      // It reports its own failure to the server.
      ignoreResult(processComponentData(bit, bytes, kind.directory()));
  });
  // What cannot be written now is written by one of the next loads.
  ignoreResult(config.updateIniFile());
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
    eventlog::event(EventId::packageRejected, kUnzipTag, {content->product, refusal.text()});
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
