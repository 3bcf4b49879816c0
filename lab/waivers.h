// What the driver's required behaviour does although a rule forbids it: each entry is a line of
// docs/known-behaviour.md.
#pragma once
#include <string>
#include <vector>

#include "platform/host/simulation.h"
#include "sim/protocol_errors.h"

namespace lab {

std::vector<platform::Waiver> KnownWaivers();

// What the hardware complains about rightly, and the driver does all the same once an access of its own has failed.
struct ProtocolWaiver {
  std::string text;  // the complaint contains it
  std::string reason;
};

std::vector<ProtocolWaiver> KnownProtocolWaivers();

// The complaints that count: all of them, unless a fault has struck in this run; then all that no waiver covers.
std::vector<sim::ProtocolError> UnwaivedErrors(const std::vector<sim::ProtocolError>& errors, bool faultStruck);

// What a fault that struck an access leaves in the hardware until its routers are reset. It counts wherever that has
// been done since, and wherever no access can have failed for good.
std::vector<ProtocolWaiver> KnownRemains();

// What the oracle finds, without them.
std::vector<std::string> WithoutRemains(std::vector<std::string> findings);

}  // namespace lab
