// The administration interface: JSON over HTTP on a loopback port of its own. docs/protocol.md
// lists its operations.
//
// serve() handles one connection on the caller's thread; many threads may be in it at once. What it
// refers to must outlive it. Wrong requests are answered with HTTP status 400 and {"error": TEXT}.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tools/server/agent_endpoint.h"
#include "tools/server/assignments.h"
#include "tools/server/http_engine.h"
#include "tools/server/misbehaviour.h"
#include "tools/server/records.h"

namespace korvane::server {

class Admin {
 public:
  // `servedDirectory` holds the files that assignments name. `addListener` opens a further agent
  // port with a certificate of its own and returns it: (address, port, certificate file, key file).
  using AddListener =
      std::function<int(const std::string&, int, const std::string&, const std::string&)>;

  Admin(Records& records, Misbehaviour& misbehaviour, const AgentEndpoint& endpoint,
        std::string servedDirectory, AddListener addListener);

  void serve(Connection& connection);

 private:
  using Json = nlohmann::json;
  using Operation = std::function<Json(const httplib::Request&, const Json& body)>;

  struct NotificationTarget {
    std::string address;
    int port = 0;
  };

  void addReports();
  void addCommands();
  void onGet(const std::string& path, Operation operation);
  void onPost(const std::string& path, Operation operation);
  void onDelete(const std::string& path, Operation operation);
  static void answer(const Operation& operation, const httplib::Request& request,
                     httplib::Response& response);

  Json events(const httplib::Request& request);
  Json assign(const Json& body);
  Json askForInventory(const Json& body);
  Json files();
  // The address and port named, or those that the agent named has registered with.
  NotificationTarget targetOf(const Json& body);
  Json notify(const Json& body);
  Json misbehave(const Json& body);
  Json misbehaviours() const;
  void sendBinary(const httplib::Request& request, httplib::Response& response);
  void sendInventory(const httplib::Request& request, httplib::Response& response);

  Records& _records;
  Misbehaviour& _misbehaviour;
  const AgentEndpoint& _endpoint;
  const std::string _servedDirectory;
  const AddListener _addListener;
  HttpEngine _http;
};

}  // namespace korvane::server
