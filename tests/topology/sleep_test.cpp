// Goal: routers go to sleep deepest first, each with exactly the wake sources that it should have. Method: the suspend
// walk over a wired tree; its writes and the registers that it leaves.
#include "topology/sleep.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/bench.h"

namespace tests {
namespace {

// Wake bits 18:16 of PORT_CS_19 of each lane adapter, "1:4" for bit 18 alone on adapter 1; adapters without any are
// left out.
std::string WakeBits(Bench& bench, const std::string& name) {
  std::string text;
  sim::Router& router = bench.router(name);
  for (unsigned number = 1; number <= router.maxAdapter(); ++number) {
    const sim::Adapter* adapter = router.adapter(number);
    if (adapter == nullptr || adapter->usb4Capability == 0) continue;
    const unsigned bits = adapter->space().Get(adapter->usb4Capability + 19) >> 16 & 7;
    if (bits != 0) text += fmt::format("{}:{} ", number, bits);
  }
  return text;
}

// The sleep requests in their order.
std::string SleepOrder(Bench& bench) {
  std::string order;
  std::istringstream lines(bench.Requests());
  for (std::string line; std::getline(lines, line);) {
    const bool usb4 = line.find("offset=0x005 length=1") != std::string::npos && line.back() % 2 == 1;
    const bool linkController = line.find("space=router offset=0x0d6 ") != std::string::npos;
    if (line.find("WRITE") != 0 || !(usb4 || linkController)) continue;
    const std::size_t route = line.find("route=") + 6;
    order += line.substr(route, line.find(' ', route) - route) + (usb4 ? " " : "L ");
  }
  return order;
}

WORLD_TEST(Sleep, EverySourceIsArmedForARuntimeIdle) {
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  bench.WithRouter(0, [](USB4_SWITCH& router) { KivUsb4SwitchSuspend(&router, true); });
  // Connect where nothing is, disconnect and USB4 wake where a router is. Second lanes carry no mark of their own.
  EXPECT_EQ(WakeBits(bench, "H1"), "1:6 2:1 ");
  EXPECT_EQ(WakeBits(bench, "D1"), "1:4 2:4 3:1 4:1 5:1 6:1 7:1 8:1 ");
  EXPECT_EQ(bench.router("D1").space().Get(5) & 0xF, 0xFu);
}

WORLD_TEST(Sleep, ADisplayThatOnceWasAReasonToWakeStaysOne) {
  Bench bench("H1:1 - D1:1");
  bench.StartQuietly();
  bench.WithRouter(1, [](USB4_SWITCH& router) {
    EXPECT_EQ(Usb4SwitchSetWake(&router, 0x20), 0);
    EXPECT_EQ(Usb4SwitchSetWake(&router, 0), 0);
  });
  EXPECT_EQ(bench.router("D1").space().Get(5) & 0xE, 0x8u);
  EXPECT_EQ(WakeBits(bench, "D1"), "1:4 2:4 ") << "the way up carries wakes whatever is asked for";
}

WORLD_TEST(Sleep, ThunderboltRoutersSleepByTheirLinkControllers) {
  Bench bench("H1:1 - D1:1, D1:3 - T3:1");
  bench.StartQuietly();
  bench.Requests();
  bench.WithRouter(0, [](USB4_SWITCH& router) { KivUsb4SwitchSuspend(&router, true); });
  EXPECT_EQ(bench.router("T3").space().Get(0xD6) & 0x80000066u, 0x80000066u);
  EXPECT_EQ(bench.router("T3").space().Get(6) & 0x7C, 0x7Cu) << "plug events are off";
}

WORLD_TEST(Sleep, ARouterThatKeepsItsPlugEventsStaysAwakeWithAllBelowIt) {
  Bench bench("H1:1 - D1:1, D1:3 - T1:1, T1:3 - T3:1");
  bench.StartQuietly();
  bench.Requests();
  bool refuse = true;
  bench.wire().log().Listen([&](const sim::WireEntry& entry) {
    if (entry.up || !refuse || entry.text.find("WRITE route=301 adapter=0 space=router offset=0x004") != 0) return;
    refuse = false;
    bench.wire().ReplaceAnswer(1, [](const sim::ControlPacket& packet) {
      return sim::ControlWire::Raw(sim::ErrorPacket(packet.Route(), 0, sim::ErrorCode::NoSuchAddress));
    });
  });
  bench.WithRouter(0, [](USB4_SWITCH& router) { KivUsb4SwitchSuspend(&router, true); });
  EXPECT_FALSE(refuse);
  const std::string order = SleepOrder(bench);
  EXPECT_EQ(order, "1 0 ");
}

WORLD_TEST(Sleep, WakeReportsAreReadFromTheRouterAndItsLinksAndClearNothing) {
  Bench bench("H1:1 - D1:1, D1:3 - D2:1");
  bench.StartQuietly();
  bench.adapter("D1:3").space().SetBits(0xAE, 1u << 18, 1u << 18);
  bench.Requests();
  bench.WithRouter(1, [](USB4_SWITCH& router) { Usb4SwitchCheckWakes(&router); });
  EXPECT_EQ(bench.Requests(1),
            "READ adapter=0 space=router offset=0x006 length=1 seq=0\n"
            "READ adapter=3 space=adapter offset=0x0ae length=1 seq=0\n");
}

}  // namespace
}  // namespace tests
