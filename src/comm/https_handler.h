// The agent's exchanges with its management server, one operation each.
//
// A handler is made for one exchange, or a few in a row, with one server, and used by one thread.
// It keeps the result and the answer of its last exchange for the readers. All handlers of an agent
// speak over its one connection (server_connection.h), which lets one transfer at a time on the
// wire, so any number of threads may have handlers.
//
// Returns, unless stated otherwise: 0 success; -1 nothing was sent, or libcurl refused an option; a
// positive libcurl code for a failed transfer (56 also for an answer that is malformed or cut off,
// 42 when a stop ended it); a positive HTTP status above 200. Readers give -2 when the answer
// carries an error and -1 when the wanted part is missing. Nothing throws but std::bad_alloc.
//
// Stop: once the agent's stop token is set, a transfer or look-up in progress ends at once and no
// fail-over runs.
//
//   HttpsHandler handler;  // for the current server
//   if (handler.getUpdate(HttpsHandler::POLICY_UPDATE, false) == 0) {
//     STRING text;
//     if (handler.getKorvaneError(text) == 0) policy = handler.getPolicy(status, size, properties,
//     false);
//   }
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "comm/exchange.h"
#include "comm/message_body.h"
#include "comm/transport.h"
#include "util/export.h"
#include "util/property_list.h"
#include "util/string.h"

namespace korvane {

enum class EventId : int;
class HttpsMessageGenerator;
class ServerConnection;

class KORVANE_EXPORT HttpsHandler {
 public:
  // Message types; the value is the index into URL.
  static const int REGISTER = 0;
  static const int GET_UPDATE = 1;
  static const int SET_UPDATE_RESULT = 2;
  static const int LOG_MESSAGE = 3;
  static const int TEST_CONNECTION = 4;
  static const int BULK_LOG = 5;
  static const int APPLICATION_DATA = 6;

  // Update kinds, a set of bits.
  static const int CONFIG_UPDATE = 1;
  static const int POLICY_UPDATE = 2;
  static const int SOFTWARE_UPDATE = 4;
  static const int POLICY_UPDATE_HIDS = 8;
  static const int CONFIG_UPDATE_HIDS = 16;
  static const int VEXQEL_UPDATE = 32;
  static const int FERROLYN_REVO_UPDATE = 64;
  static const int FERROLYN_SETTINGS_UPDATE = 128;
  static const int FERROLYN_VT_UPDATE = 256;

  // The path word of each message type.
  static const char* const URL[7];
  static const char PROTOCOL_VERSION[4];

  // Over the connection of the run that the calling thread is in.
  // For the current server; without a server list, for the configured URL's host.
  HttpsHandler();
  // For the given host name or address; empty means the current server.
  explicit HttpsHandler(const STRING& server);
  // The same over a given connection, which outlives the handler.
  explicit HttpsHandler(ServerConnection& connection, const STRING& server = {});
  ~HttpsHandler();
  HttpsHandler(const HttpsHandler&) = delete;
  HttpsHandler& operator=(const HttpsHandler&) = delete;

  const STRING& server() const;

  // Takes URL, CA file and connection time-out from the settings, as the constructor did.
  void init();

  // Exchanges

  // Attributes, configuration and IDS settings as properties, the bytes as a binary section (none
  // when data is null or length is not positive), the IDS policy file as another.
  [[nodiscard]] int registerAgent(const char* data, long length);
  // check: the result goes through the status check with its events. The first failure with TLS 1.2
  // as the lowest version lowers it to TLS 1.0 for the rest of the run and tries once more.
  [[nodiscard]] int testConnection(bool check);
  // kinds: bits 1 to 16.
  [[nodiscard]] int getUpdate(int kinds, bool withAttributes);
  // The four content kinds, bits 32 to 256, at once.
  [[nodiscard]] int getCompUpdate();
  // The text is left as it is.
  [[nodiscard]] int setUpdateResult(int kind, PropertyList pairs);
  [[nodiscard]] int setUpdateResult(int kind, int code, STRING& text, Property pair);
  [[nodiscard]] int setUpdateResult(int kind, int code, STRING& text, PropertyList pairs);
  [[nodiscard]] int setUpdateResult(int kind, int code, const STRING& text,
                                    const PropertyList& pairs = {});
  // One log record.
  [[nodiscard]] int log(PropertyList record);
  // One properties section for each record.
  [[nodiscard]] int log(std::vector<PropertyList> records);
  // The same for records that are in a finished body already; `records` tells how many they are.
  [[nodiscard]] int log(const MessageBody& finishedBody, size_t records);
  // A file as a bulk log.
  [[nodiscard]] int sendFile(const STRING& path);
  // length 0 sends the properties alone. -1 without sending while the agent shuts down.
  [[nodiscard]] int sendApplicationData(const char* data, bool moreData, long length);
  // The same with a finished body for that request (comm/application_data.h); `bytes` tells how much data is in it.
  [[nodiscard]] int sendApplicationData(const MessageBody& finishedBody, const STRING& request,
                                        bool moreData, size_t bytes);
  // firstPoll: the caller's first-poll mark; the message is the same either way.
  [[nodiscard]] int sendAgentStatusMessage(bool firstPoll);
  [[nodiscard]] int sendPolicyStateMessage();

