// DMA enablers and common buffers: addresses, recycling of slots, what a device may reach, what must be given back.
#include <cstring>
#include <set>

#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

WDFDMAENABLER MakeEnabler(WDFDEVICE device) {
  WDF_DMA_ENABLER_CONFIG config;
  WDF_DMA_ENABLER_CONFIG_INIT(&config, WdfDmaProfilePacket64, 0x13F000);
  config.AddressWidthOverride = 64;
  config.WdmDmaVersionOverride = 3;
  WDFDMAENABLER enabler = nullptr;
  EXPECT_EQ(WdfDmaEnablerCreate(device, &config, WDF_NO_OBJECT_ATTRIBUTES, &enabler), 0);
  return enabler;
}

struct Made {
  WDFCOMMONBUFFER handle = nullptr;
  unsigned char* memory = nullptr;
  std::uint64_t bus = 0;
};
Made MakeBuffer(WDFDMAENABLER enabler, size_t bytes) {
  Made made;
  EXPECT_EQ(WdfCommonBufferCreate(enabler, bytes, WDF_NO_OBJECT_ATTRIBUTES, &made.handle), 0);
  made.memory = static_cast<unsigned char*>(WdfCommonBufferGetAlignedVirtualAddress(made.handle));
  made.bus = static_cast<std::uint64_t>(WdfCommonBufferGetAlignedLogicalAddress(made.handle).QuadPart);
  return made;
}

class WdfDma : public WdfTest {
 protected:
  void WithEnabler(std::function<void(WDFDMAENABLER)> body) {
    WithDevice([body](WDFDEVICE device) {
      WDFDMAENABLER enabler = MakeEnabler(device);
      body(enabler);
      WdfObjectDelete(enabler);
    });
  }
};
INSTANTIATE_WDF(WdfDma);

