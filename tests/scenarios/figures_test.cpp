// Goal: what enumeration costs, as figures that a change cannot move unseen. Method: counts control packets by route
// and splits the time from plug to listed into training, round trips and fixed waits. The figures are printed too.
#include <fmt/format.h>

#include <algorithm>

#include "sim/host/wire_packet.h"
#include "tests/support/tunnel_bench.h"
#include "topology/device_list.h"
#include "tunnel/pcie_tunnel.h"
#include "tunnel/tunnel.h"

namespace tests {
namespace {

struct Cost {
  std::map<std::uint64_t, unsigned> requests;  // by route
  unsigned total = 0;
  platform::Time inFlight = 0;  // between a request and its answer
};

// Of the control packets from entry `from` of the log on.
Cost CostSince(World& world, std::size_t from) {
  Cost cost;
  platform::Time asked = 0;
  const auto& entries = world.wire().log().entries();
  for (std::size_t i = from; i < entries.size(); ++i) {
    const sim::WireEntry& entry = entries[i];
    if (entry.pdf != 1 && entry.pdf != 2) continue;
    if (entry.up) {
      cost.inFlight += entry.when - asked;
      continue;
    }
    asked = entry.when;
    const auto decoded = sim::DecodePacket(static_cast<sim::Pdf>(entry.pdf), entry.bytes);
    if (!decoded) continue;
    ++cost.requests[decoded->packet.Route()];
    ++cost.total;
  }
  return cost;
}

bool Listed(World& world, std::uint64_t route) {
  return world.InDriver([&](USB4_DOMAIN& domain) { return KivUsb4DevListFindSwitch(&domain, route) != nullptr; });
}

double Ms(platform::Time time) {
  return static_cast<double>(time) / platform::kMillisecond;
}

TEST(Figures, FromPlugToListed) {
  World world("H1");
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  const std::size_t from = world.wire().log().entries().size();
  const platform::Time plugged = world.simulation().Now();
  world.Plug("H1:1 - D1:1");
  while (!Listed(world, 1) && world.simulation().Now() < plugged + 10 * platform::kSecond) {
    world.Pass(platform::kMillisecond);
  }
  ASSERT_TRUE(Listed(world, 1));
  const platform::Time whole = world.simulation().Now() - plugged;
  const platform::Time training = world.wire().log().entries()[from].when - plugged;
  const Cost cost = CostSince(world, from);
  const platform::Time waits = whole - training - cost.inFlight;
  fmt::print(
      "  D1 on H1, plug to listed: {:.1f} ms = {:.1f} ms until the link reports itself + {:.1f} ms in {} round "
      "trips + {:.1f} ms of waits\n",
      Ms(whole), Ms(training), Ms(cost.inFlight), cost.total, Ms(waits));
  EXPECT_GT(cost.inFlight, 0);
  EXPECT_LT(whole, 600 * platform::kMillisecond) << "docks drop their link unless they are enumerated by then";
  EXPECT_GT(waits, 4 * cost.inFlight) << "round trips are not what takes the time";
}

// A chain or a bush of the same hub: the packets to a router do not depend on how many others there are.
TEST(Figures, EveryHubCostsTheSame) {
  std::map<unsigned, unsigned> perHub;
  for (unsigned hubs : {1u, 4u, 13u, 59u}) {
    World world("H1");
    for (unsigned i = 0; i < hubs; ++i) world.fabric().AddRouter("D1", "h" + std::to_string(i));
    for (unsigned i = 1; i < hubs; ++i) {
      world.fabric().Connect(fmt::format("h{}:{}", (i - 1) / 3, 3 + 2 * ((i - 1) % 3)), fmt::format("h{}:1", i));
    }
    world.fabric().Connect("H1:1", "h0:1");
    ASSERT_EQ(world.Start(), 0);
    world.Quiet(120 * platform::kSecond);
    Cost cost = CostSince(world, 0);
    const unsigned host = cost.requests[0];
    cost.requests.erase(0);
    ASSERT_EQ(cost.requests.size(), hubs);
    const auto [least, most] = std::minmax_element(cost.requests.begin(), cost.requests.end(),
                                                   [](const auto& a, const auto& b) { return a.second < b.second; });
    fmt::print("  {} hubs: {} requests, {} to the host router, {} to {} to a hub, {:.0f} ms\n", hubs, cost.total, host,
               least->second, most->second, Ms(world.simulation().Now()));
    perHub[hubs] = cost.total / hubs;
    // A hub with hubs behind it pays for configuring and bonding its side of their links.
    EXPECT_LE(most->second, least->second + 100);
  }
  EXPECT_LE(perHub[59], perHub[1]) << "linear, or better";
}

// Over one to five links: an entry is one write to program; to take it out it is read, written, found pending once and
// looked at again. Whatever its length, a tunnel costs two writes to switch its adapters, on and off.
TEST(Figures, ATunnelCostsTheSameForEachLink) {
  const struct {
    const char* end;
    unsigned build, tearDown;
  } kRows[] = {{"a:9", 6, 18}, {"b:9", 8, 26}, {"c:9", 10, 34}, {"d:9", 12, 42}, {"e:9", 14, 50}};
  TunnelBench bench("H1:1 - a=D1:1, a:3 - b=D1:1, b:3 - c=D1:1, c:3 - d=D1:1, d:3 - e=D1:1");
  bench.StartQuietly();
  unsigned links = 0;
  for (const auto& row : kRows) {
    Cost built, gone;
    platform::Time times[3] = {};
    bench.InRun([&](USB4_DOMAIN& domain) {
      const auto step = [&](platform::Time& at, Cost& cost, auto action) {
        const std::size_t from = bench.wire().log().entries().size();
        const platform::Time begin = bench.simulation().Now();
        action();
        cost = CostSince(bench, from);
        at = bench.simulation().Now() - begin;
      };
      USB4_TUNNEL* tunnel = KivUsb4TunnelAllocPcie(&domain, bench.Ends(domain, "H1:3", row.end));
      ASSERT_NE(tunnel, nullptr);
      step(times[0], built, [&] { EXPECT_EQ(KivUsb4TunnelActivate(tunnel), 0); });
      step(times[1], gone, [&] { KivUsb4TunnelDeactivate(tunnel); });
      KivUsb4TunnelFree(tunnel);
    });
    fmt::print("  PCIe over {} links: {} requests and {:.2f} ms to build, {} and {:.2f} ms to take down\n", ++links,
               built.total, Ms(times[0]), gone.total, Ms(times[1]));
    EXPECT_EQ(built.total, row.build) << row.end;
    EXPECT_EQ(gone.total, row.tearDown) << row.end;
  }
}

}  // namespace
}  // namespace tests
