// PolicyProcessor: a policy from the server, and what the server is told about it.
#include <memory>

#include "agent/thread/locks.h"
#include "comm/https_handler.h"
#include "comm/report_answer.h"
#include "config/agent_config.h"
#include "config/service_type.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "update/policy/policy_attempt.h"
#include "update/policy/policy_change.h"
#include "update/policy/policy_news.h"
#include "util/dates.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kReceivedTag[] = "processConfigPolicyUpdates";
constexpr char kSaveTag[] = "savePolicyToFile";
constexpr char kReportTag[] = "sendPolicyReturnStatus";
constexpr char kNamePattern[] = "policy%M%S%T.sbp.zip";
constexpr char kNoError[] = "No Error";

// What the server has not been told yet.
struct Outstanding {
  Win32Mutex lock;
  bool due GUARDED_BY(lock) = false;
  int code GUARDED_BY(lock) = 0;
  STRING text GUARDED_BY(lock);
};

Outstanding& outstanding() {
  return AgentRun::current().part<Outstanding>(RunPart::policyReport);
}

void setOutstanding(bool due, int code, const STRING& text) {
  Outstanding& report = outstanding();
  const Synchronized hold(report.lock);
  report.due = due;
  report.code = code;
  report.text = text;
}

bool isPipelineError(int code) {
  return code == PolicyProcessor::kPolicyFailed || code == PolicyProcessor::kPolicyNotSaved;
}

// Its name is sure when the folder is flushed for what is made of it.
int writeNewFile(const std::string& path, const char* data, size_t size) {
  platform::Files& files = platform::current().files;
  std::unique_ptr<platform::File> file;
  if (files.open(path, platform::OpenMode::create, file) != 0) {
    eventlog::trace(kSaveTag, "Cannot open file %s", path);
    return -1;
  }
  eventlog::trace(kSaveTag, "Opened file %s", path);
  int error = file->write(data, size);
  if (error == 0) error = file->flush();
  if (error == 0) return 0;
  eventlog::trace(kSaveTag, "Cannot write to file : %s", path);
  file.reset();
  // The error that is told is the one of the writing.
  ignoreResult(removeIfThere(path));
  return error;
}

std::string newPlusFile() {
  const AgentConfig& config = *AgentConfig::getInstance();
  platform::Platform& system = platform::current();
  std::string path;
  do {
    const STRING name = expandDatePattern(kNamePattern, system.clock.wallMs());
    path = platform::joinPath(system.files, {driverDirectory(), name.toUtf8()});
  } while (path == config.getPlusPolicyFile().toUtf8() ||
           path == config.getIDSPlusFileName().toUtf8());
  return path;
}

bool sendOutcome() {
  HttpsHandler handler;
  const int result = handler.sendAgentStatusMessage(false);
  if (reportTaken(handler, result)) return true;
  eventlog::trace(kReportTag, "The policy error could not be reported: %d", result);
  return false;
}

}  // namespace

bool PolicyProcessor::reconcile() {
  AgentConfig& config = *AgentConfig::getInstance();
  const Reconciled outcome = reconcilePolicy(currentDriver());
  switch (outcome) {
    case Reconciled::nothing: {
      const int code = config.getPolicyErrorCode();
      setOutstanding(isPipelineError(code), code, config.getPolicyErrorStr());
      break;
    }
    case Reconciled::undone:
      setOutstanding(true, kPolicyFailed,
                     "The policy change was interrupted and has been rolled back.");
      break;
    case Reconciled::repaired:
      setOutstanding(true, kPolicyFailed,
                     "The policy change was interrupted and its journal is damaged.");
      break;
    case Reconciled::failed:
      setOutstanding(true, kPolicyFailed,
                     "The policy change was interrupted and could not be rolled back.");
      break;
  }
  if (outcome != Reconciled::failed) sweepPolicyFolder(driverDirectory());
  if (outcome == Reconciled::nothing) return true;
  Outstanding& report = outstanding();
  const Synchronized hold(report.lock);
  config.setPolicyError(report.code, report.text);
  return outcome != Reconciled::failed;
}

