// Goal: a plug event is reported until the manager acknowledges exactly that event. Method: displays and cables that
// come and go on a bench without a manager, times read off the wire log.
#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

struct PlugBench : Rig {
  explicit PlugBench(std::uint64_t seed = 0) : Rig("H3", seed) {
    Manage();
    Run(100 * kMs);
    for (unsigned adapter : {13u, 14u, 16u}) Acknowledge(0, adapter, false);
    Wire();
  }
  // Milliseconds at which `text` stands in the log since the last call.
  std::vector<platform::Time> Times(const std::string& text, platform::Time run) {
    const std::size_t before = fabric.wire(hostName).log().entries().size();
    const platform::Time start = simulation.Now();
    Run(run);
    std::vector<platform::Time> times;
    const auto& entries = fabric.wire(hostName).log().entries();
    for (std::size_t i = before; i < entries.size(); ++i) {
      if (entries[i].text.rfind(text, 0) == 0) times.push_back((entries[i].when - start) / kMs);
    }
    return times;
  }
};

using Times = std::vector<platform::Time>;

TEST(Notifications, RepeatEveryTimeOutUntilAcknowledged) {
  PlugBench rig;
  rig.fabric.PlugDisplay("H3:11");
  EXPECT_EQ(rig.Times("PLUG route=0 adapter=11", 35 * kMs), (Times{10, 20, 30})) << "and one at once";
  rig.Acknowledge(0, 12, false);
  rig.Acknowledge(0, 11, true);
  EXPECT_FALSE(rig.Times("PLUG route=0 adapter=11", 35 * kMs).empty()) << "neither adapter nor plug bit may differ";
  rig.Acknowledge(0, 11, false);
  EXPECT_EQ(rig.Times("PLUG", 100 * kMs), Times{});
  EXPECT_EQ(rig.Errors(), "") << "a spare acknowledgement is ignored";
}

// A manager that was busy for long has many to send, and reads behind them.
TEST(Notifications, AcknowledgementsTakeNoTurn) {
  PlugBench rig;
  for (unsigned i = 0; i < 8; ++i) rig.Send(Pdf::Notification, 0, 0x80000B07);
  rig.Send(Pdf::Read, 0, 0x04002000);
  rig.Run(kMs / 2);
  EXPECT_NE(rig.Wire().find("<- READ route=0"), std::string::npos) << "before eight reads would be answered";
}

TEST(Notifications, ANewerStateReplacesTheOlder) {
  PlugBench rig;
  rig.fabric.PlugDisplay("H3:11");
  rig.Run(5 * kMs);
  rig.fabric.UnplugDisplay("H3:11");
  EXPECT_EQ(rig.Times("PLUG", 25 * kMs), Times{});
  EXPECT_EQ(rig.Times("UNPLUG route=0 adapter=11", 30 * kMs).size(), 3u);
  rig.Acknowledge(0, 11, false);
  EXPECT_FALSE(rig.Times("UNPLUG", 25 * kMs).empty()) << "that acknowledges the plug, which nobody reports any more";
  rig.Acknowledge(0, 11, true);
  EXPECT_EQ(rig.Times("UNPLUG", 50 * kMs), Times{});
  EXPECT_TRUE(rig.fabric.Quiet());
}

TEST(Notifications, TheTimeOutIsTheManagersChoiceAndZeroMeansOnce) {
  PlugBench rig;
  rig.Write(0, 0, Space::Router, 4, {0x400010FF});
  rig.fabric.PlugDisplay("H3:11");
  EXPECT_EQ(rig.Times("PLUG", 600 * kMs), (Times{255, 510}));
  rig.Acknowledge(0, 11, false);
  rig.Write(0, 0, Space::Router, 4, {0x40001000});
  rig.Wire();
  rig.fabric.PlugDisplay("H3:12");
  rig.Run(500 * kMs);
  EXPECT_EQ(rig.Wire(), "<- PLUG route=0 adapter=12\n");
  EXPECT_TRUE(rig.fabric.Quiet()) << "nobody waits for an acknowledgement";
}

TEST(Notifications, MalformedAcknowledgementsAreBlamed) {
  for (std::uint32_t word : {0x80000B06u, 0x00000B07u, 0x40000B07u, 0x80004B07u, 0xA0000B07u}) {
    PlugBench rig;
    rig.fabric.PlugDisplay("H3:11");
    rig.Send(Pdf::Notification, 0, word);
    rig.Run(1 * kMs);
    char text[96];
    std::snprintf(text, sizeof text, "H3 (route 0): malformed acknowledgement 0x%08x [acknowledgement]\n", word);
    EXPECT_EQ(rig.Errors(), text);
    EXPECT_FALSE(rig.fabric.Quiet());
  }
}

TEST(Notifications, AdaptersThatTheDromDisablesReportAtStartAllTheSame) {
  Rig rig("H3");
  rig.StartControlRing();
  rig.Run(100 * kMs);
  EXPECT_EQ(rig.Wire(), "") << "not before the router is enumerated";
  rig.Configure(0, 15);
  const platform::Time configured = rig.simulation.Now();
  rig.Run(20 * kMs);
  std::string adapters;
  for (const WireEntry& entry : rig.fabric.wire("H3").log().entries()) {
    if (entry.pdf != 5) continue;
    if (entry.when < configured + 13 * kMs) adapters += entry.text + "; ";
  }
  EXPECT_EQ(adapters, "PLUG route=0 adapter=13; PLUG route=0 adapter=14; PLUG route=0 adapter=16; ");
}

TEST(Notifications, LanesKeepQuietUntilTheManagerHasReadThem) {
  Rig rig("H1");
  rig.Manage();
  rig.fabric.AddRouter("D1", "D1");
  rig.fabric.Plug("H1:1", "D1:1");
  rig.Run(100 * kMs);
  EXPECT_EQ(rig.Wire().find("PLUG"), std::string::npos);
  rig.Write(0, 1, Space::Adapter, 5, {rig.Value(0, 1, Space::Adapter, 5) & 0x7FFFFFFF});
  rig.fabric.DropLink("D1", 10 * kMs);
  rig.Run(5 * kMs);
  EXPECT_NE(rig.Wire().find("<- UNPLUG route=0 adapter=1\n"), std::string::npos);
  rig.Run(100 * kMs);
  EXPECT_NE(rig.Wire().find("<- PLUG route=0 adapter=1\n"), std::string::npos) << "the newer state";
}

TEST(Notifications, ThunderboltRoutersReportOnlyWhileTheirPlugEventsAreOn) {
  Rig rig("H1");
  rig.Manage("H1:1 T1:1");
  rig.fabric.AddRouter("T3", "T3");
  rig.fabric.Plug("T1:3", "T3:1");
  rig.Run(100 * kMs);
  EXPECT_EQ(rig.Wire().find("PLUG"), std::string::npos);
  rig.Write(1, 0, Space::Router, 6, {0x00000004});
  rig.fabric.Unplug("T3");
  rig.Run(5 * kMs);
  EXPECT_NE(rig.Wire().find("<- UNPLUG route=1 adapter=3\n"), std::string::npos);
  EXPECT_EQ(rig.Errors(), "");
}

}  // namespace
}  // namespace sim::test
