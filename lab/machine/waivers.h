// What the driver's required behaviour does although a rule forbids it: each entry is a line of
// docs/known-behaviour.md.
#pragma once
#include <string>
#include <vector>

#include "platform/host/simulation.h"
#include "sim/host/protocol_errors.h"

namespace lab {

std::vector<platform::Waiver> KnownWaivers();

// What the hardware complains about rightly, and the driver does all the same once an access of its own has failed.
struct ProtocolWaiver {
  std::string text;  // the complaint contains it
  std::string reason;
};

std::vector<ProtocolWaiver> KnownProtocolWaivers();

// Whether a fault that has struck in this run excuses the complaint.
bool Excused(const sim::ProtocolError& error);

// What a lost answer leaves in a host router until it is reset, although the question is asked again: the first one has
// been granted, so the second is not.
std::vector<ProtocolWaiver> LostGrants();

// That, and what an access that failed for good leaves until its routers are reset.
std::vector<ProtocolWaiver> KnownRemains();

// What the oracle finds, without what these waivers cover.
std::vector<std::string> Without(const std::vector<ProtocolWaiver>& waivers, std::vector<std::string> findings);

}  // namespace lab
