// Goal: whatever stands wrong between hardware and driver is named when the machine is quiet, and a good domain gives
// no finding. Method: a chain with PCIe and USB3 tunnels, and one thing at a time broken behind everybody's back.
#include "lab/oracle/oracle.h"

#include <gtest/gtest-spi.h>
#include <span>

#include "hostif/abort.h"
#include "include/router_record.h"
#include "include/tunnel_record.h"
#include "sim/registers/hop_entry.h"
#include "tests/support/world.h"

namespace tests {
namespace {

std::string Findings(World& world, const lab::OracleOptions& options = {}) {
  std::string text;
  for (const lab::Finding& finding : lab::OracleFindings(world.machine(), options)) text += finding.Text() + "\n";
  return text;
}

WorldOptions WithTunnels() {
  WorldOptions options;
  options.registry = {{"USB3Tunnel\\USB3TunnelSupported", 1}, {"PCIETunnel\\PCIETunnelSupported", 1}};
  return options;
}

void ClearValid(World& world, const std::string& adapter, unsigned hop) {
  sim::Adapter& at = *world.fabric().FindAdapter(adapter);
  sim::PathEntry entry = at.pathEntry(hop);
  entry.word0 &= ~sim::kPathValid;
  at.SetPathEntry(hop, entry);
}

void SwitchOff(World& world, const std::string& adapter) {
  sim::Adapter& at = *world.fabric().FindAdapter(adapter);
  at.space().SetBits(at.protocolCapability, 1u << 31, 0);
}

struct Fault {
  const char* what;
  std::function<void(World&)> plant;
  const char* findings;
};

const Fault kInTheFabric[] = {
    {"an entry is gone", [](World& world) { ClearValid(world, "D1:1", 9); },
     "host/H1: PCIe 0:3 -> 1:9: the fabric has no path PCIe Down 0:3 8 -> 0:1 9 | 1:1 9 -> 1:9 8 [path-missing]\n"
     "host/H1: no tunnel has the path PCIe: H1:3 8 -> H1:1 9, which ends: no valid entry at D1:1 9 "
     "[lost-path-unclaimed]\n"
     "lost: PCIe: H1:3 8 -> H1:1 9 lost: no valid entry at D1:1 9 [path-lost]\n"
     "one way only: PCIe: D1:9 8 -> D1:1 9 | H1:1 9 -> H1:3 8 [path-one-way]\n"},
    {"an entry that belongs to no path",
     [](World& world) {
       world.fabric().FindAdapter("D1:5")->SetPathEntry(8, {sim::kPathValid | 3 << 11 | 8, 0});
     },
     "dangling entry at D1:5 hop 8 [dangling-entry]\n"},
    {"an adapter is off", [](World& world) { SwitchOff(world, "D1:9"); },
     "lost: PCIe: H1:3 8 -> H1:1 9 | D1:1 9 -> D1:9 8 lost: D1:9 is switched off [path-lost]\n"
     "lost: PCIe: D1:9 8 -> D1:1 9 | H1:1 9 -> H1:3 8 lost: D1:9 is switched off [path-lost]\n"},
    {"buffers set aside for nothing", [](World& world) { world.fabric().FindAdapter("H1:1")->SetSetAsideBuffers(5); },
     "host/H1: H1:1 has 5 buffers set aside, its paths account for 0 [path-buffers]\n"
     "H1:1 has 5 buffers set aside, 0 after reset [set-aside-buffers]\n"},
    {"a reservation without video",
     [](World& world) { world.fabric().Find("H1")->operations().dpReservations() = {5}; },
     "H1:5 is reserved without video [reserved-without-video]\n"},
    {"another grant than the record's",
     [](World& world) {
       sim::Adapter& at = *world.fabric().FindAdapter("H1:4");
       at.space().SetBits(at.protocolCapability + 2, 0xFFF, 100);
     },
     "host/H1: USB3 0:4 -> 1:16: allocated 18000/18000 Mb/s, its adapter has 819/18006 [grant]\n"},
    {"a router that nobody told of",
     [](World& world) {
       world.fabric().AddRouter("D2", "late");
       world.fabric().Connect("D1:5", "late:1");
     },
     "host/H1: late at route 501 is not listed [router-missing]\n"},
};

USB4_TUNNEL& FirstTunnel(USB4_DOMAIN& domain) {
  return *ListView<USB4_TUNNEL, offsetof(USB4_TUNNEL, Link)>(domain.TunnelListHead).First();
}

const Fault kInTheDriver[] = {
    {"a hop ID that no path uses",
     [](World& world) {
       world.InDriver([](USB4_DOMAIN& domain) {
         const PathGuard paths(domain);
         domain.HostRouter.Peek()->Adapters[1].InputHops.Change().InUse[12] = 1;
       });
     },
     "host/H1: 0:1 has reserved input hop IDs [8 9 12], tunnels use [8 9] [hop-ids]\n"},
    {"a hop ID given back too early",
     [](World& world) {
       world.InDriver([](USB4_DOMAIN& domain) {
         const PathGuard paths(domain);
         domain.HostRouter.Peek()->Adapters[1].OutputHops.Change().InUse[9] = 0;
       });
     },
     "host/H1: 0:1 has reserved output hop IDs [8], tunnels use [8 9] [hop-ids]\n"},
    {"a counter that is off",
     [](World& world) { world.InDriver([](USB4_DOMAIN& domain) { domain.PcieTunnelCount.Store(2); }); },
     "host/H1: 2 PCIe tunnels counted, 1 listed [tunnel-count]\n"},
    {"a path that the driver takes for inactive",
     [](World& world) { world.InDriver([](USB4_DOMAIN& domain) { FirstTunnel(domain).Paths[1]->Active = 0; }); },
     "host/H1: no tunnel has the path USB3: D1:16 8 -> D1:1 8 | H1:1 8 -> H1:4 8 [path-unclaimed]\n"},
};

TEST(Oracle, NamesEachThingThatStandsWrong) {
  for (const auto& faults : {std::span<const Fault>(kInTheFabric), std::span<const Fault>(kInTheDriver)}) {
    for (const Fault& fault : faults) {
      SCOPED_TRACE(fault.what);
      World world("H1:1 - D1:1", WithTunnels());
      ASSERT_EQ(world.Start(), 0);
      world.Quiet();
      ASSERT_EQ(Findings(world), "");
      fault.plant(world);
      EXPECT_EQ(Findings(world), fault.findings);
      world.ExpectStopped();
    }
  }
}

TEST(Oracle, ARouterThatIsNotThereIsNotListed) {
  World world("H1:1 - D1:1");
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  world.fabric().Unplug("D1");
  EXPECT_EQ(Findings(world), "host/H1: router 1 is listed and not there [router-gone]\n");
}

TEST(Oracle, APeerIsListedAsLongAsItIsThere) {
  WorldOptions options;
  options.peers.push_back({.peer = sim::PeerThatIs("passive")});
  options.peers.back().peer.name = "friend";
  World world("H1", options);
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  world.fabric().Connect("H1:1", "friend:1");
  EXPECT_EQ(Findings(world), "host/H1: another host at H1:1, route 1, is not listed [peer-missing]\n");
  world.Unplug("H1:1");
  world.Quiet();
  world.Plug("H1:1 - friend:1");
  world.Quiet();
  EXPECT_EQ(Findings(world), "");
  world.fabric().Unplug("H1:1");
  EXPECT_EQ(Findings(world), "host/H1: peer 1 is listed and nothing is connected to 0:1 [peer-gone]\n");
}

TEST(Oracle, ARouterMayBeMissingWhereSomethingWasMeantToFail) {
  World world("H1:1 - D1:1");
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  world.fabric().AddRouter("D2", "late");
  world.fabric().Connect("D1:5", "late:1");
  EXPECT_EQ(Findings(world, {.complete = false}), "");
  EXPECT_NE(Findings(world), "");
  world.ExpectIncomplete();
}

// A fault that has struck excuses nothing by itself: a run that was healed, or whose accesses all went through in the
// end, must be as clean as one without faults.
TEST(Oracle, PassesOverTheRemainsOfAFaultOnlyWhereAsked) {
  World world("H1:1 - D1:1");
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  world.faults().FailFrom("pool.allocate", 1);
  EXPECT_TRUE(world.faults().Fires("pool.allocate"));
  world.faults().HealAll();
  world.fabric().FindAdapter("D1:5")->SetPathEntry(8, {sim::kPathValid | 3 << 11 | 8, 0});
  EXPECT_EQ(Findings(world), "dangling entry at D1:5 hop 8 [dangling-entry]\n");
  EXPECT_EQ(Findings(world, {.remains = true}), "");
}

TEST(Oracle, FailsARunOfAScenarioAndATest) {
  EXPECT_NONFATAL_FAILURE(
      {
        World world("H1:1 - D1:1");
        static_cast<void>(world.Start());
        world.Quiet();
        world.fabric().FindAdapter("D1:5")->SetPathEntry(8, {sim::kPathValid | 3 << 11 | 8, 0});
      },
      "oracle: dangling entry at D1:5 hop 8 [dangling-entry]");
}

TEST(Oracle, ADisplayBehindOneLaneIsConnectedToNothing) {
  for (const bool oneLane : {false, true}) {
    World world("H1", WithTunnels());
    world.fabric().AddRouter("D1", "D1");
    world.fabric().Connect("H1:1", "D1:1", {.lanes = oneLane ? 1u : 2u});
    world.fabric().PlugDisplay("D1:13");
    ASSERT_EQ(world.Start(), 0);
    world.Quiet();
    EXPECT_NE(world.Tunnels().find("DP 0:5 -> 1:13\n"), std::string::npos);
    EXPECT_EQ(world.Paths().find("H1:2 8 lost: H1:2 is not up\n") != std::string::npos, oneLane) << world.Paths();
    EXPECT_EQ(Findings(world), "");
  }
}

// Sleep keeps PCIe and USB3 programmed without a domain that could answer for them.
TEST(Oracle, LeavesADomainAloneThatSleeps) {
  World world("H1:1 - D1:1", WithTunnels());
  ASSERT_EQ(world.Start(), 0);
  world.Quiet();
  world.Sleep();
  EXPECT_EQ(Findings(world), "");
  world.Resume();
  world.Quiet();
  EXPECT_EQ(world.Tunnels(), "PCIe 0:3 -> 1:9\nUSB3 0:4 -> 1:16\n");
  // The grant of 18000 Mb/s that is read back wraps.
  EXPECT_EQ(world.machine().Domain().tunnels[1].allocated, (lab::BandwidthView{826, 826}));
  EXPECT_EQ(Findings(world), "");
}

}  // namespace
}  // namespace tests
