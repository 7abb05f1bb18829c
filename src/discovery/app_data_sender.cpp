#include "discovery/app_data_sender.h"

#include <algorithm>
#include <cstring>

#include "comm/application_data.h"
#include "comm/https_handler.h"
#include "comm/server_codes.h"
#include "comm/server_connection.h"
#include "config/update_settings.h"
#include "eventlog/event_log.h"
#include "platform/files.h"

namespace korvane {
namespace {

constexpr char kSenderSource[] = "AppDataSender";
constexpr uint64_t kMib = 1024 * 1024;
// The server has dropped the message for good.
constexpr int kServerDropped = 302;
constexpr int kServerRejected = 600;

STRING decimal(uint64_t value) {
  return STRING::fromInt(static_cast<int64_t>(value));
}

PropertyList propertiesOf(const DeliveryState& state, bool moreData) {
  PropertyList list = applicationDataProperties(state.request, moreData);
  list.emplace_back("application.data.outcome", nameOf(state.outcome));
  if (state.outcome == DeliveryState::Outcome::data) {
    list.emplace_back("application.data.size", decimal(state.size));
    list.emplace_back("application.data.offset", decimal(state.sent));
    list.emplace_back("application.data.sha256", STRING(state.sha256));
    list.emplace_back("application.data.rows", decimal(state.rows));
    list.emplace_back("application.data.skipped", decimal(state.skipped));
    list.emplace_back("application.data.complete", STRING::fromBool(state.complete));
  }
  if (state.outcome != DeliveryState::Outcome::error) {
    list.emplace_back("application.data.applications.checksum", STRING(state.applicationsChecksum));
    list.emplace_back("application.data.files.checksum", STRING(state.filesChecksum));
  }
  if (!state.error.empty()) list.emplace_back("application.data.error", state.error);
  return list;
}

uint32_t milliseconds(int32_t seconds, int32_t least) {
  constexpr int32_t kMost = 4'000'000;
  return 1000U * static_cast<uint32_t>(std::clamp(seconds, least, kMost));
}

}  // namespace

bool AppDataSender::stopping() const {
  return _parts.stop.requested() || _parts.connection.shuttingDown();
}

uint64_t AppDataSender::nextLength(const DeliveryState& state) const {
  const auto payload =
      static_cast<uint64_t>(std::clamp(_parts.settings.getAppDataMaxPayload(), 1, kMostPayloadMib));
  return std::min(payload * kMib, state.size - state.sent);
}

AppDataSender::Result AppDataSender::send(DeliveryState& state) {
  for (int32_t retries = 0;;) {
    const uint64_t length = nextLength(state);
    switch (sendPiece(state, length)) {
      case Answer::taken:
        retries = 0;
        state.sent += length;
        state.delivered = state.sent == state.size;
        note(state);
        if (state.delivered) return Result::delivered;
        if (_parts.stop.sleepFor(milliseconds(_parts.settings.getAppDataSendInterval(), 0)))
          return Result::stopped;
        break;
      case Answer::again: {
        const int32_t most = std::max(_parts.settings.getAppDataMaxRetries(), 0);
        if (retries >= most) return Result::givenUp;
        eventlog::event(EventId::applicationDataNotTaken, kSenderSource,
                        {state.request, _reason, ++retries, most});
        if (_parts.stop.sleepFor(milliseconds(_parts.settings.getAppDataRetryInterval(), 1)))
          return Result::stopped;
        break;
      }
      case Answer::refused:
        return Result::givenUp;
      case Answer::stopped:
        return Result::stopped;
      case Answer::unreadable:
        return Result::unreadable;
    }
  }
}

AppDataSender::Answer AppDataSender::sendPiece(const DeliveryState& state, uint64_t length) {
  if (stopping()) return Answer::stopped;
  const bool moreData = state.sent + length < state.size;
  PropertyList properties = propertiesOf(state, moreData);
  MessageBody body;
  if (length == 0) {
    writeApplicationData(std::move(properties), {}, body);
  } else {
    std::unique_ptr<platform::File> archive;
    if (_parts.files.open(_parts.folder.archive(), platform::OpenMode::read, archive) != 0 ||
        writeApplicationData(std::move(properties), *archive, state.sent,
                             static_cast<size_t>(length), body) != 0)
      return Answer::unreadable;
  }
  HttpsHandler handler(_parts.connection);
  return judge(handler, handler.sendApplicationData(body, state.request, moreData,
                                                    static_cast<size_t>(length)));
}

AppDataSender::Answer AppDataSender::judge(HttpsHandler& handler, int result) {
  if (result != 0) {
    if (stopping()) return Answer::stopped;
    _reason = STRING::fromInt(result);
    return Answer::again;
  }
  const int code = handler.getKorvaneError(_reason);
  if (code == 0) return Answer::taken;
  _reason = STRING::fromInt(code) + STRING(" ") + _reason;
  const bool forgotten = code == kServerUnknownAgent;
  if (forgotten) handler.forgetIdentity();
  if (!forgotten && code != kServerDropped && code != kServerRejected) return Answer::again;
  return Answer::refused;
}

void AppDataSender::note(const DeliveryState& state) {
  if (const int error = _parts.folder.save(state))
    eventlog::event(EventId::applicationDataNotNoted, kSenderSource, {state.request, error});
}

}  // namespace korvane
