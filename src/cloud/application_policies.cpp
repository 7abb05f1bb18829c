#include "cloud/application_policies.h"

#include <cerrno>

#include "cloud/cloud_errors.h"
#include "config/ini_text.h"
#include "config/policy_settings.h"
#include "config/prevention.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"
#include "rpc/rpc_errors.h"
#include "update/policy/policy_files.h"
#include "update/policy/policy_journal.h"
#include "update/policy/policy_processor.h"
#include "update/policy/policy_turn.h"
#include "util/ignore_result.h"
#include "util/sha256.h"

namespace korvane {
namespace {

constexpr char kTag[] = "ApplicationPolicies";

[[noreturn]] void refuseArchive(const archive::Refusal& refusal) {
  throw RPCError(kRpcZipError, refusal.text());
}

[[noreturn]] void failedFile(const std::string& path, int error) {
  throw RPCError(kRpcFileOpenError, path + ": error " + std::to_string(error));
}

void checkName(const std::string& application) {
  if (isApplicationName(application)) return;
  throw RPCError(
      kRpcInvalidParams,
      "name: \"" + application +
          "\" is not a valid application name: 1 to 64 of a-z, 0-9, - and _, a letter or digit "
          "first, not a device name");
}

}  // namespace

struct ApplicationPolicies::InForce {
  std::string source;    // empty: there is no policy to combine with
  std::string missing;   // why not
  int readError = 0;     // it is there, but could not be read
  bool builtIn = false;  // it waits behind the built-in policy
  ApplicationSums applications;

