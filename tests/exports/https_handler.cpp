#include <cstdlib>

#include "outside.h"

using korvane::HttpsHandler;

static_assert(HttpsHandler::REGISTER == 0 && HttpsHandler::GET_UPDATE == 1 &&
              HttpsHandler::SET_UPDATE_RESULT == 2 && HttpsHandler::LOG_MESSAGE == 3 &&
              HttpsHandler::TEST_CONNECTION == 4 && HttpsHandler::BULK_LOG == 5 &&
              HttpsHandler::APPLICATION_DATA == 6);
static_assert(HttpsHandler::CONFIG_UPDATE == 1 && HttpsHandler::POLICY_UPDATE == 2 &&
              HttpsHandler::SOFTWARE_UPDATE == 4 && HttpsHandler::POLICY_UPDATE_HIDS == 8 &&
              HttpsHandler::CONFIG_UPDATE_HIDS == 16 && HttpsHandler::VEXQEL_UPDATE == 32 &&
              HttpsHandler::FERROLYN_REVO_UPDATE == 64 &&
              HttpsHandler::FERROLYN_SETTINGS_UPDATE == 128 &&
              HttpsHandler::FERROLYN_VT_UPDATE == 256);

// The address of a constant needs its symbol.
static const int* const kAddresses[] = {&HttpsHandler::REGISTER, &HttpsHandler::FERROLYN_VT_UPDATE};

// The overloads, letter for letter.
using H = HttpsHandler;
static int (H::*const kByPairs)(int, Pairs) = &H::setUpdateResult;
static int (H::*const kWithPair)(int, int, STRING&, Pair) = &H::setUpdateResult;
static int (H::*const kWithPairs)(int, int, STRING&, Pairs) = &H::setUpdateResult;
static int (H::*const kOneRecord)(Pairs) = &H::log;
static int (H::*const kRecords)(std::vector<Pairs>) = &H::log;
static int (H::*const kBinary)(STRING, std::string*&) = &H::getBinaryData;

// Nobody listens and no GUID was given, so every exchange but the two that need none ends with -1.
static void exchange(HttpsHandler& handler) {
  STRING words = text("words");
  const Pair pair{text("name"), text("value")};
  Pairs pairs{pair};
  const std::vector<Pairs> records{pairs, pairs};

  expect(handler.getUpdate(HttpsHandler::CONFIG_UPDATE | HttpsHandler::POLICY_UPDATE, true) == -1 &&
             handler.getCompUpdate() == -1 &&
             (handler.*kByPairs)(HttpsHandler::POLICY_UPDATE, pairs) == -1 &&
             (handler.*kWithPair)(HttpsHandler::POLICY_UPDATE, 0, words, pair) == -1 &&
             (handler.*kWithPairs)(HttpsHandler::POLICY_UPDATE, 0, words, pairs) == -1 &&
             (handler.*kOneRecord)(pairs) == -1 && (handler.*kRecords)(records) == -1 &&
             handler.sendApplicationData("data", true, 4) == -1 &&
             handler.sendAgentStatusMessage(true) == -1 && handler.sendPolicyStateMessage() == -1,
         "no exchange without a GUID");
  expect(handler.sendFile(text("no such file")) != 0, "no such file to send");
  expect(handler.registerAgent("PK", 2) > 0, "nobody answers a registration");
  expect(handler.testConnection(true) > 0, "nobody answers a test");
  expect(handler.getLastError() > 0, "the last transfer failed");
}

static void readAnswer(HttpsHandler& handler) {
  int status = 9, size = 9;
  Pairs pairs, others;
  STRING words;
  std::string* binary = nullptr;
  std::string minus = "unchanged";

  char* policy = handler.getPolicy(status, size, pairs, false);
  expect(policy == nullptr && status == -1, "no policy was asked for");
  std::free(policy);
  char* software = handler.getSoftware(status, size, pairs);
  expect(software == nullptr && status == -1, "no software was asked for");
  std::free(software);
  expect(handler.GetGeneralProperties(pairs, others) == -1, "no configuration was asked for");
  expect(handler.getGUID(words) == -1, "no identity in the answer");
  expect(handler.getGUIDUsed() == text(""), "no identity was used");
  expect(handler.getPiggyBackedUpdate(pairs) == 0, "nothing came with the answer");
  handler.GetIDSProperties(pairs);
  handler.GetLogRules(pairs);
  handler.GetPollingProperties(pairs);
  expect(pairs.empty(), "no properties in the answer");
  (handler.*kBinary)(text("update.qel"), binary);
  expect(binary == nullptr, "no content in the answer");
  expect(handler.getKorvaneError(words) == 0, "the server named no error");
  handler.readMinus(minus);
  expect(minus == "unchanged", "no diagnostic file");
}

void useHttpsHandler() {
  HttpsHandler handler;
  handler.init();
  exchange(handler);
  readAnswer(handler);

  expect(*kAddresses[1] == 256, "a constant has an address");
  expect(STRING(HttpsHandler::URL[HttpsHandler::APPLICATION_DATA]) == text("result"), "path words");
  expect(STRING(HttpsHandler::PROTOCOL_VERSION) == text("1.0"), "the protocol's version");
  expect(handler.getUpdateAsINT(text("update.config")) == 1 &&
             handler.getUpdateAsINT(text("update.configuration")) == 0 &&
             handler.getUpdateAsString(256) == text("ferrolyn.vexvt") &&
             handler.getUpdateAsString(3) == text(""),
         "kinds and their names");
  expect(handler.getCurlError(91) == text("Guid is blank.") &&
             handler.getCurlError(92) == text("Could not understand the error 92"),
         "texts of failed transfers");
  expect(handler.getHTTPError(404) == text("Return status 404"), "texts of refused requests");
  expect(handler.checkRetStatus(7) == 7 && HttpsHandler::getLastError() == 7, "a failure is kept");
  HttpsHandler::curlCleanup();
}
