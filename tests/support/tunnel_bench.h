// A wired world with tunnels: which kinds the driver builds, what the hardware carries, what the driver holds for it.
#pragma once
#include <functional>
#include <string>

#include "include/tunnel_record.h"
#include "tests/support/bench.h"

namespace tests {

// What stands in the registry: which tunnels the driver builds by itself, and whether it clears up behind firmware.
struct TunnelPolicy {
  bool usb3 = false;
  bool pcie = false;
  bool cleanUp = false;
};

inline constexpr TunnelPolicy kBoth{.usb3 = true, .pcie = true};
inline constexpr sim::CableOptions kTrained = {2, 0, true};

class TunnelBench : public Bench {
 public:
  explicit TunnelBench(const std::string& topology, TunnelPolicy policy = {}, sim::CableOptions cable = kTrained);

  // Before the start: one cable more, to a router named like its model, which is added unless it is there.
  using World::Wire;
  void Wire(const std::string& first, const std::string& second, sim::CableOptions cable = kTrained);

  // `look` holds the run lock and the path lock and keeps the device awake: it may build, switch and end tunnels.
  void InRun(const std::function<void(USB4_DOMAIN& domain)>& look);
  // The driver's record of "D1:9"; the test fails when there is none.
  USB4_PORT* Port(USB4_DOMAIN& domain, const std::string& port);
  USB4_ENDS Ends(USB4_DOMAIN& domain, const std::string& source, const std::string& destination);
  std::string NameOf(const USB4_PORT* adapter);  // "D1:9", "none"

  std::string TextOf(const USB4_PATH* path);  // "H1:3 8 -> H1:1 9 | D1:1 9 -> D1:9 8"

  // Hop IDs that the driver has reserved: "H1:1 in 9 out 9 10\n", adapters without any left out.
  std::string HopIds();
  std::string Counts();  // "total 2, USB3 1, PCIe 1, DP 0"
  // Valid entries with all their words, set-aside buffers where they differ from those after reset, protocol adapters
  // that are on: "D1:9 8=800e0808/037ff301 on=2\n". Empty when nothing has been left behind.
  std::string Programmed();
  // What the hardware's own accounts hold against the domain, one a line; empty when nothing is amiss.
  std::string Books();
  // A path entry as two words: "8000c809 03000b03"; "invalid" when it is not valid.
  std::string Entry(const std::string& port, unsigned hop);

  // Every listed tunnel is torn down, one by one from the head of the list.
  void TearDownAll();
  // Writes to path entries and protocol adapters since the last call, in order: "D1:1 path 0x10", "H1:3 0x39".
  std::string TunnelWrites();

  // Replaces the n-th answer from now on by an error packet.
  void FailAnswer(std::uint64_t n);
};

}  // namespace tests
