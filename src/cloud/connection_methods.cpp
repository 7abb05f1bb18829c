// testConnection.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "cloud/parameters.h"
#include "comm/server_connection.h"

namespace korvane {
namespace {

JsonTree stagesTree(const ConnectionReport& report) {
  JsonTree list;
  for (const StageReport& stage : report.stages) {
    JsonTree entry;
    putMember(entry, "name", stage.name);
    putFlag(entry, "ok", stage.ok);
    putMember(entry, "milliseconds", stage.milliseconds);
    putMember(entry, "detail", stage.detail);
    list.push_back({"", std::move(entry)});
  }
  return list;
}

JsonTree certificatesTree(const ConnectionReport& report) {
  JsonTree list;
  for (const CertificateReport& certificate : report.certificates) {
    JsonTree entry;
    putMember(entry, "subject", certificate.subject);
    putMember(entry, "issuer", certificate.issuer);
    putMember(entry, "notBefore", certificate.notBefore);
    putMember(entry, "notAfter", certificate.notAfter);
    putMember(entry, "error", certificate.error);
    list.push_back({"", std::move(entry)});
  }
  return list;
}

JsonTree reportTree(const ConnectionReport& report) {
  JsonTree tree;
  putFlag(tree, "ok", report.ok);
  putMember(tree, "url", report.url);
  tree.push_back({"stages", stagesTree(report)});
  tree.push_back({"certificates", certificatesTree(report)});
  putMember(tree, "failingStage", report.failingStage);
  putMember(tree, "cause", report.cause);
  putMember(tree, "nextStep", report.nextStep);
  putMember(tree, "proxy", report.proxy);
  putMember(tree, "milliseconds", report.milliseconds);
  return tree;
}

}  // namespace

void addConnectionMethods(RPCServer& server, const LocalParts& parts) {
  server.add("testConnection", RPCServer::Access::administrators,
             [&parts](const RPCRequest& request, RPCResponse& response) {
               const std::string* name = givenText(request, "server");
               if (name && name->empty()) refuseParameter("server", "is empty");
               const ServerConnection& connection = parts.connection;
               response.result = reportTree(connection.test(connection.target(name ? *name : "")));
             });
}

}  // namespace korvane
