// Goal: the graphics driver hears of displays that come and go, byte for byte, and cannot hold the driver up. Method: a
// companion on the graphics interface that is absent, fast, slow or failing.
#include <gtest/gtest.h>

#include "tests/support/world.h"
#include "tunnel/display_power.h"
#include "tunnel/upcalls.h"

namespace {

using platform::kMillisecond;
using platform::Time;
using tests::World;

constexpr char kGraphicsClass[] = "{52d5f7e0-0786-41ef-a5d8-f03a2b29ba26}";

struct Listener {
  std::string heard;
  void On(World& world, platform::CompanionReply reply, NTSTATUS openStatus = 0) {
    world.kernel().Offer({kGraphicsClass, "\\??\\graphics", openStatus,
                          [this, reply](std::uint32_t code, std::span<const std::uint8_t> input) {
                            char text[8];
                            std::snprintf(text, sizeof text, "%x:", code);
                            heard += text;
                            for (const std::uint8_t byte : input) heard += static_cast<char>('0' + byte);
                            heard += '\n';
                            return reply;
                          }});
  }
};

WORLD_TEST(GraphicsDriver, EachNotificationEndsWithItsStatusInItsTime) {
  enum class Who { Nobody, Offered };
  const struct {
    Who who;
    platform::CompanionReply reply;
    NTSTATUS openStatus;
    std::uint32_t status;
    Time atMost;
    const char* heard;
  } cases[] = {
      {Who::Nobody, {}, 0, 0xC0000034, 20 * kMillisecond, ""},
      {Who::Offered, {0, 5 * kMillisecond}, 0, 0, 40 * kMillisecond, "23202c:060000004000\n"},
      {Who::Offered, {0, 3000 * kMillisecond}, 0, 0xC00000B5, 2040 * kMillisecond, "23202c:060000004000\n"},
      {Who::Offered,
       {static_cast<NTSTATUS>(0xC0000001u), 0},
       0,
       0xC0000001,
       20 * kMillisecond,
       "23202c:060000004000\n"},
      {Who::Offered, {}, static_cast<NTSTATUS>(0xC0000022u), 0xC0000022, 20 * kMillisecond, ""},
  };
  for (const auto& test : cases) {
    World world;
    Listener listener;
    if (test.who == Who::Offered) listener.On(world, test.reply, test.openStatus);
    world.Start();
    world.InDevice([&](DEVICE_EXTENSION& context) {
      const Time begin = world.simulation().Now();
      EXPECT_EQ(static_cast<std::uint32_t>(KivUsb4SendIoctlToGFXDriver(&context, 6, 4)), test.status);
      EXPECT_LE(world.simulation().Now() - begin, test.atMost);
    });
    EXPECT_EQ(listener.heard, test.heard);
  }
}

WORLD_TEST(GraphicsDriver, EveryCallThatFailsIsGivenUpWithNothingLeft) {
  for (const char* site :
       {"IoGetDeviceInterfaces", "WdfIoTargetCreate", "WdfIoTargetOpen", "WdfIoTargetSendIoctlSynchronously"}) {
    World world;
    Listener listener;
    listener.On(world, {});
    world.Start();
    world.faults().FailNth(site, 1);
    world.InDevice([&](DEVICE_EXTENSION& context) {
      EXPECT_EQ(static_cast<std::uint32_t>(KivUsb4SendIoctlToGFXDriver(&context, 5, 1)), 0xC000009Au) << site;
      EXPECT_EQ(KivUsb4SendIoctlToGFXDriver(&context, 5, 1), 0) << site;
    });
    EXPECT_EQ(listener.heard, "23202c:050000001000\n") << site;
  }
}

// A display's tunnel goes before a power-down and is told of first; a system sleep has nothing brought back.
WORLD_TEST(GraphicsDriver, HearsOfDisplaysThatGoToSleep) {
  World world("H1:1 - D1:1");
  Listener listener;
  listener.On(world, {});
  world.fabric().PlugDisplay("D1:13");
  world.Start();
  world.Quiet();
  EXPECT_EQ(listener.heard, "");
  world.Sleep();
  world.Resume();
  world.Quiet();
  EXPECT_EQ(world.Tunnels(), "DP 0:5 -> 1:13\n");
  EXPECT_EQ(listener.heard, "23202c:050000004000\n");
}

}  // namespace
