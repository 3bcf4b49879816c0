// Goal: a path is programmed from its far end and leaves nothing when that fails or ends, however long routers take to
// drain. Method: paths built by hand over two links; entries, buffers and counters of the hardware word by word.
#include <gtest/gtest.h>

#include "cm/tunnel_policy.h"
#include "tests/support/step_log.h"
#include "tests/support/tunnel_bench.h"
#include "topology/device_list.h"
#include "tunnel/path.h"
#include "tunnel/path_access.h"
#include "tunnel/path_activate.h"

namespace tests {
namespace {

// H1:3 8 -> H1:1 8 | D1:1 8 -> D1:3 8 | D2:1 8 -> D2:9 8
struct PathBench : TunnelBench {
  PathBench() : TunnelBench("H1:1 - D1:1, D1:3 - D2:1") { StartQuietly(); }
  // `body` gets the path, inactive, with no credits and no masks.
  void WithPath(const std::function<void(USB4_PATH& path)>& body) {
    InRun([&](USB4_DOMAIN& domain) {
      USB4_PATH* path = KivUsb4PathAlloc(&domain, {{Port(domain, "H1:3"), 8}, {Port(domain, "D2:9"), 8}, 0, "test"});
      ASSERT_NE(path, nullptr);
      Requests();
      body(*path);
      KivUsb4PathFree(path);
    });
  }
  std::string Buffers() {
    std::string text;
    for (const char* port : {"H1:3", "D1:1", "D2:1"}) {
      char line[40];
      std::snprintf(line, sizeof line, "%s %08x ", port, adapter(port).space().Get(4));
      text += line;
    }
    return text;
  }
};

WORLD_TEST(PathSwitching, WritesEveryFieldOfEachEntry) {
  const struct {
    const char* what;
    USB4_PATH values;
    const char* entries[3];
  } kCases[] = {
      // What is asked of the last hop's way in, or of the first one's way out, nobody looks at.
      {"masks of the wrong end",
       {.IngressSharedBuffering = 1,
        .EgressSharedBuffering = 4,
        .IngressFlowControl = 4,
        .EgressFlowControl = 1,
        .PriorityWeight = 2 << 3 | 5,
        .DropPackets = 1},
       {"800a0808 047ffd02", "80021808 00802d02", "80004808 087ffd02"}},
      {"inner masks",
       {.IngressSharedBuffering = 7, .EgressSharedBuffering = 7, .IngressFlowControl = 2, .EgressFlowControl = 2},
       {"800a0808 0e7ff000", "80021808 0f802000", "80004808 0d7ff000"}},
      {"ends only",
       {.IngressSharedBuffering = 6,
        .EgressSharedBuffering = 3,
        .IngressFlowControl = 1,
        .EgressFlowControl = 4,
        .PriorityWeight = 15 << 3 | 7},
       {"800a0808 097ff70f", "80021808 0c80270f", "80004808 067ff70f"}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    PathBench bench;
    for (const unsigned offset : {5u, 6u, 7u, 8u, 9u}) bench.adapter("D1:1").counters().Set(offset, 0xFFFF);
    bench.WithPath([&](USB4_PATH& path) {
      path.IngressSharedBuffering = test.values.IngressSharedBuffering;
      path.EgressSharedBuffering = test.values.EgressSharedBuffering;
      path.IngressFlowControl = test.values.IngressFlowControl;
      path.EgressFlowControl = test.values.EgressFlowControl;
      path.PriorityWeight = test.values.PriorityWeight;
      path.DropPackets = test.values.DropPackets;
      path.Hops[0].InitialCredits = 5;
      path.Hops[1].InitialCredits = 0x101;  // the low 8 bits count
      path.Hops[1].CounterIndex = 2;
      EXPECT_EQ(KivUsb4PathActivate(&path), 0);
      EXPECT_EQ(bench.TunnelWrites(), "D1:1 0x06\nD2:1 path 0x10\nD1:1 path 0x10\nH1:3 path 0x10\n");
      const char* ports[] = {"H1:3", "D1:1", "D2:1"};
      for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(bench.Entry(ports[i], 8), test.entries[i]) << ports[i];
      KivUsb4PathDeactivate(&path);
    });
    for (const unsigned offset : {5u, 9u}) EXPECT_EQ(bench.adapter("D1:1").counters().Get(offset), 0xFFFFu);
    for (const unsigned offset : {6u, 7u, 8u}) EXPECT_EQ(bench.adapter("D1:1").counters().Get(offset), 0u);
    EXPECT_EQ(bench.Programmed(), "");
    bench.TakeProtocolErrors();
    bench.Finish();
  }
}

WORLD_TEST(PathSwitching, GivesBackWhateverWasTakenWhenAnAccessFails) {
  PathBench bench;
  const std::string before = bench.Buffers();
  EXPECT_EQ(before, "H1:3 4b300000 D1:1 47800000 D2:1 54000000 ");
  bench.WithPath([&](USB4_PATH& path) {
    path.NfcCredits = 12;
    path.Hops[1].CounterIndex = 0;
    // One counter, buffers of two lanes, three entries.
    for (unsigned access = 1; access <= 6; ++access) {
      SCOPED_TRACE(access);
      bench.FailAnswer(access);
      EXPECT_EQ(KivUsb4PathActivate(&path), -1);
      EXPECT_EQ(path.Active, 0);
      EXPECT_EQ(bench.Programmed(), "");
      EXPECT_EQ(bench.Buffers(), before);
    }
    EXPECT_EQ(KivUsb4PathActivate(&path), 0);
    EXPECT_EQ(bench.Buffers(), "H1:3 4b300000 D1:1 4780000c D2:1 5400000c ") << "lanes only";
    bench.Requests();
    EXPECT_EQ(KivUsb4PathActivate(&path), -1) << "it is active";
    EXPECT_EQ(bench.Requests(), "");
    KivUsb4PathDeactivate(&path);
    EXPECT_EQ(bench.Buffers(), before);
    bench.Requests();
    KivUsb4PathDeactivate(&path);
    EXPECT_EQ(bench.Requests(), "") << "it is not active";
  });
  EXPECT_EQ(bench.Programmed(), "");
  EXPECT_EQ(bench.HopIds(), "");
}

WORLD_TEST(PathSwitching, AHopThatIsOffIsReadOnce) {
  PathBench bench;
  bench.InRun([&](USB4_DOMAIN& domain) {
    bench.Requests();
    EXPECT_EQ(__KivUsb4PathDeactivateHop(bench.Port(domain, "D1:1"), 8, true), 0);
  });
  EXPECT_EQ(bench.Requests(), "READ route=1 adapter=1 space=path offset=0x010 length=2 seq=0\n");
}

// The router draws how many of the driver's reads find packets under way: 0 to 20.
WORLD_TEST(PathSwitching, WaitsUntilTheRouterHasDrained) {
  for (const bool clear : {false, true}) {
    PathBench bench;
    bench.WithPath([&](USB4_PATH& path) {
      path.IngressFlowControl = path.EgressFlowControl = 7;
      path.ClearFlowControl = clear;
      EXPECT_EQ(KivUsb4PathActivate(&path), 0);
      bench.Requests();
      const platform::Time start = bench.simulation().Now();
      KivUsb4PathDeactivateHopsFrom(&path, 1);
      const std::string requests = bench.Requests();
      const std::size_t reads = Count(requests, "READ");
      EXPECT_EQ(Count(requests, "WRITE"), clear ? 4u : 2u);
      EXPECT_GE(reads, 4u) << "each of two hops is read before and after";
      EXPECT_LE(reads, 2 * 22u);
      const platform::Time waited = (bench.simulation().Now() - start) / (100 * platform::kMillisecond);
      EXPECT_GE(waited, static_cast<int>(reads) - 4) << "100 ms after each read that found packets";
      EXPECT_LE(waited, static_cast<int>(reads) + 1);
      EXPECT_EQ(bench.adapter("D1:1").paths().Get(17), clear ? 0x007FF000u : 0x037FF000u);
      EXPECT_EQ(bench.adapter("D1:1").paths().Get(16) >> 31, 0u);
      EXPECT_NE(bench.Entry("H1:3", 8), "invalid") << "hop 0 was not asked for";
      KivUsb4PathDeactivate(&path);
    });
    EXPECT_EQ(bench.Programmed(), "");
    bench.Finish();
  }
}

WORLD_TEST(PathSwitching, BuffersOfThunderboltRoutersChangeAtEveryAdapter) {
  TunnelBench bench("H1:1 - D1:1, D1:3 - T3:1");
  bench.ExpectLeftovers();
  bench.StartQuietly();
  bench.InRun([&](USB4_DOMAIN& domain) {
    const struct {
      const char* port;
      int credits;
      const char* requests;
    } kCases[] = {
        {"D1:3", 0, ""},
        {"D1:3", 12, "WRITE route=1 adapter=3 space=adapter offset=0x004 length=1 seq=0 data=c3c0000c\n"},
        {"D1:9", 12, ""},
        {"T3:10", 3, "WRITE route=301 adapter=10 space=adapter offset=0x004 length=1 seq=0 data=00800003\n"},
        {"T3:10", -3, "WRITE route=301 adapter=10 space=adapter offset=0x004 length=1 seq=0 data=00800000\n"},
        // Below nothing the count spills into the bits above, and comes back from there.
        {"D1:3", -13, "WRITE route=1 adapter=3 space=adapter offset=0x004 length=1 seq=0 data=ffffffff\n"},
        {"D1:3", 1, "WRITE route=1 adapter=3 space=adapter offset=0x004 length=1 seq=0 data=fffffc00\n"},
    };
    for (const auto& test : kCases) {
      bench.Requests();
      EXPECT_EQ(KivUsb4PortAddNfcCredits(bench.Port(domain, test.port), test.credits), 0);
      EXPECT_EQ(bench.Requests(), test.requests) << test.port << " " << test.credits;
    }
    bench.FailAnswer(1);
    EXPECT_EQ(KivUsb4PortAddNfcCredits(bench.Port(domain, "D1:5"), 1), -1);
    bench.Requests();
    USB4_SWITCH* gone = KivUsb4DomainGetSwitch(&domain, 1).Get();
    gone->Unplugged.Set(true);
    EXPECT_EQ(KivUsb4PortAddNfcCredits(bench.Port(domain, "D1:5"), 1), 0);
    EXPECT_EQ(bench.Requests(), "");
    gone->Unplugged.Set(false);
  });
  bench.ForgiveProtocolErrors("D1:3 (route 1)");
}

// The hub's hops of a tunnel never drain while it is taken down after the dock has gone: whatever happens next ends
// that wait. (A stop itself waits like that for every hop of a tunnel that it takes down.)
WORLD_TEST(PathSwitching, AWaitWithoutEndIsCutShort) {
  const struct {
    const char* what;
    void (*act)(TunnelBench& bench);
    int seconds;
  } kCases[] = {
      {"stop", [](TunnelBench& bench) { bench.Stop(); }, 7},
      {"sleep", [](TunnelBench& bench) { bench.Sleep(), bench.Resume(); }, 8},
      {"surprise removal", [](TunnelBench& bench) { bench.SurpriseRemove(); }, 7},
      {"unplug", [](TunnelBench& bench) { bench.Unplug("D1"), bench.Quiet(); }, 5},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    TunnelBench bench("H1:1 - D1:1, D1:3 - D2:1");
    bench.ExpectLeftovers();  // whoever gives a wait up leaves the hops after it
    bench.StartQuietly();
    bench.InRun([](USB4_DOMAIN& domain) {
      EXPECT_EQ(KivUsb4TunnnelPcie(&domain, KivUsb4DomainGetSwitch(&domain, 0x301).Get()), 0);
    });
    bench.faults().FailFrom("path.never-drains", 1);
    bench.Unplug("D2");
    bench.Pass(3 * platform::kSecond);
    bench.Requests();
    bench.Pass(platform::kSecond);
    EXPECT_GE(Count(bench.Requests(1), "space=path offset=0x010 length=2"), 5u) << "it waits";
    const platform::Time start = bench.simulation().Now();
    test.act(bench);
    EXPECT_LE((bench.simulation().Now() - start) / platform::kSecond, test.seconds);
    bench.TakeProtocolErrors();
    bench.Finish();
    if (testing::Test::HasFailure()) return;
  }
}

// Nearly three hours, and then the hop is given up.
TEST(PathSwitching, ARouterThatNeverDrainsIsAsked100001Times) {
  PathBench bench;
  bench.WithPath([&](USB4_PATH& path) {
    EXPECT_EQ(KivUsb4PathActivate(&path), 0);
    bench.faults().FailFrom("path.never-drains", 1);
    bench.Requests();
    const platform::Time start = bench.simulation().Now();
    EXPECT_EQ(__KivUsb4PathDeactivateHop(path.Hops[0].InputAdapter, 8, false), -1);
    EXPECT_GE(bench.simulation().Now() - start, 100001 * 100 * platform::kMillisecond);
    EXPECT_EQ(Count(bench.Requests(), "READ"), 100002u) << "the first read finds the entry valid";
    bench.faults().HealAll();
    KivUsb4PathDeactivate(&path);
  });
  EXPECT_EQ(bench.Programmed(), "");
  bench.TakeProtocolErrors();
}

}  // namespace
}  // namespace tests