void PolicyProcessor::reportOutstanding() {
  int code = 0;
  STRING text;
  {
    Outstanding& now = outstanding();
    const Synchronized hold(now.lock);
    if (!now.due) return;
    code = now.code;
    text = now.text;
  }
  report(code, text);
}

void PolicyProcessor::report(int code, const STRING& text) {
  AgentConfig& config = *AgentConfig::getInstance();
  config.setPolicyError(code, text);
  // The outcome of every policy is news, also when it is the same as the last one's.
  config.setPolicyErrorChanged(true);
  setOutstanding(true, code, text);
  sendPolicyReturnStatus();
}

void PolicyProcessor::sendPolicyReturnStatus() {
  AgentConfig& config = *AgentConfig::getInstance();
  if (!config.hasPolicyErrorChanged()) return;
  if (!isStandardAgent()) {
    PolicyNews::note();
  } else if (!sendOutcome()) {
    return;
  }
  config.setPolicyErrorChanged(false);
  setOutstanding(false, 0, {});
}

bool PolicyProcessor::refuse(int code, const STRING& text) {
  _errorText = text;
  eventlog::trace(kReceivedTag, "%s", text);
  report(code, text);
  return false;
}

bool PolicyProcessor::receivePolicy(HttpsHandler& handler) {
  int status = 0;
  int size = 0;
  PropertyList properties;
  const std::unique_ptr<char[]> bytes(handler.getPolicy(status, size, properties, false));
  return installPolicy({bytes.get(), bytes ? static_cast<size_t>(size) : 0}, properties);
}

bool PolicyProcessor::installPolicy(std::string_view bytes, const PropertyList& properties) {
  _stopped = false;
  for (const char* name : {"policy.name", "policy.path"})
    if (const STRING* value = findProperty(properties, name))
      eventlog::trace(kReceivedTag, "items server sent %s=%s", name, *value);
  if (bytes.empty()) return refuse(kNoNewPolicy, "No new policy data provided.");
  const Received received{propertyValue(properties, "policy.name"),
                          propertyValue(properties, "policy.path")};
  if (received.path.empty()) return refuse(kNoPolicyPath, "Policy information (path) not provided");
  eventlog::trace(kReceivedTag, "Policy Path OK");
  STRING former = AgentConfig::getInstance()->getPlusPolicyFile();
  const STRING plusFile = savePolicyToFile(bytes.data(), bytes.size());
  if (plusFile.empty())
    return refuse(kPolicyNotSaved, "failed to save new policy data to permanent storage");
  if (!translate(plusFile, &received)) {
    if (_stopped) return false;
    return refuse(kPolicyFailed,
                  _errorText.empty() ? "The saved policy cannot be read." : _errorText);
  }
  if (!former.empty() && former != plusFile) removeOldPolicyFiles(former);
  sweepPolicyFolder(driverDirectory());
  // Without its items a policy is not checked for retranslation; that has been told.
  ignoreResult(loadRetransItems());
  report(0, kNoError);
  return true;
}

STRING PolicyProcessor::savePolicyToFile(const char* data, size_t size) {
  _errorText.clear();
  if (size == 0) {
    _errorText = "Policy plus file is empty.";
    eventlog::trace(kSaveTag, "Policy plus file is empty.");
    return {};
  }
  // A folder that cannot be made shows in the writing of the file.
  ignoreResult(platform::current().files.makeDirectories(driverDirectory()));
  const std::string path = newPlusFile();
  if (const int error = writeNewFile(path, data, size)) {
    _errorText = (error < 0 ? "Cannot open file " : "Cannot write to file : ") + path;
    return {};
  }
  eventlog::trace(kSaveTag, "Saved policy to disk");
  return path;
}

}  // namespace korvane
