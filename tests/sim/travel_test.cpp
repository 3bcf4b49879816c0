// Goal: control packets go where their route says, along cables that are up, and errors say where they stopped.
// Method: small trees, configured by hand from the top.
#include <gtest/gtest.h>

#include "tests/sim/rig.h"

namespace sim::test {
namespace {

// H1 - D1 (upstream 3) - D2 - T3: routes 1, 0x101, 0x30101.
constexpr const char* kChain = "H1:1 D1:3,D1:1 D2:1,D2:3 T3:1";

struct Chain : Rig {
  Chain() : Rig("H1") { Manage(kChain); }
};

// The same with nothing but the host configured.
struct FreshChain : Rig {
  FreshChain() : Rig("H1") {
    Build(kChain);
    StartControlRing();
    Configure(0, 7);
  }
};

TEST(Travel, ErrorsNameTheRouterAndAdapterWhereTheWayEnds) {
  struct Case {
    std::uint64_t route;
    const char* answer;
  };
  const Case cases[] = {
      {0x03, "ERROR route=0 adapter=3 code=4 (no such adapter)"},
      {0x09, "ERROR route=0 adapter=9 code=4 (no such adapter)"},
      {0x301, "ERROR route=1 adapter=3 code=0 (not connected)"},
      {0x501, "ERROR route=1 adapter=5 code=0 (not connected)"},
      {0x901, "ERROR route=1 adapter=9 code=4 (no such adapter)"},
      {0x50101, "ERROR route=101 adapter=5 code=0 (not connected)"},
      {0x0130101, "ERROR route=101 adapter=19 code=4 (no such adapter)"},
      {0x0003000000000101, "ERROR route=101 adapter=0 code=4 (no such adapter)"},
  };
  Chain rig;
  for (const Case& c : cases) {
    EXPECT_EQ(rig.Read(c.route, 0, Space::Router, 0), c.answer) << std::hex << c.route;
  }
  EXPECT_EQ(rig.Errors(), "");
}

TEST(Travel, LockedPortsAndRoutersThatAreNotEnumeratedForwardNothing) {
  FreshChain rig;
  EXPECT_EQ(rig.Read(1, 0, Space::Router, 0), "ERROR route=0 adapter=1 code=14 (adapter locked)");
  rig.Unlock(0, 1);
  EXPECT_EQ(rig.Read(0x101, 0, Space::Router, 0), "ERROR route=1 adapter=0 code=8 (router not enumerated)");
  EXPECT_EQ(rig.Read(1, 0, Space::Router, 0),
            "READ route=1 adapter=3 space=router offset=0x000 length=1 seq=0 data=0b268086");
  EXPECT_EQ(rig.Read(1, 1, Space::Adapter, 0), "ERROR route=1 adapter=1 code=8 (router not enumerated)");
}

TEST(Travel, AThunderboltDeviceLearnsItsUpstreamAdapterOnlyWhenConfigured) {
  FreshChain rig;
  rig.Unlock(0, 1);
  rig.Configure(1, 3);
  rig.Unlock(1, 1);
  rig.Configure(0x101, 1);
  rig.Unlock(0x101, 3);
  EXPECT_EQ(rig.Read(0x30101, 0, Space::Router, 1),
            "READ route=30101 adapter=1 space=router offset=0x001 length=1 seq=0 data=06034005");
  rig.Configure(0x30101, 1);
  EXPECT_EQ(rig.Value(0x30101, 0, Space::Router, 1) >> 8 & 0x3F, 1u);
}

TEST(Travel, PullingARouterResetsItAndEverythingBehindIt) {
  Chain rig;
  rig.fabric.Unplug("D1");
  EXPECT_EQ(rig.Value(0, 1, Space::Adapter, 4), 0x8B300000u) << "the near side is locked again";
  EXPECT_EQ(rig.Read(1, 0, Space::Router, 0), "ERROR route=0 adapter=1 code=0 (not connected)");
  for (const char* name : {"D1", "D2", "T3"}) {
    EXPECT_FALSE(rig.fabric.Find(name)->configured()) << name;
    EXPECT_EQ(rig.fabric.Find(name)->upstreamAdapter(), 0u) << name;
  }
  rig.fabric.Plug("H1:1", "D1:5");
  rig.Run(200 * kMs);
  rig.Unlock(0, 1);
  EXPECT_EQ(rig.Read(1, 0, Space::Router, 1).substr(0, 20), "READ route=1 adapter")
      << "another port faces the host now";
  EXPECT_EQ(rig.Value(1, 0, Space::Router, 1) >> 8 & 0x3F, 5u);
  EXPECT_EQ(rig.fabric.Find("D2")->place().route, 0x101u);
}

TEST(Travel, AManagerIsNotBlamedForARouterThatWasSwappedUnderItsHands) {
  Rig rig("H1");
  rig.Manage("H1:1 D1:1");
  rig.Value(1, 0, Space::Router, 0);
  rig.fabric.Unplug("D1");
  rig.fabric.AddRouter("DOCK", "dock");
  rig.fabric.Connect("H1:1", "dock:3");
  rig.Unlock(0, 1);
  rig.Write(1, 0, Space::Router, 1, {0x0314C128, 1, 0x80000000, 0x2000100A});
  EXPECT_TRUE(rig.fabric.Find("dock")->configured());
  EXPECT_EQ(rig.Errors(), "");
}

TEST(Travel, AnotherHostAnswersThatItIsNotEnumerated) {
  Rig rig("H1");
  rig.Manage("H1:1 H3:1");
  rig.Unlock(0, 1);
  EXPECT_EQ(rig.Read(1, 0, Space::Router, 0), "ERROR route=1 adapter=1 code=8 (router not enumerated)");
  EXPECT_EQ(rig.Errors(), "");
}

TEST(Travel, InterDomainPacketsReachTheOtherHostWithTheWayBack) {
  Rig rig("H1");
  rig.Manage("H1:1 D1:1,D1:5 H3:3");
  rig.Unlock(1, 5);
  Router& other = *rig.fabric.Find("H3");
  other.space().SetBits(3, 0x80000000, 0x80000000);
  rig.Send(Pdf::InterDomainRequest, 0x501, 0x12345678, {1, 2});
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.fabric.wire("H3").log().TakeText(), "<- XDOMAIN-REQUEST route=3 dwords=5 no-buffer\n");
  const WireEntry& seen = rig.fabric.wire("H3").log().entries().back();
  const auto decoded = DecodePacket(Pdf::InterDomainRequest, seen.bytes);
  EXPECT_TRUE(decoded->crcGood) << "with a CRC of its new header";
  EXPECT_EQ(decoded->packet.Word(0), 0x80000000u);
}

TEST(HandOver, AMalformedRequestIsBlamed) {
  Rig rig("H1");
  rig.StartControlRing();
  rig.SendBytes(11, EncodePacket({Pdf::FirmwareHandover, {0x03000000}}));
  rig.Run(5 * kMs);
  EXPECT_EQ(rig.Errors(), "H1 (route 0): malformed request to hand over the domain [hand-over-request]\n");
}

TEST(Travel, ASilentRouterIsAFault) {
  Chain rig;
  rig.simulation.faults().FailNth("router.silent", 1);
  EXPECT_EQ(rig.Read(0, 0, Space::Router, 0), "");
  EXPECT_NE(rig.Read(0, 0, Space::Router, 0), "");
}

TEST(Topology, WhatCannotBeIsRefusedInOneLine) {
  Rig rig("H1");
  rig.fabric.AddRouter("D1", "hub");
  rig.fabric.Connect("H1:1", "hub:1");
  struct Case {
    std::function<void()> act;
    const char* text;
  };
  const Case cases[] = {
      {[&] { rig.fabric.AddRouter("D7", "x"); }, "unknown model \"D7\""},
      {[&] { rig.fabric.AddRouter("D1", "hub"); }, "two routers are called \"hub\""},
      {[&] { rig.fabric.AddRouter("D1", "a:b"); }, "bad router name \"a:b\""},
      {[&] { rig.fabric.Connect("H1:1", "hub:3"); }, "\"H1:1\" has a cable already"},
      {[&] { rig.fabric.Connect("hub:3", "hub:5"); }, "cable from \"hub:3\" to its own router"},
      {[&] { rig.fabric.Connect("hub:4", "hub:5"); }, "\"hub:4\" is the second lane of its port"},
      {[&] { rig.fabric.Connect("hub:9", "hub:5"); }, "\"hub:9\" is no lane adapter"},
      {[&] { rig.fabric.Connect("hub:20", "hub:5"); }, "no adapter is called \"hub:20\""},
      {[&] { rig.fabric.Connect("hub:x", "hub:5"); }, "no adapter is called \"hub:x\""},
      {[&] { rig.fabric.Unplug("hub:3"); }, "no cable at \"hub:3\""},
      {[&] { rig.fabric.Unplug("dock"); }, "no router or adapter is called \"dock\""},
      {[&] { rig.fabric.PlugDisplay("hub:9"); }, "\"hub:9\" is no DP OUT adapter"},
      {[&] {
         rig.fabric.PlugDisplay("hub:13", {.most = {1000, 4}});
       },
       "no display has such a link: \"hub:13\""},
      {[&] { rig.fabric.UnplugDisplay("hub:13"); }, "no display at \"hub:13\""},
      {[&] { rig.fabric.wire("hub"); }, "no host is called \"hub\""},
  };
  for (const Case& c : cases) {
    try {
      c.act();
      ADD_FAILURE() << c.text;
    } catch (const TopologyError& error) {
      EXPECT_STREQ(error.what(), c.text);
    }
  }
}

}  // namespace
}  // namespace sim::test
