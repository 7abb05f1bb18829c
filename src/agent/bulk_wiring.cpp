#include "agent/bulk_wiring.h"

#include "agent/thread/stop_token.h"
#include "comm/https_handler.h"
#include "comm/server_codes.h"
#include "comm/server_connection.h"
#include "config/install_root.h"
#include "config/prevention.h"
#include "config/service_type.h"
#include "driver/driver.h"
#include "driver/driver_values.h"
#include "eventlog/event_log.h"
#include "platform/error_codes.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

bulk::Offer offerToServer(ServerConnection& connection, StopToken& stop, const std::string& path) {
  HttpsHandler handler(connection);
  const int result = handler.sendFile(path);
  bulk::Offer offer;
  offer.stopped = stop.requested();
  if (result != 0) {
    offer.reason = handler.lastResult().failure.text();
    if (offer.reason.empty()) offer.reason = handler.lastResult().errorText;
    return offer;
  }
  STRING text;
  const int code = handler.getKorvaneError(text);
  offer.accepted = code == 0;
  if (code == kServerUnknownAgent) handler.forgetIdentity();
  if (code != 0) offer.reason = "code " + std::to_string(code) + ", " + text.toUtf8();
  return offer;
}

// How many lines were lost nobody knows: the range is told.
Loss ledgerEntry(const bulk::Loss& loss) {
  Loss entry;
  entry.log = loss.log;
  entry.cause = loss.cause == bulk::Loss::Cause::diskLimit ? LossCause::diskLimit
                : loss.cause == bulk::Loss::Cause::logGone ? LossCause::logGone
                                                           : LossCause::logReplaced;
  entry.counted = false;
  entry.first = {loss.from, loss.modifiedMs};
  entry.last = {loss.to, loss.modifiedMs};
  entry.identity = loss.identity;
  return entry;
}

bulk::DriverLog driverLog(const AgentContext& context, const char* value,
                          DriverResult (Driver::*roll)(const STRING&)) {
  Driver& driver = context.driver;
  platform::Registry& registry = context.system.registry;
  const auto current = [&registry, &policy = context.settings.policy, value](STRING& path) {
    return preventionInForce(policy) &&
           registry.readString(kDriverParametersKey, value, path) == platform::kOk && !path.empty();
  };
  return {current, [&driver, current, value, roll](const STRING& path, std::string& reason) {
            STRING former;
            if (!current(former)) return false;
            const DriverResult result = (driver.*roll)(path);
            reason = result.text.toUtf8();
            // It goes on writing to the former one, which must not count as finished.
            if (!result.ok()) ignoreResult(driver.writeValue(value, former));
            return result.ok();
          }};
}

}  // namespace

bulk::Parts bulkPartsOf(const AgentContext& context) {
  platform::Platform& system = context.system;
  bulk::Parts parts{.files = system.files,
                    .clock = system.clock,
                    .rights = system.rights,
                    .settings = context.settings.logs,
                    .home = installDirectory(),
                    .send = {},
                    .ownLog = eventlog::currentFile,
                    .driver = driverLog(context, kLogFileValue, &Driver::rollLog),
                    .profile = driverLog(context, kProfileFileValue, &Driver::rollProfileLog),
                    .lost = [&ledger = context.shared.ledger](const bulk::Loss& loss) {
                      ignoreResult(ledger.record(ledgerEntry(loss)));
                    }};
  if (isStandardAgent())
    parts.send = [&connection = context.connection, &stop = context.stop](const std::string& path) {
      return offerToServer(connection, stop, path);
    };
  return parts;
}

}  // namespace korvane
