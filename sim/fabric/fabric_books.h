// The fabric's own accounts: buffers, reservations and allocations by adapter, and what does not add up among them.
//
// Truth for oracles: read from the registers that the hardware acts on, never from what a manager believes.
#pragma once
#include <string>
#include <vector>

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

// What the registers contradict among themselves, one line each; empty for a domain in order.
//   "dangling entry at D1:1 hop 9"
//   "lost: PCIe: H1:3 8 -> H1:1 9 lost: no valid entry at D1:1 9"
//   "one way only: PCIe: H1:3 8 -> H1:1 9 | D1:1 9 -> D1:9 8"
//   "two entries lead to H1:1 hop 9"
//   "packets pending at H1:3 hop 8"
//   "H1:3 is switched on without a path"
//   "H1:5 carries video and is not reserved"
//   "H1:5 is reserved without video"
//   "H1:4 has an open bandwidth request"
//   "D1:2 has 12 buffers set aside, 0 after reset"
std::vector<std::string> CheckBooks(const Fabric& fabric);

}  // namespace sim
