// The fabric's own accounts: buffers, reservations and allocations by adapter, and what does not add up among them.
//
// Truth for oracles: read from the registers that the hardware acts on, never from what a manager believes.
#pragma once
#include <string>
#include <vector>

namespace sim {

class Adapter;
class Fabric;
class Router;

struct BufferBook {
  std::string adapter;         // "D1:1"
  unsigned total = 0;          // ADP_CS_4 bits 29:20
  unsigned setAside = 0;       // ADP_CS_4 bits 9:0: not flow controlled
  unsigned setAsideReset = 0;  // the same after reset
  unsigned allocated = 0;      // ADP_CS_5 bits 28:22
  unsigned pathCredits = 0;    // initial credits of its valid flow-controlled entries, the control entry left out
  unsigned openEntries = 0;    // its valid entries without flow control, the control entry left out
};

// Lane adapters, and every adapter whose set-aside buffers are not those after reset; routers in the order of their
// making.
std::vector<BufferBook> BufferBooks(const Fabric& fabric);
// DP IN adapters that are reserved with their router: "H1:5". Of Thunderbolt 3 routers, sinks in state 1.
std::vector<std::string> DpReservations(const Fabric& fabric);

// What the registers contradict among themselves, one line each, empty for a domain in order:
//   "dangling entry at D1:1 hop 9"
//   "two entries lead to H1:1 hop 9"
//   "packets pending at H1:3 hop 8"
//   "H1:3 is switched on without a path" / "D1:9 has a path and is switched off"
//   "H1:5 carries video and is not reserved" / "H1:5 is reserved without video"
//   "H1:4 has an open bandwidth request"
//   "12 buffers set aside at D1:2 without use" / "no buffers set aside at D1:2 hop 9"
//   "path one way only: PCIe: H1:3 8 -> ..."
std::vector<std::string> CheckBooks(const Fabric& fabric);

}  // namespace sim
