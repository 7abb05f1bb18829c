// What the agent's messages to its management server say of it: its attributes and settings, the
// IDS component's, and the policy in force.
//
// Lifetime: what it is made from outlives it. Any thread; nothing throws but std::bad_alloc. Each
// call reads the settings of the moment.
//
//   message.addProperties(description.attributes());
#pragma once

#include <functional>
#include <utility>

#include "comm/https_message_generator.h"
#include "config/hids_interface.h"
#include "config/settings.h"
#include "platform/fwd.h"
#include "util/property_list.h"

namespace korvane {

class AgentDescription {
 public:
  struct Parts {
    Settings settings;
    platform::Files& files;
    platform::SystemInfo& systemInfo;
    std::function<HidsInterface*()> idsComponent;  // the one of the moment, or null
  };

  explicit AgentDescription(Parts parts) : _parts(std::move(parts)) {}

  STRING charset() const;
  // As said at every start, and at registration.
  PropertyList attributes() const;
  // Sections of a registration: attributes, settings, and those of the IDS component when there is
  // one, each of its log rules as one pair "idslogrules".
  void addTo(HttpsMessageGenerator& registration) const;
  // The IDS policy file as a section, when there is one.
  void addIdsPolicy(HttpsMessageGenerator& registration) const;

  // Which policy is applied; its path is "builtin" for the built-in one.
  PropertyList policy() const;
  // The same with what a status says of the machine.
  PropertyList policyAndMachine() const;
  // Codes and texts of the policy's last error, and of its state.
  struct Outcome {
    int code = 0;
    STRING text;
  };
  Outcome policyError() const;
  Outcome policyState() const;

  // The request that application data answers.
  STRING applicationRequest() const;

 private:
  const Parts _parts;
};

}  // namespace korvane
