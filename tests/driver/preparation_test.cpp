// Goal: the driver takes any device that the bus may hand it, and its policy from the registry. Method: one controller
// per case, differing in hardware ID, registry, resources or hop count; what counts is the start's status, the domain
// and the registers afterwards, and that nothing is left behind.
#include <gtest/gtest.h>

#include "include/device_context.h"
#include "tests/support/world.h"

namespace {

using lab::ControllerConfig;
using platform::Resource;
using tests::World;
using tests::WorldOptions;

constexpr const char* kFirstInterface = "{8cb2d6d3-2fa5-49de-9c2c-d429627cc347}";
constexpr const char* kSecondInterface = "{ef2249df-e60d-4e54-9636-3a7c1d021587}";

WorldOptions With(std::function<void(ControllerConfig&)> configure) {
  WorldOptions options;
  options.configure = std::move(configure);
  return options;
}

WORLD_TEST(Preparation, ControllerTable) {
  const struct {
    const char* hardwareId;
    const char* interfaceClass;
    std::uint32_t index;
  } cases[] = {
      {"PCI\\VEN_1F3A&DEV_3A0E", kFirstInterface, 0},
      {"PCI\\VEN_1F3A&DEV_3A48&SUBSYS_00000000&REV_00", kFirstInterface, 0},
      {"PCI\\VEN_1F3A&DEV_3A64", kFirstInterface, 0},
      {"PCI\\VEN_1F3A&DEV_3A0F&SUBSYS_12345678", kSecondInterface, 1},
      {"PCI\\VEN_1F3A&DEV_3A49", kSecondInterface, 1},
      {"PCI\\VEN_1F3A&DEV_3A65", kSecondInterface, 1},
      {"PCI\\VEN_1F3A&DEV_3A0Efurther", kFirstInterface, 0},
      {"PCI\\VEN_8086&DEV_9A1B&SUBSYS_00000000", kSecondInterface, 1},
      {"PCI\\VEN_1F3A&DEV_3A0", kSecondInterface, 1},
      {"PCI", kSecondInterface, 1},
  };
  for (const auto& test : cases) {
    World world("H1", With([&](ControllerConfig& controller) { controller.hardwareId = test.hardwareId; }));
    EXPECT_EQ(world.Start(), 0) << test.hardwareId;
    EXPECT_EQ(world.kernel().Interfaces(world.machine().device()), std::vector<std::string>{test.interfaceClass})
        << test.hardwareId;
    world.InDevice([&](DEVICE_EXTENSION& context) { EXPECT_EQ(context.ControllerIndex, test.index); });
  }
}

WORLD_TEST(Preparation, TunnelPolicyComesFromTheRegistry) {
  const struct {
    const char* what;
    std::map<std::string, std::uint32_t> registry;
    int usb3, pcie, preOs;
  } cases[] = {
      {"nothing", {}, 0, 0, 0},
      {"USB3", {{"USB3Tunnel\\USB3TunnelSupported", 1}}, 1, 0, 0},
      {"PCIe", {{"PCIETunnel\\PCIETunnelSupported", 1}}, 0, 1, 0},
      {"pre-OS", {{"PreOSWorkAround\\PreOsCmWorkAroundEnable", 1}}, 0, 0, 1},
      {"value of another name", {{"USB3Tunnel\\PCIETunnelSupported", 1}}, 0, 0, 0},
      {"values beside the subkeys", {{"USB3TunnelSupported", 1}, {"PCIETunnelSupported", 1}}, 0, 0, 0},
      {"DisplayPort is not asked for", {{"DPTunnel\\DPTunnelSupported", 1}}, 0, 0, 0},
      {"all",
       {{"USB3Tunnel\\USB3TunnelSupported", 1},
        {"PCIETunnel\\PCIETunnelSupported", 1},
        {"PreOSWorkAround\\PreOsCmWorkAroundEnable", 1}},
       1,
       1,
       1},
  };
  for (const auto& test : cases) {
    WorldOptions options;
    options.registry = test.registry;
    World world("H1", options);
    EXPECT_EQ(world.Start(), 0);
    world.InDevice([&](DEVICE_EXTENSION& context) {
      EXPECT_EQ(context.Domain->Usb3TunnelSupported, test.usb3) << test.what;
      EXPECT_EQ(context.Domain->PcieTunnelSupported, test.pcie) << test.what;
      EXPECT_EQ(context.PreOsCmWorkAroundEnable, test.preOs) << test.what;
    });
  }
}

Resource Memory(std::uint64_t start, std::uint32_t length) {
  return {Resource::Kind::Memory, start, length, 0};
}

Resource Interrupt(std::uint32_t message) {
  return {Resource::Kind::Interrupt, 0, 0, message};
}

constexpr std::uint64_t kBar = 0xC0000000;
constexpr std::uint32_t kBarBytes = 0x40000;

struct ResourceCase {
  const char* what;
  std::vector<Resource> resources;
  platform::Status status;
  std::uint32_t interrupts;
  bool hostRouter;  // the domain has come up
};

std::vector<ResourceCase> ResourceCases() {
  const Resource bar = Memory(kBar, kBarBytes);
  const Resource other{};
  const Resource missing{Resource::Kind::Missing, 0, 0, 0};
  const std::vector<Resource> four = {Interrupt(0), Interrupt(1), Interrupt(2), Interrupt(3)};
  const auto with = [&](std::vector<Resource> head, std::vector<Resource> tail = {}) {
    head.insert(head.end(), four.begin(), four.end());
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
  };
  return {
      {"as usual", with({bar}), 0, 4, true},
      {"interrupts before memory", with({}, {bar}), 0, 4, true},
      {"other resources between", with({other, bar, other}, {other}), 0, 4, true},
      {"a second and a third range", with({bar, Memory(0xD0000000, 0x1000), Memory(0xD1000000, 0x1000)}), 0, 4, true},
      {"three interrupts", {bar, Interrupt(0), Interrupt(1), Interrupt(2)}, 0, 3, true},
      {"five interrupts", with({bar}, {Interrupt(4)}), 0, 5, true},
      {"no memory", four, 0, 4, false},
      {"nothing", {}, 0, 0, false},
      {"a missing descriptor", with({bar, missing}), static_cast<platform::Status>(0xC0000182), 0, false},
      {"a missing descriptor at the end", with({bar}, {missing}), static_cast<platform::Status>(0xC0000182), 4, false},
  };
}

WORLD_TEST(Preparation, TakesResourcesInAnyOrderAndNumber) {
  for (const ResourceCase& test : ResourceCases()) {
    World world("H1", With([&](ControllerConfig& controller) { controller.resources = test.resources; }));
    EXPECT_EQ(world.Start(), test.status) << test.what;
    if (test.status != 0) continue;
    world.InDevice([&](DEVICE_EXTENSION& context) {
      EXPECT_EQ(context.InterruptCount, test.interrupts) << test.what;
      ASSERT_NE(context.Domain, nullptr) << test.what;
      EXPECT_EQ(context.Domain->HostRouter.Peek() != nullptr, test.hostRouter) << test.what;
    });
  }
}

WORLD_TEST(Preparation, EveryHopCountIsServed) {
  const struct {
    std::uint32_t hops;
    bool domain;
  } cases[] = {{0, false}, {1, true}, {21, true}, {1023, true}};
  for (const auto& test : cases) {
    World world("H1", With([&](ControllerConfig& controller) { controller.hopCount = test.hops; }));
    EXPECT_EQ(world.Start(), 0) << test.hops;
    world.InDevice([&](DEVICE_EXTENSION& context) {
      EXPECT_EQ(context.HostInterface->HopCount, test.hops);
      EXPECT_EQ(context.Domain != nullptr, test.domain) << test.hops;
      if (test.domain) {
        EXPECT_NE(context.Domain->HostRouter.Peek(), nullptr) << test.hops;
      }
    });
    if (test.domain) continue;
    EXPECT_EQ(world.Wire(), "") << "a host interface without rings says nothing";
  }
}

WORLD_TEST(Preparation, MasksInterruptsAndSetsTheThrottling) {
  World world;
  world.hardware().WriteRegister(0x38200, 0x00FFFFFF);  // left behind by firmware
  world.Start();
  for (std::uint32_t vector = 0; vector < 16; ++vector) {
    EXPECT_EQ(world.hardware().ReadRegister(0x38C00 + 4 * vector), 500u) << vector;
  }
  EXPECT_EQ(world.hardware().ReadRegister(0x38200), 0x00001001u) << "control transmit and, behind 12 hops, receive";
  EXPECT_EQ(world.hardware().ReadRegister(0x38C40), 0x00000000u) << "control transmit raises message 0";
  EXPECT_EQ(world.hardware().ReadRegister(0x38C44), 0x00010000u) << "control receive, number 12, raises message 1";
}

void ConfigureFunction9A1B(ControllerConfig& controller) {
  controller.pciIdentity = 0x9A1B8086;
}

WORLD_TEST(Preparation, ThePowerOnSequenceRunsOncePerDriverLoad) {
  World world("H1, H1b=H1", With(ConfigureFunction9A1B));
  EXPECT_EQ(world.Start(), 0);
  EXPECT_TRUE(world.hardware().pci().powerRequested());
  EXPECT_TRUE(world.hardware().pci().commandEchoed());
  EXPECT_EQ(world.hardware().ReadConfig(0xFC) >> 24, 0x22u);
  EXPECT_EQ(world.hardware().ReadConfig(0xE0), 0x0A5C0A5Cu);
}

WORLD_TEST(Preparation, AFunctionThatNeverPowersUpCostsASecondAndNoMore) {
  World world("H1", With(ConfigureFunction9A1B));
  world.hardware().pci().config().readsUntilReady = sim::PciFunctionConfig::kNeverReady;
  const platform::Time start = world.simulation().Now();
  EXPECT_EQ(world.Start(), 0);
  EXPECT_GE(world.simulation().Now() - start, 349 * 3100 * platform::kMicrosecond);
  EXPECT_FALSE(world.hardware().pci().commandEchoed());
}

// Nothing is served yet; a client is told so at once, whatever it sends and whoever it is.
WORLD_TEST(Preparation, EachRequestOfAClientIsRefused) {
  World world;
  world.Start();
  for (const platform::IoRequest::Kind kind :
       {platform::IoRequest::Kind::DeviceControl, platform::IoRequest::Kind::InternalDeviceControl,
        platform::IoRequest::Kind::Read, platform::IoRequest::Kind::Write}) {
    for (const bool kernelMode : {true, false}) {
      const auto sent = world.kernel().Send(world.machine().device(),
                                            {.kind = kind,
                                             .code = 0x00220004,
                                             .input = std::vector<std::byte>(8),
                                             .outputBytes = 8,
                                             .kernelMode = kernelMode},
                                            platform::kSecond);
      EXPECT_TRUE(sent->completed) << static_cast<int>(kind);
      EXPECT_EQ(static_cast<std::uint32_t>(sent->status), 0xC0000010u) << static_cast<int>(kind);
      EXPECT_EQ(sent->information, 0u) << static_cast<int>(kind);
    }
  }
}

// --- failures of platform calls

// Every call that may fail, failed once while the device is added and started. The hardware is whole, so sites of the
// wire do not count.
bool IsPlatformSite(const std::string& site) {
  return site.rfind("wire.", 0) != 0 && site.rfind("sim.", 0) != 0;
}

std::map<std::string, std::uint64_t> CallsOfAStart() {
  std::map<std::string, std::uint64_t> calls;
  World world;
  world.Start();
  for (const std::string& site : world.faults().Sites()) {
    if (IsPlatformSite(site)) calls[site] = world.faults().Passed(site);
  }
  return calls;
}

// What a start comes to when the n-th passage of the site fails.
platform::Status StartWithFailure(const std::string& site, std::uint64_t n) {
  World world;
  world.faults().FailNth(site, n);
  const platform::Status status = world.Start();
  EXPECT_TRUE(world.faults().Fired()) << site << " " << n;
  // A search for the time unit that runs out of memory finds none, and its registers are then looked for at offset 0. A
  // router operation that never ends is given up, and the next one is started beside it.
  const std::string errors = world.TakeProtocolErrors();
  EXPECT_TRUE(errors.empty() || errors.ends_with("read-only bits 0x08000000 of router dword 0 [read-only-bits]\n") ||
              errors.ends_with("[operation-busy]\n"))
      << site << " " << n << ": " << errors;
  return status;
}

// One direction is enough to go on with.
WORLD_TEST(Preparation, DmaFragmentsOfUnknownLengthBothWaysFailTheStart) {
  World world;
  world.faults().FailFrom("WdfDmaEnablerGetFragmentLength", 1);
  EXPECT_EQ(static_cast<std::uint32_t>(world.Start()), 0xC000009Au);
  EXPECT_EQ(world.faults().FiredCount(), 2u);
}

TEST(Preparation, EachFailingCallHasItsStatus) {
  const struct {
    const char* site;
    std::uint64_t first, last;  // passages whose failure fails the start
    std::uint32_t status;
  } cases[] = {
      {"WdfDriverCreate", 1, 1, 0xC000009A},
      {"WdfDeviceCreate", 1, 1, 0xC000009A},
      {"WdfDeviceQueryProperty", 1, 1, 0xC000009A},
      {"WdfDeviceCreateDeviceInterface", 1, 1, 0xC000009A},
      {"WdfIoQueueCreate", 1, 7, 0xC000009A},
      {"WdfDeviceConfigureRequestDispatching", 1, 4, 0xC000009A},
      {"MmMapIoSpaceEx", 1, 1, 0xC000009A},
      {"WdfDmaEnablerCreate", 1, 1, 0xC000009A},
      // What describes the host to its peers comes in between, and is optional.
      {"pool.allocate", 2, 2, 0xC000009A},           // host interface
      {"pool.allocate", 9, 10, 0xC000009A},          // its two ring arrays
      {"pool.allocate", 11, 11, 0xC00000A0},         // domain
      {"pool.allocate", 15, 27, 0xC00000A0},         // channel, two rings, ten packets
      {"WdfCommonBufferCreate", 1, 12, 0xC00000A0},  // two descriptor tables, ten packets
  };
  for (const auto& [site, count] : CallsOfAStart()) {
    for (std::uint64_t n = 1; n <= count; ++n) {
      std::uint32_t expected = 0;  // everything else is optional, or costs only what is being enumerated
      for (const auto& test : cases) {
        if (site == test.site && n >= test.first && n <= test.last) expected = test.status;
      }
      EXPECT_EQ(static_cast<std::uint32_t>(StartWithFailure(site, n)), expected) << site << " " << n;
    }
  }
}

}  // namespace
