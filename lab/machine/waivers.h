// What the driver's required behaviour does although a rule forbids it: each entry is a line of
// docs/known-behaviour.md.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/simulation.h"
#include "sim/host/complaints.h"

namespace lab {

std::vector<platform::Waiver> KnownWaivers();

// What the hardware complains about rightly, and the driver does all the same once an access of its own has failed.
struct ComplaintWaiver {
  sim::Complaint rule;
  std::optional<sim::Space> space;     // the bound: only in this space,
  std::optional<std::uint32_t> dword;  // only at this dword of it,
  std::uint64_t most;                  // and so often at one object in one run
  std::string reason;
};

std::vector<ComplaintWaiver> KnownComplaintWaivers();

// Whether a fault that has struck in this run excuses the complaint.
bool Excused(const sim::ProtocolError& error);

}  // namespace lab
