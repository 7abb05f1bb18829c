// Serves the requests for application data of one run of an agent, one after another: collects,
// packs, and delivers to the management server, or leaves the result for the local channel.
// docs/application-data.md says what survives which crash.
//
// Lifetime: refers to what it is given, which outlives it. Used by one thread, the one that
// collects. Stop: run() and serve() end soon after the stop was requested; what is not finished
// goes on with the next start.
//
//   AppDataWorker worker(parts);
//   worker.run();
#pragma once

#include "discovery/app_data_requests.h"
#include "discovery/delivery_folder.h"
#include "discovery/inventory_schedule.h"
#include "discovery/inventory_source.h"
#include "platform/fwd.h"

namespace korvane {

class ServerConnection;

struct AppDataParts {
  platform::Files& files;
  platform::Clock& clock;
  AppDataSettings settings;
  AppDataRequests& requests;
  InventorySource& source;
  ServerConnection* server;  // null: results are for the local channel
  bool cloud;                // discovery counts as the cloud's
};

class AppDataWorker {
 public:
  AppDataWorker(const AppDataParts& parts, StopToken& stop);
  ~AppDataWorker();
  AppDataWorker(const AppDataWorker&) = delete;
  AppDataWorker& operator=(const AppDataWorker&) = delete;

  // Until the stop. keepsSchedule: nobody else asks when an inventory is due.
  void run(bool keepsSchedule);
  // What an earlier run has left: removes what serves no request.
  void recover();
  // Serves the requests that there are.
  void serve();

 private:
  bool serveOne(const STRING& request);
  [[nodiscard]] bool loaded(const STRING& request, DeliveryState& state);
  [[nodiscard]] bool collect(const STRING& request, DeliveryState& state);
  void describe(const InventoryResult& result, DeliveryState& state);
  [[nodiscard]] int pack(DeliveryState& state);
  [[nodiscard]] int measureArchive(DeliveryState& state) const;
  void fail(const std::string& reason, DeliveryState& state);
  void keep(const DeliveryState& state);
  [[nodiscard]] bool deliver(DeliveryState& state);
  void settle(const DeliveryState& state, bool delivered, const STRING& reason = {});
  void removeDelivery();
  bool hasDefinition() const;
  void tellReadiness();
  bool stopping() const { return _stop.requested(); }

  const AppDataParts _parts;
  StopToken& _stop;
  DeliveryFolder _folder;
  InventorySchedule _schedule;
  bool _lastWorked = true;
};

// Wakes the threads of application data when a setting that they look at has changed, for as long
// as there are the settings.
void wakeWithSettings(const AppDataSettings& settings, AppDataRequests& requests);

// What release over the local channel comes to: the result is delivered. False when there is none.
[[nodiscard]] bool releaseDelivery(platform::Files& files, const AppDataSettings& settings,
                                   AppDataRequests& requests);

}  // namespace korvane
