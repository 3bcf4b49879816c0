// Goal: a host whose firmware has a connection manager of its own is asked for the domain before anything else, once,
// and starts whatever the firmware says. Method: hosts of both vendors, firmware that answers rightly, wrongly or not
// at all; the first packets on the wire and the time they take.
#include <gtest/gtest.h>

#include "tests/support/step_log.h"

namespace {

using platform::kMillisecond;
using sim::FirmwareAnswer;
using tests::Count;
using tests::World;
using tests::WorldOptions;

constexpr const char* kAsked = "-> HANDOVER command=3\n";
constexpr const char* kAskedAndAnswered = "-> HANDOVER command=3\n<- HANDOVER-ANSWER command=3\n";
constexpr const char* kAnsweredWrongly = "-> HANDOVER command=3\n<- HANDOVER-ANSWER command=4\n";
constexpr const char* kFirstRead = "-> READ route=0 adapter=0 space=router offset=0x000";

WORLD_TEST(FirmwareHandover, ComesBeforeAnythingElseAndNeverStopsTheStart) {
  const struct {
    const char* what;
    std::uint32_t identity;
    FirmwareAnswer answer;
    const char* first;
    platform::Time least, most;  // from the question on the wire, a little after it was sent, to the first read
  } cases[] = {
      {"rightly", 0x12348086, FirmwareAnswer::Right, kAskedAndAnswered, 0, 150 * kMillisecond},
      {"wrongly", 0x12348086, FirmwareAnswer::Wrong, kAnsweredWrongly, 199 * kMillisecond, 260 * kMillisecond},
      {"not at all", 0x12348086, FirmwareAnswer::None, kAsked, 199 * kMillisecond, 260 * kMillisecond},
      {"another vendor", 0x80861234, FirmwareAnswer::Right, "", 0, 150 * kMillisecond},
  };
  for (const auto& test : cases) {
    WorldOptions options;
    options.configure = [&](lab::ControllerConfig& controller) { controller.pciIdentity = test.identity; };
    platform::Time asked = -1, read = -1;  // outlive the world, whose removal is on the wire too
    World world("H1", options);
    world.fabric().firmware("H1").SetAnswer(test.answer);
    world.wire().log().Listen([&](const sim::WireEntry& entry) {
      if (entry.text.starts_with("HANDOVER") && asked < 0) asked = entry.when;
      if (entry.text.starts_with("READ") && read < 0) read = entry.when;
    });
    EXPECT_EQ(world.Start(), 0) << test.what;
    const std::string wire = world.Wire();
    EXPECT_TRUE(wire.starts_with(std::string(test.first) + kFirstRead)) << test.what << "\n" << wire.substr(0, 300);
    EXPECT_EQ(Count(wire, "-> HANDOVER"), test.first[0] == '\0' ? 0u : 1u) << test.what << ": one attempt";
    if (asked >= 0) {
      EXPECT_GE(read - asked, test.least) << test.what;
      EXPECT_LE(read - asked, test.most) << test.what;
    }
    EXPECT_TRUE(world.InDriver([](USB4_DOMAIN& domain) { return domain.Started.IsSet(); })) << test.what;
  }
}

// A resume is a start like the first: the firmware may have taken the domain back.
WORLD_TEST(FirmwareHandover, IsAskedForAgainAfterEachSleep) {
  WorldOptions options;
  options.configure = [](lab::ControllerConfig& controller) { controller.pciIdentity = 0x12348086; };
  World world("H1", options);
  world.fabric().firmware("H1").SetAnswer(FirmwareAnswer::Right);
  world.Start();
  world.Quiet();
  for (int round = 0; round < 2; ++round) {
    world.Sleep();
    world.Wire();
    world.Resume();
    EXPECT_TRUE(world.Wire().starts_with(std::string(kAskedAndAnswered).append(kFirstRead))) << round;
    world.Quiet();
  }
}

// Who the function is cannot be asked: the start goes on without a hand-over.
WORLD_TEST(FirmwareHandover, AHostThatCannotBeIdentifiedStartsAllTheSame) {
  WorldOptions options;
  options.configure = [](lab::ControllerConfig& controller) { controller.pciIdentity = 0x12348086; };
  World world("H1", options);
  world.faults().FailNth("IoBuildSynchronousFsdRequest", 1);
  EXPECT_EQ(world.Start(), 0);
  EXPECT_TRUE(world.faults().Fired());
  EXPECT_TRUE(world.Wire().starts_with(kFirstRead));
}

// Nor can it be asked without memory: the two allocations for the question come after the 27 of properties, domain,
// name and channel.
WORLD_TEST(FirmwareHandover, AHostThatCannotBeAskedStartsAllTheSame) {
  for (const unsigned allocation : {28u, 29u}) {
    SCOPED_TRACE(allocation);
    WorldOptions options;
    options.configure = [](lab::ControllerConfig& controller) { controller.pciIdentity = 0x12348086; };
    World world("H1", options);
    world.fabric().firmware("H1").SetAnswer(FirmwareAnswer::Right);
    world.faults().FailNth("pool.allocate", allocation);
    EXPECT_EQ(world.Start(), 0);
    EXPECT_TRUE(world.faults().Fired());
    EXPECT_TRUE(world.Wire().starts_with(kFirstRead));
  }
}

}  // namespace
