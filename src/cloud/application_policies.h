// Policies for single applications, and the base policy that they are combined with.
//
// What is in force is one source policy: the base policy and those of the applications
// (source_combination.h). It goes through PolicyProcessor like any other, so a change of an
// application's policy is atomic. The archives as they came lie in a folder (application_folder.h);
// at the start of a cloud agent it says what is to be in force. Folder and policy in force agree
// whenever an operation has ended, and after a crash once settle() has run: the policy in force
// decides.
//
// Lifetime: processor, files and settings outlive it. Threads: every operation is within a
// PolicyTurn of the caller; it blocks as long as a translation.
// Errors: RPCError with one of the codes of cloud_errors.h and the reason; nothing has
// changed then. Events 10620 to 10622.
//
//   const PolicyTurn turn(turns, stop);
//   if (turn.taken()) ApplicationPolicies(policy, files, settings.policy).set("web", archive);
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cloud/application_folder.h"
#include "cloud/source_combination.h"
#include "util/property_list.h"

namespace korvane {

class PolicyProcessor;
class PolicySettings;
struct PolicyParts;

class ApplicationPolicies {
 public:
  struct Application {
    std::string name;
    bool stored = false;
    bool inForce = false;
    uint64_t bytes = 0;        // of the archive that is stored
    std::string sha256 = {};   // of the same
    std::string problem = {};  // why what is stored cannot be used
  };

  ApplicationPolicies(PolicyProcessor& policy, platform::Files& files,
                      const PolicySettings& settings)
      : _policy(policy), _files(files), _settings(settings), _folder(files) {}

  // At the start: checks what is stored and puts it in force when it differs from what is. A
  // damaged archive is skipped with an event; what is in force for its application stays.
  // Throws nothing.
  void loadStored();
  // Puts a base policy in force, with the applications' policies.
  void installBase(std::string_view source, const PropertyList& properties);
  // False: it is in force already.
  [[nodiscard]] bool set(const std::string& application, std::string_view archive);
  void remove(const std::string& application);
  std::vector<Application> list();
  // Ends changes that a crash has cut off; nothing while a change of the policy itself is to be
  // undone. Throws RPCError when that, or a file, stands in the way.
  void settle();

 private:
  struct InForce;

  void checkPrevention() const;
  PropertyList identityInForce() const;
  InForce readInForce() const;
  void checkChangeable(const InForce& now) const;
  std::vector<Application> check(const InForce& now, ApplicationSums& sums) const;
  void combineStored(const InForce& now, const std::vector<Application>& applications);
  void install(std::string_view source, const PropertyList& properties);
  void change(const ApplicationFolder::Staged& staged, const InForce& now,
              std::string_view archive);

  PolicyProcessor& _policy;
  platform::Files& _files;
  const PolicySettings& _settings;
  ApplicationFolder _folder;
};

// loadStored() with a processor of its own, in a turn; what the start of a cloud agent does.
void loadApplicationPolicies(const PolicyParts& parts);

}  // namespace korvane