  // Readers of the last answer

  // The zipped policy, for the caller to delete[]; null unless status is 1. status: 1 a policy, 0
  // the server has none, -1 not asked for or missing, -2 the answer carries an error.
  char* getPolicy(int& status, int& size, PropertyList& properties, bool ids);
  char* getSoftware(int& status, int& size, PropertyList& properties);
  // The same without a copy: bytes of the answer, until the next exchange of this handler.
  std::string_view viewPolicy(int& status, PropertyList& properties, bool ids);
  std::string_view viewSoftware(int& status, PropertyList& properties);
  // out: the settings for the agent; identity: what names this configuration, the pairs "mod.time"
  // and "rid.applied". Both stay empty, and the return is 0, when the server has no change.
  [[nodiscard]] int GetGeneralProperties(PropertyList& out, PropertyList& identity);
  // Pairs named "ids.*", "Log.*", and "update.*" or "send.*". They are handed out also with -2.
  [[nodiscard]] int GetIDSProperties(PropertyList& out);
  [[nodiscard]] int GetLogRules(PropertyList& out);
  [[nodiscard]] int GetPollingProperties(PropertyList& out);
  // The property "agent.id".
  [[nodiscard]] int getGUID(STRING& guid);
  // The identifier that the last message of this handler was sent with; empty when with none.
  const STRING& getGUIDUsed() const;
  // 1 and the pairs when the answer holds an update of the kind that the last exchange was
  // about (asked for, or reported of), 0 when not. The pairs are its section's, without the
  // notices of other kinds.
  [[nodiscard]] int getPiggyBackedUpdate(PropertyList& out);
  // The content of a kind, by the kind's name ("update.qel"); 0 when there is one. The string
  // belongs to the handler and lives until its next exchange. An empty part gives -1 and the text
  // "Empty".
  [[nodiscard]] int getBinaryData(STRING name, std::string*& out);
  // The same without a copy; empty without content.
  std::string_view viewBinaryData(const STRING& name);
  // The server's error code, 0 when none; with its text, which fits one field of an event line:
  // double quotes left out, commas and line ends made blanks.
  [[nodiscard]] int getKorvaneError(STRING& text);
  // Reads "Korvane-uni.zip" in the working directory; leaves `out` as it is when there is none.
  void readMinus(std::string& out);

  // Kinds by name and back
  static int getUpdateAsINT(const STRING& name);  // 0 for an unknown name
  static STRING getUpdateAsString(int kind);      // the short name; empty for an unknown bit

  // What a transfer's result comes to, with its event; the operations above have done it.
  [[nodiscard]] int checkRetStatus(int result);
  // The last exchange's code, stage, cause and answer; the code of a checked one as it was
  // returned, but for an HTTP error, which has minus the status.
  const ExchangeResult& lastResult() const;
  // The server does not know the identity that the last message was sent with: the agent registers
  // again, unless it has been given another one meanwhile.
  void forgetIdentity();

  // Error texts
  STRING getCurlError(int code) const;
  static STRING getHTTPError(int status);

  // Of the run

  // The result of the last transfer that went through the status check; -1 and HTTP errors leave
  // it.
  static int getLastError();
  // Ends the connections and this run's use of libcurl. No exchange may be in progress; a
  // later handler starts both again.
  static void curlCleanup();
  // The address of a host, dotted; empty when it cannot be resolved or a stop came first.
  static STRING getServerIP(const STRING& server);
  // Uses this transport in place of libcurl; null goes back to it. No exchange may be in progress.
  static void setTransport(std::unique_ptr<Transport> transport);

 private:
  [[nodiscard]] int getUpdate(int kinds, const PropertyList& extra, bool withAttributes);

  // One message to the server and its answer; exchange() adds the status check.
  [[nodiscard]] int exchange(int type, HttpsMessageGenerator& generator);
  [[nodiscard]] int send(int type, HttpsMessageGenerator& generator);
  void forgetLast(int type);
  void noteFailure(EventId event, const STRING& text, int code);
  void noteSuccess();
  void noteApplicationRequest() const;

  // True when the last exchange succeeded and its answer may be read.
  bool answered() const;
  bool asked(int kind) const;
  STRING answerProperty(const STRING& name) const;
  PropertyList answerGroup(bool (*belongs)(const STRING& name)) const;
  int readGroup(bool (*belongs)(const STRING& name), PropertyList& out) const;
  const ResponseParser::Binary* binaryOf(int kind) const;
  std::string_view viewPackage(int kind, int& status, PropertyList& properties);

  ServerConnection& _connection;
  Destination _to;
  ExchangeResult _last;
  int _lastType = -1;
  int _lastKinds = 0;
  std::list<std::string> _handedOut;
};

}  // namespace korvane
