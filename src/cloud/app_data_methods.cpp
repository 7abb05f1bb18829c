// collectApplicationData, getApplicationData and releaseApplicationData.
#include <algorithm>
#include <memory>

#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "cloud/parameters.h"
#include "config/install_root.h"
#include "discovery/app_data_worker.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "util/base64.h"

namespace korvane {
namespace {

// Bytes of the archive in one answer; a multiple of three, so that the pieces' texts can be joined.
constexpr uint64_t kArchivePieceBytes = 192 * 1024;
constexpr const char* kStages[] = {"none", "waiting", "collecting", "sending"};

void collectApplicationData(const LocalParts& parts, RPCResponse& response) {
  const STRING request = ownRequest("local", parts.clock.wallMs());
  parts.applicationData.requests.ask(parts.applicationData.settings, request);
  putMember(response.result, "request", request.toUtf8());
}

void putProgress(const LocalAppData& of, JsonTree& result) {
  STRING request;
  const bool asked = of.requests.current(of.settings, request);
  putMember(result, "state", kStages[static_cast<size_t>(of.requests.stage(of.settings))]);
  putMember(result, "inProgress", asked ? request.toUtf8() : std::string());
}

std::string pieceOf(platform::Files& files, const DeliveryFolder& folder, uint64_t at,
                    uint64_t size) {
  std::string bytes(static_cast<size_t>(std::min(kArchivePieceBytes, size - at)), '\0');
  std::unique_ptr<platform::File> archive;
  size_t got = 0;
  if (files.open(folder.archive(), platform::OpenMode::read, archive) != 0 ||
      archive->seek(static_cast<int64_t>(at)) != 0 ||
      archive->read(bytes.data(), bytes.size(), got) != 0 || got != bytes.size())
    throw RPCError(kRpcFileOpenError, folder.archive());
  return bytes;
}

void putResult(const DeliveryState& state, uint64_t piece, uint64_t pieces, JsonTree& result) {
  putMember(result, "request", state.request.toUtf8());
  putMember(result, "outcome", nameOf(state.outcome));
  putMember(result, "error", state.error.toUtf8());
  putMember(result, "complete", state.complete ? "true" : "false");
  putMember(result, "rows", static_cast<int64_t>(state.rows));
  putMember(result, "skipped", static_cast<int64_t>(state.skipped));
  putMember(result, "snapshot", state.sha256);
  putMember(result, "piece", static_cast<int64_t>(piece));
  putMember(result, "pieces", static_cast<int64_t>(pieces));
  putMember(result, "totalBytes", static_cast<int64_t>(state.size));
}

void getApplicationData(const LocalParts& parts, const RPCRequest& request, RPCResponse& response) {
  const std::optional<int> wanted = givenNumber(request, "piece");
  const std::string* snapshot = givenText(request, "snapshot");
  if (wanted.value_or(0) < 0) throw RPCError(kRpcInvalidParams, "piece: must not be negative");
  const LocalAppData& of = parts.applicationData;
  putProgress(of, response.result);
  const Synchronized hold(of.requests.files());
  const DeliveryFolder folder(parts.files, installDirectory());
  DeliveryState state;
  const bool there = folder.load(state) == 0 && !state.delivered;
  if ((!there && wanted) || (snapshot && *snapshot != state.sha256))
    throw RPCError(kRpcEmptyBuffer, "there is no such result; ask for it without a piece");
  if (!there) return;
  const auto piece = static_cast<uint64_t>(wanted.value_or(0));
  const uint64_t pieces = (state.size + kArchivePieceBytes - 1) / kArchivePieceBytes;
  if (piece > 0 && piece >= pieces)
    throw RPCError(kRpcInvalidParams, "piece: out of range; pieces: " + std::to_string(pieces));
  putResult(state, piece, pieces, response.result);
  if (pieces == 0) return;
  response.appdata =
      encodeBase64(pieceOf(parts.files, folder, piece * kArchivePieceBytes, state.size));
  response.moredata = piece + 1 < pieces;
  response.datalen = static_cast<int64_t>(response.appdata->size());
}

void releaseApplicationData(const LocalParts& parts, RPCResponse& response) {
  const LocalAppData& of = parts.applicationData;
  if (!of.keepsResults || !releaseDelivery(parts.files, of.settings, of.requests))
    throw RPCError(kRpcEmptyBuffer, "there is no result to release");
  putMember(response.result, "released", "true");
}

}  // namespace

void addAppDataMethods(RPCServer& server, const LocalParts& parts) {
  using Access = RPCServer::Access;
  server.add("collectApplicationData", Access::administrators,
             [&parts](const RPCRequest&, RPCResponse& response) {
               collectApplicationData(parts, response);
             });
  server.add("getApplicationData", Access::administrators,
             [&parts](const RPCRequest& request, RPCResponse& response) {
               getApplicationData(parts, request, response);
             });
  server.add("releaseApplicationData", Access::administrators,
             [&parts](const RPCRequest&, RPCResponse& response) {
               releaseApplicationData(parts, response);
             });
}

}  // namespace korvane
