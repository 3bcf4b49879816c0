// The fabric's own accounts: buffers, reservations and allocations by adapter, and what does not add up among them.
//
// Truth for oracles: read from the registers that the hardware acts on, never from what a manager believes.
#pragma once
#include <string>
#include <vector>

#include "sim/rules/findings.h"

namespace sim {

class Fabric;

struct BufferBook {
  std::string adapter;         // "D1:1"
  unsigned total = 0;          // ADP_CS_4 bits 29:20
  unsigned setAside = 0;       // ADP_CS_4 bits 9:0: for packets without flow control
  unsigned setAsideReset = 0;  // the same after reset
  unsigned allocated = 0;      // ADP_CS_5 bits 28:22
  unsigned pathCredits = 0;    // initial credits of its valid flow-controlled entries, the control entry left out
  unsigned openEntries = 0;    // its valid entries without flow control
};

// Lane adapters, and every adapter that has valid entries or other set-aside buffers than after reset; routers in the
// order of their making.
std::vector<BufferBook> BufferBooks(const Fabric& fabric);

// DP IN adapters that are reserved with their router: "H1:5". Of Thunderbolt 3 routers those whose sink is in state 1.
std::vector<std::string> DpReservations(const Fabric& fabric);

// X(enumerator, "name", "message"); the names in braces are fields of FindingArguments.
#define SIM_CONTRADICTIONS(X)                                                              \
  X(DanglingEntry, "dangling-entry", "dangling entry at {adapter} hop {hop}")              \
  X(PathLost, "path-lost", "lost: {path} lost: {why}")                                     \
  X(PathOneWay, "path-one-way", "one way only: {path}")                                    \
  X(HopShared, "hop-shared", "{found} entries lead to {adapter} hop {hop}")                \
  X(PacketsPending, "packets-pending", "packets pending at {adapter} hop {hop}")           \
  X(OnWithoutPath, "on-without-path", "{adapter} is switched on without a path")           \
  X(OpenRequest, "open-request", "{adapter} has an open bandwidth request")                \
  X(VideoUnreserved, "video-unreserved", "{adapter} carries video and is not reserved")    \
  X(ReservedWithoutVideo, "reserved-without-video", "{adapter} is reserved without video") \
  X(SetAsideBuffers, "set-aside-buffers", "{adapter} has {found} buffers set aside, {expected} after reset")

enum class Contradiction : unsigned {
#define X(enumerator, name, message) enumerator,
  SIM_CONTRADICTIONS(X)
#undef X
      Count
};

struct BookFinding {
  Contradiction rule = Contradiction::Count;
  FindingArguments arguments;
  std::string Text() const;  // "dangling entry at D1:1 hop 9 [dangling-entry]"
};

// What the registers contradict among themselves; empty for a domain in order.
std::vector<BookFinding> CheckBooks(const Fabric& fabric);

}  // namespace sim