TEST_P(WdfDma, BuffersAreAlignedNotZeroAndWhollyInReach) {
  WithEnabler([this](WDFDMAENABLER enabler) {
    for (size_t bytes : {size_t{1}, size_t{256}, size_t{160}, size_t{4096}, size_t{8192}, size_t{200'000}}) {
      const Made made = MakeBuffer(enabler, bytes);
      const std::uint64_t mask = bytes >= 4096 ? 0xFFF : 0xF;
      EXPECT_EQ(made.bus & mask, 0u) << bytes;
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(made.memory) & mask, 0u) << bytes;
      EXPECT_GT(made.bus, 0xFFFFFFFFu);
      EXPECT_EQ(made.memory[0], 0xCC);
      EXPECT_EQ(made.memory[bytes - 1], 0xCC);
      EXPECT_TRUE(function.slot->DmaWrite(made.bus + bytes - 1, "w", 1));
      EXPECT_EQ(made.memory[bytes - 1], 'w');
      WdfObjectDelete(made.handle);
    }
    EXPECT_EQ(WdfDmaEnablerGetFragmentLength(enabler, WdfDmaDirectionReadFromDevice), 0x13F000u);
  });
}

TEST_P(WdfDma, AFreedSlotRestsForSixtyFourFrees) {
  WithEnabler([](WDFDMAENABLER enabler) {
    const Made first = MakeBuffer(enabler, 256);
    std::memset(first.memory, 0, 256);
    WdfObjectDelete(first.handle);
    for (int i = 0; i < 64; ++i) {
      const Made made = MakeBuffer(enabler, 256);
      EXPECT_NE(made.bus, first.bus) << i;
      WdfObjectDelete(made.handle);
    }
    const Made again = MakeBuffer(enabler, 256);
    EXPECT_EQ(again.bus, first.bus);
    EXPECT_EQ(again.memory[17], 0xCC);
    WdfObjectDelete(again.handle);
  });
}

TEST_P(WdfDma, ManyBuffersNeverOverlap) {
  WithEnabler([](WDFDMAENABLER enabler) {
    std::vector<Made> all;
    std::set<std::uint64_t> starts;
    for (int i = 0; i < 1000; ++i) {
      all.push_back(MakeBuffer(enabler, 256));
      starts.insert(all.back().bus);
    }
    ASSERT_EQ(starts.size(), 1000u);
    for (auto next = std::next(starts.begin()); next != starts.end(); ++next) {
      EXPECT_GE(*next - *std::prev(next), 256u + 16u);
    }
    for (const Made& made : all) WdfObjectDelete(made.handle);
  });
  EXPECT_EQ(host.LiveCommonBuffers(), 0u);
}

struct Reach {
  const char* name;
  std::int64_t offset;
  std::size_t bytes;
  bool deleted;
};

BROKEN_BY_TEST(WhatADeviceReachesOutsideIsReportedAndNotTransferred, DmaOutsideBuffer, "PciSlot::DmaRead")

TEST(WdfDmaOutside, WhatADeviceReachesOutsideIsReportedAndNotTransferred) {
  const Reach cases[] = {
      {"past the end", 253, 4, false},
      {"before the start", -4, 4, false},
      {"between buffers", 256, 1, false},
      {"of a deleted buffer", 0, 4, true},
      {"below all memory", -0x100000000, 4, false},
  };
  for (const Reach& reach : cases) {
    SCOPED_TRACE(reach.name);
    DriverRig rig;
    std::uint64_t bus = 0;
    rig.WithDevice([&](WDFDEVICE device) {
      const Made made = MakeBuffer(MakeEnabler(device), 256);
      bus = made.bus;
      if (reach.deleted) WdfObjectDelete(made.handle);
    });
    char data[4] = {'k', 'e', 'p', 't'};
    rig.simulation.After(0, "device", [&] {
      EXPECT_FALSE(rig.function.slot->DmaRead(bus + static_cast<std::uint64_t>(reach.offset), data, reach.bytes));
    });
    rig.simulation.RunFor(1);
    EXPECT_EQ(std::memcmp(data, "kept", 4), 0);
    ASSERT_EQ(rig.simulation.violations().size(), 1u);
    EXPECT_EQ(rig.simulation.violations()[0].rule, Rule::DmaOutsideBuffer);
  }
}

TEST_P(WdfDma, ADeviceThatIsGoneReachesNothing) {
  std::uint64_t bus = 0;
  WithDevice([&](WDFDEVICE device) { bus = MakeBuffer(MakeEnabler(device), 256).bus; });
  // No violation: a function that is gone drives no cycle. The buffer itself is lost, which the removal reports.
  host.SurpriseRemoveAsync(id);
  EXPECT_FALSE(function.slot->DmaWrite(bus, "x", 1));
  simulation.RunFor(1 * kSecond);
  EXPECT_EQ(Broken().substr(0, 18), "common-buffer-leak");
}

DEVICE_BREAKS(BufferOutlivesItsEnabler, CommonBufferLeak, "WdfObjectDelete") {
  WDFDMAENABLER enabler = MakeEnabler(device);
  MakeBuffer(enabler, 256);
  WdfObjectDelete(enabler);
}

DEVICE_BREAKS(BufferStillReferenced, CommonBufferLeak, "WdfObjectDelete") {
  WDFDMAENABLER enabler = MakeEnabler(device);
  const Made made = MakeBuffer(enabler, 256);
  WdfObjectReference(made.handle);
  WdfObjectDelete(made.handle);
  WdfObjectDelete(enabler);
}

DEVICE_BREAKS(WrittenPastABuffer, PoolOverrun, "WdfObjectDelete") {
  const Made made = MakeBuffer(MakeEnabler(device), 250);
  made.memory[250] = 0;
  WdfObjectDelete(made.handle);
}

DEVICE_BREAKS(BufferDeletedAtDispatch, IrqlTooHigh, "WdfObjectDelete") {
  const Made made = MakeBuffer(MakeEnabler(device), 256);
  Raise(DISPATCH_LEVEL);
  WdfObjectDelete(made.handle);
}

}  // namespace
}  // namespace wdf_test