  bool has(const std::string& application, const PolicySums& sums) const {
    const auto found = applications.find(application);
    return found != applications.end() && found->second == sums;
  }
};

void ApplicationPolicies::checkPrevention() const {
  if (preventionInForce(_settings)) return;
  throw RPCError(kCloudPreventionOff, preventionAwaitsReboot(_settings)
                                          ? "prevention is waiting for a reboot"
                                          : "prevention is off");
}

// The base policy's, which stays the same when something is added to it or taken away.
PropertyList ApplicationPolicies::identityInForce() const {
  const STRING path = _settings.getPlusDBPath();
  return {{"policy.name", _settings.getPlusVersion()},
          {"policy.path", path.empty() ? _settings.getPlusPolicyFile() : path}};
}

ApplicationPolicies::InForce ApplicationPolicies::readInForce() const {
  InForce now;
  now.builtIn = _settings.useBuiltInPolicy();
  const std::string plus = _settings.getPlusPolicyFile().toUtf8();
  if (plus.empty()) {
    now.missing = "no base policy has been received yet";
  } else if (const int error =
                 platform::readWholeFile(_files, plus, kMaxPlusFileBytes, now.source)) {
    now.missing = plus + " cannot be read: error " + std::to_string(error);
    if (error != ENOENT) now.readError = error;
  }
  now.applications = applicationsOf(now.source);
  return now;
}

void ApplicationPolicies::checkChangeable(const InForce& now) const {
  if (now.builtIn) throw RPCError(kCloudNoBasePolicy, "the built-in policy is in force");
  if (now.source.empty()) throw RPCError(kCloudNoBasePolicy, now.missing);
  checkPrevention();
}

void ApplicationPolicies::settle() {
  const std::vector<ApplicationFolder::Staged> all = _folder.staged();
  if (all.empty()) return;
  PolicyJournal journal;
  if (readPolicyJournal(_files, journal) != ENOENT)
    throw RPCError(kCloudPolicyRefused, "an earlier policy change has not been rolled back yet");
  const InForce now = readInForce();
  if (now.readError) throw RPCError(kRpcFileOpenError, now.missing);
  for (const ApplicationFolder::Staged& staged : all) {
    bool holds = !now.applications.contains(staged.application);
    int error = 0;
    if (!staged.removal) {
      std::string archive;
      PolicySums sums;
      archive::Refusal refusal;
      error = _folder.readStaged(staged.application, archive);
      holds = checkApplication(staged.application, archive, sums, refusal) &&
              now.has(staged.application, sums);
    }
    // Nothing is decided by what could not be read.
    if (error == 0 || error == EFBIG)
      error = holds ? _folder.makeGood(staged) : _folder.drop(staged);
    if (error == 0) continue;
    eventlog::event(EventId::applicationFolderMismatch, kTag, {staged.application, error});
    failedFile(_folder.path(staged.application), error);
  }
}

void ApplicationPolicies::install(std::string_view source, const PropertyList& properties) {
  const PolicyOutcome outcome = _policy.installPolicy(source, properties);
  if (outcome) return;
  if (outcome.stopped())
    throw RPCError(kCloudStopping, "the agent is stopping; query the state after its next start");
  throw RPCError(kCloudPolicyRefused, outcome.text.toUtf8());
}

void ApplicationPolicies::installBase(std::string_view source, const PropertyList& properties) {
  checkPrevention();
  settle();
  const InForce now = readInForce();
  archive::Refusal refusal;
  SourceCombination combination;
  const bool combined = combination.addBase(source, false, refusal);
  // What is not an archive is the translator's to judge, unless something has to be put into it.
  const bool foreign = !combined && refusal.fault == archive::Fault::notAnArchive;
  if (!combined && !foreign) refuseArchive(refusal);
  const bool fromFolder = now.source.empty() || now.builtIn;
  std::vector<std::string> stored;
  if (fromFolder) stored = _folder.stored();
  if (fromFolder ? stored.empty() : now.applications.empty()) return install(source, properties);
  if (foreign) refuseArchive(refusal);
  if (!fromFolder && !combination.addApplicationsOf(
                         now.source, [](const std::string&) { return true; }, refusal))
    refuseArchive(refusal);
  for (const std::string& application : stored) {
    std::string archive;
    PolicySums sums;
    if (_folder.read(application, archive) != 0 ||
        !checkApplication(application, archive, sums, refusal))
      eventlog::event(EventId::applicationPolicyDamaged, kTag,
                      {_folder.path(application), refusal.text()});
    else if (!combination.addApplication(application, archive, refusal))
      refuseArchive(refusal);
  }
  install(combination.finish(), properties);
}

void ApplicationPolicies::change(const ApplicationFolder::Staged& staged, const InForce& now,
                                 std::string_view archive) {
  archive::Refusal refusal;
  SourceCombination combination;
  const auto others = [&staged](const std::string& each) { return each != staged.application; };
  if (!combination.addBase(now.source, true, refusal) ||
      !combination.addApplicationsOf(now.source, others, refusal) ||
      !(staged.removal || combination.addApplication(staged.application, archive, refusal)))
    refuseArchive(refusal);
  const int error = staged.removal ? _folder.stageRemoval(staged.application)
                                   : _folder.stage(staged.application, archive);
  if (error) failedFile(_folder.path(staged.application), error);
  try {
    install(combination.finish(), identityInForce());
  } catch (const RPCError&) {
    try {
      settle();
    } catch (const RPCError&) {
      // It stays for the next operation or start; why this one failed is what counts.
    }
    throw;
  }
  try {
    settle();
  } catch (const RPCError&) {
    // The policy is in force; the next operation, or the next start, brings the folder to it.
  }
}

bool ApplicationPolicies::set(const std::string& application, std::string_view archive) {
  checkName(application);
  PolicySums sums;
  archive::Refusal refusal;
  if (!checkApplication(application, archive, sums, refusal)) refuseArchive(refusal);
  settle();
  const InForce now = readInForce();
  checkChangeable(now);
  std::string present;
  if (now.has(application, sums) && _folder.read(application, present) == 0 && present == archive)
    return false;
  if (!now.applications.contains(application) && now.applications.size() >= kMaxApplications)
    throw RPCError(kRpcInvalidParams, "name: the limit is reached, policies exist for " +
                                          std::to_string(kMaxApplications) + " applications");
  change({application, false}, now, archive);
  return true;
}

void ApplicationPolicies::remove(const std::string& application) {
  checkName(application);
  settle();
  const InForce now = readInForce();
  const bool stored = platform::fileExists(_files, _folder.path(application));
  const bool inForce = now.applications.contains(application);
  if (!stored && !inForce)
    throw RPCError(kCloudNoSuchApplication, "there is no policy for " + application);
  if (inForce) {
    checkChangeable(now);
    return change({application, true}, now, {});
  }
  if (const int error = _folder.remove(application)) failedFile(_folder.path(application), error);
}

std::vector<ApplicationPolicies::Application> ApplicationPolicies::check(
    const InForce& now, ApplicationSums& sums) const {
  std::vector<Application> found;
  for (const std::string& name : _folder.stored()) {
    Application application{.name = name, .stored = true};
    std::string archive;
    archive::Refusal refusal;
    if (const int error = _folder.read(name, archive)) {
      application.problem = "cannot be read: error " + std::to_string(error);
    } else {
      application.bytes = archive.size();
      application.sha256 = sha256Hex(archive);
      if (!checkApplication(name, archive, sums[name], refusal))
        application.problem = refusal.text();
      else
        application.inForce = !now.builtIn && now.has(name, sums[name]);
    }
    if (!application.problem.empty()) sums.erase(name);
    found.push_back(std::move(application));
  }
  return found;
}

std::vector<ApplicationPolicies::Application> ApplicationPolicies::list() {
  settle();
  const InForce now = readInForce();
  ApplicationSums sums;
  std::vector<Application> all = check(now, sums);
  for (const auto& [name, files] : now.applications) {
    bool known = false;
    for (Application& each : all) {
      if (each.name != name) continue;
      known = true;
      if (!each.problem.empty()) each.inForce = !now.builtIn;
    }
    if (!known) all.push_back({.name = name, .inForce = !now.builtIn});
  }
  return all;
}

void ApplicationPolicies::combineStored(const InForce& now,
                                        const std::vector<Application>& applications) {
  archive::Refusal refusal;
  SourceCombination combination;
  bool combined = combination.addBase(now.source, true, refusal);
  for (const Application& each : applications) {
    std::string archive;
    const bool damaged = !each.problem.empty();
    const auto same = [&each](const std::string& name) { return name == each.name; };
    combined = combined && (damaged ? combination.addApplicationsOf(now.source, same, refusal)
                                    : _folder.read(each.name, archive) == 0 &&
                                          combination.addApplication(each.name, archive, refusal));
  }
  if (!combined) refuseArchive(refusal);
  install(combination.finish(), identityInForce());
}

void ApplicationPolicies::loadStored() {
  try {
    settle();
    const InForce now = readInForce();
    ApplicationSums wanted;
    const std::vector<Application> stored = check(now, wanted);
    for (const Application& each : stored) {
      if (each.problem.empty()) continue;
      eventlog::event(EventId::applicationPolicyDamaged, kTag,
                      {_folder.path(each.name), each.problem});
      const auto found = now.applications.find(each.name);
      if (found != now.applications.end()) wanted.insert(*found);
    }
    if (now.source.empty() || now.builtIn || wanted == now.applications) return;
    checkPrevention();
    combineStored(now, stored);
  } catch (const RPCError& error) {
    eventlog::event(EventId::applicationPoliciesNotApplied, kTag, {error.detail()});
  }
}

void loadApplicationPolicies(const PolicyParts& parts) {
  const PolicyTurn turn(parts.shared.turns, parts.stop);
  if (!turn.taken()) return;
  PolicyProcessor policy(parts);
  // Without a history the policies are worked on all the same; that has been traced.
  ignoreResult(policy.InitializePloicyHistory());
  ApplicationPolicies(policy, parts.files, parts.settings).loadStored();
}

}  // namespace korvane
