// Goal: routers lend each DP IN adapter once, refuse as told, and keep what is lent as long as they keep anything.
// Method: the three router operations over the wire; sinks of a Thunderbolt 3 host.
#include <gtest/gtest.h>

#include "sim/fabric/fabric_books.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

constexpr unsigned kQuery = 16, kAllocate = 17, kRelease = 18;

struct ResourceBench : Rig {
  ResourceBench() : Rig("H1") { Manage(); }
  RouterOperations& operations() { return fabric.Find("H1")->operations(); }
  // Bits 30:24 of the control dword: not supported 0x40, else the result.
  unsigned Operate(unsigned opcode, unsigned adapter) {
    Write(0, 0, Space::Router, 25, {adapter});
    Write(0, 0, Space::Router, 26, {0x80000000 | opcode});
    Run(5 * kMs);
    const std::uint32_t word = Value(0, 0, Space::Router, 26);
    EXPECT_EQ(word & 0x8000FFFF, opcode);
    return word >> 24;
  }
};

TEST(DisplayResources, EachAdapterIsLentOnce) {
  struct Step {
    unsigned opcode, adapter, result;
  };
  const Step steps[] = {{kQuery, 5, 0},    {kAllocate, 5, 0}, {kQuery, 5, 1},   {kAllocate, 5, 1}, {kQuery, 6, 0},
                        {kAllocate, 6, 0}, {kRelease, 5, 0},  {kRelease, 5, 0}, {kQuery, 5, 0},    {kQuery, 6, 1}};
  ResourceBench rig;
  for (const Step& step : steps) {
    EXPECT_EQ(rig.Operate(step.opcode, step.adapter), step.result) << step.opcode << " " << step.adapter;
  }
  EXPECT_EQ(DpReservations(rig.fabric), std::vector<std::string>{"H1:6"});
  EXPECT_EQ(rig.Errors(), "");
  EXPECT_EQ(rig.Operate(kAllocate, 3), 1u);
  EXPECT_EQ(rig.Errors(), "H1 (route 0): display resource of adapter 3, which is no DP IN [display-resource]\n");
}

TEST(DisplayResources, ARouterDrivesAsManyDisplaysAsItsModelSays) {
  RouterModel model = *FindModel("H1");
  for (unsigned sources : {0u, 1u}) {
    model.dpInResources = sources;
    platform::Simulation simulation{Options(0)};
    Fabric fabric(simulation);
    Router& router = fabric.AddRouter(model, "X");
    auto operate = [&](unsigned opcode, unsigned adapter) {
      const std::uint32_t words[] = {adapter, 0x80000000 | opcode};
      EXPECT_TRUE(router.space().Write(25, words, kNoComplaint));
      simulation.RunFor(5 * kMs);
      return router.space().Get(26) >> 24;
    };
    EXPECT_EQ(operate(kAllocate, 5), sources == 0 ? 0x40u : 0u);
    EXPECT_EQ(operate(kAllocate, 6), sources == 0 ? 0x40u : 1u);
  }
}

TEST(DisplayResources, ThunderboltHostsKeepTwoSinks) {
  Rig rig("HT");
  rig.fabric.Find("HT")->services().SetSinkState(1, 3);
  rig.Manage();
  EXPECT_EQ(rig.Value(0, 0, Space::Router, 0x20 + 16), 0x30u);
  rig.Write(0, 0, Space::Router, 0x20 + 16, {0x31});
  EXPECT_EQ(DpReservations(rig.fabric), std::vector<std::string>{"HT:8"});
  rig.Write(0, 0, Space::Router, 0x20 + 16, {0x10});
  EXPECT_EQ(DpReservations(rig.fabric), std::vector<std::string>{"HT:11"});
  EXPECT_EQ(rig.Errors(), "");
  rig.Write(0, 0, Space::Router, 0x20 + 16, {0x20});
  EXPECT_EQ(rig.Errors(),
            "HT (route 0): display sink 1 put into state 0x00000002, which is not the manager's [sink-state]\n");
}

}  // namespace
}  // namespace sim::test
