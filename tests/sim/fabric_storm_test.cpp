// Goal: whatever happens in whatever order, the fabric stays a fabric: places, lanes and registers agree with the
// cables. Method: random plugs, drops, sleeps and accesses from a seed, then a heal that pulls and plugs everything.
#include <gtest/gtest.h>

#include "sim/router/cable.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

struct Cable {
  const char* first;
  const char* second;
};
constexpr Cable kCables[] = {
    {"H3:1", "D1:1"}, {"H3:3", "D2:1"}, {"D1:3", "DOCK:1"}, {"D2:3", "T1:1"}, {"T1:3", "T3:1"}};

class Storm {
 public:
  explicit Storm(std::uint64_t seed) : rig("H3", seed), random(seed, "storm") {
    for (const char* name : {"D1", "D2", "DOCK", "T1", "T3"}) rig.fabric.AddRouter(name, name);
    rig.Manage();
  }

  void Step() {
    const Cable& cable = kCables[random.Below(std::size(kCables))];
    const bool plugged = rig.fabric.FindAdapter(cable.first)->link != nullptr;
    switch (random.Below(7)) {
      case 0:
      case 1:
        plugged ? rig.fabric.Unplug(cable.first) : rig.fabric.Plug(cable.first, cable.second);
        break;
      case 2:
        if (plugged) rig.fabric.DropLink(cable.second, random.Between(0, 50 * kMs));
        break;
      case 3:
        rig.host.SetPower(random.Below(3) == 0 ? platform::FunctionPower::Off : platform::FunctionPower::D3Hot);
        rig.Run(random.Between(0, 30 * kMs));
        rig.host.SetPower(platform::FunctionPower::D0);
        break;
      case 4:
        Toggle(cable.second, random.Below(2) == 0 ? 0x0000C01C : 0x0000803C);
        break;
      case 5:
        rig.fabric.wire("H3").AtPacket(rig.fabric.wire("H3").log().count() + 1 + random.Below(4), [this, cable] {
          if (rig.fabric.FindAdapter(cable.first)->link != nullptr) rig.fabric.Unplug(cable.first);
        });
        break;
      case 6:
        rig.Send(Pdf::Read, random.Below(2) == 0 ? 0 : 1, 0x0400A000);
        break;
    }
    rig.Run(random.Between(0, 40 * kMs));
  }

  void Heal() {
    for (const Cable& cable : kCables) {
      if (rig.fabric.FindAdapter(cable.first)->link != nullptr) rig.fabric.Unplug(cable.first);
    }
    for (const Cable& cable : kCables) Toggle(cable.first, 0x0000001C), Toggle(cable.second, 0x0000001C);
    rig.Run(100 * kMs);
    for (const Cable& cable : kCables) rig.fabric.Plug(cable.first, cable.second);
    rig.Run(500 * kMs);
  }

  Rig rig;
  platform::RandomStream random;

 private:
  // A manager's write of LANE_ADP_CS_1, past the wire: most of these routers are not enumerated.
  void Toggle(const char* port, std::uint32_t word) {
    Adapter& adapter = *rig.fabric.FindAdapter(port);
    adapter.space().Write(adapter.laneCapability + 1, std::span(&word, 1), kNoComplaint);
  }
};

void ExpectConsistent(Fabric& fabric) {
  for (const auto& link : fabric.links()) {
    for (unsigned end = 0; end < 2; ++end) {
      const Adapter& adapter = link->end(end);
      ASSERT_EQ(adapter.laneState() == LaneState::Up, link->LaneUp(adapter)) << adapter.Name();
      ASSERT_EQ(adapter.negotiatedWidth(), link->bonded() ? 2u : 1u) << adapter.Name();
    }
  }
  for (const auto& router : fabric.routers()) {
    if (router->isHost() || router->upstreamAdapter() == 0) continue;
    Adapter& upstream = *router->adapter(router->upstreamAdapter());
    ASSERT_NE(upstream.link, nullptr) << router->name();
    const Adapter* above = upstream.link->Opposite(upstream);
    const Place& parent = above->router().place();
    ASSERT_EQ(router->place().route, parent.route | static_cast<std::uint64_t>(above->number()) << (8 * parent.depth))
        << router->name();
    ASSERT_NE(above->router().upstreamAdapter(), 0u);
  }
}

TEST(FabricStorm, EndsWhereTheCablesSay) {
  for (std::uint64_t seed = 1; seed <= 150; ++seed) {
    Storm storm(seed);
    for (int step = 0; step < 40; ++step) {
      storm.Step();
      ASSERT_NO_FATAL_FAILURE(ExpectConsistent(storm.rig.fabric)) << "seed " << seed << " step " << step;
    }
    storm.Heal();
    ASSERT_NO_FATAL_FAILURE(ExpectConsistent(storm.rig.fabric)) << "seed " << seed;
    const Router& host = *storm.rig.fabric.Find("H3");
    const std::pair<std::uint64_t, const char*> expected[] = {
        {1, "D1"}, {3, "D2"}, {0x301, "DOCK"}, {0x303, "T1"}, {0x30303, "T3"}};
    for (auto [route, name] : expected) {
      ASSERT_EQ(storm.rig.fabric.AtRoute(host, route), storm.rig.fabric.Find(name)) << "seed " << seed << " " << name;
    }
    ASSERT_EQ(storm.rig.slot.badAccesses, 0u);
  }
}

}  // namespace
}  // namespace sim::test
