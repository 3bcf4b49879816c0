// Goal: mapped device memory is reached by the register calls, in bounds, and while the device may be. Method: the
// registers of a plain function; most tests break one rule.
#include "tests/platform/wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

class DeviceMemory : public WdfTest {};
INSTANTIATE_TEST_SUITE_P(FirstCome, DeviceMemory, testing::Values(0u));

TEST_P(DeviceMemory, APartOfABarMayBeMappedByTheOlderCall) {
  function.registers[0x84 / 4] = 0xabcd;
  WithDevice([](WDFDEVICE) {
    PHYSICAL_ADDRESS address;
    address.QuadPart = 0x90000080;
    auto* part = static_cast<ULONG*>(MmMapIoSpace(address, 0x10, MmNonCached));
    EXPECT_EQ(READ_REGISTER_ULONG(part + 1), 0xabcdu);
    MmUnmapIoSpace(part, 0x10);
  });
}

TEST_P(DeviceMemory, IsReachedByTheCallsOnly) {
  ULONG* base = nullptr;
  WithDevice([&](WDFDEVICE) { base = MapRegisters(); });
  EXPECT_DEATH(*const_cast<volatile ULONG*>(base) = 1, "");
  InDriver([&](WDFDEVICE) { MmUnmapIoSpace(base, kMemoryBytes); });
}

TEST_P(DeviceMemory, ReadsAllOnesOnceTheFunctionIsGone) {
  static ULONG* base;
  function.registers[1] = 0x12345678;
  script.onPrepare = [](WDFDEVICE, WDFCMRESLIST, WDFCMRESLIST) { base = MapRegisters(); };
  script.onEntry = [](WDFDEVICE) { EXPECT_EQ(READ_REGISTER_ULONG(base + 1), 0x12345678u); };
  script.onPre = [](WDFDEVICE) {
    WRITE_REGISTER_ULONG(base + 1, 1);
    EXPECT_EQ(READ_REGISTER_ULONG(base + 1), 0xFFFFFFFFu);
  };
  script.onRelease = [](WDFDEVICE) { MmUnmapIoSpace(base, kMemoryBytes); };
  ASSERT_EQ(Start(), 0);
  host.SurpriseRemove(id);
  EXPECT_EQ(function.registers[1], 0x12345678u);
}

DEVICE_BREAKS(RegisterPastTheMapping, RegisterOutsideBar, "READ_REGISTER_ULONG") {
  (void)READ_REGISTER_ULONG(MapRegisters() + kMemoryBytes / 4);
}

DEVICE_BREAKS(RegisterNotAligned, InvalidArgument, "WRITE_REGISTER_ULONG") {
  auto* bytes = reinterpret_cast<char*>(MapRegisters());
  WRITE_REGISTER_ULONG(reinterpret_cast<ULONG*>(bytes + 2), 0);
}

DEVICE_BREAKS(RegisterAfterUnmap, RegisterUnmapped, "WRITE_REGISTER_ULONG") {
  ULONG* base = MapRegisters();
  MmUnmapIoSpace(base, kMemoryBytes);
  WRITE_REGISTER_ULONG(base, 0);
}

DEVICE_BREAKS(UnmapTwice, RegisterUnmapped, "MmUnmapIoSpace") {
  ULONG* base = MapRegisters();
  MmUnmapIoSpace(base, kMemoryBytes);
  MmUnmapIoSpace(base, kMemoryBytes);
}

DEVICE_BREAKS(UnmapOfAnotherSize, InvalidArgument, "MmUnmapIoSpace") {
  MmUnmapIoSpace(MapRegisters(), kMemoryBytes / 2);
}

BREAKS(MapOfNobodysMemory, InvalidArgument, "MmMapIoSpaceEx") {
  MapRegisters();
}

DRIVER_BREAKS(MappingLeftAtUnload, MappingLeak, "") {
  rig.WithDevice([](WDFDEVICE) { MapRegisters(); });
  rig.Finish();
}

DRIVER_BREAKS(RegisterAccessInD3, RegisterWhilePoweredDown, "READ_REGISTER_ULONG") {
  ULONG* base = nullptr;
  rig.WithDevice([&](WDFDEVICE) { base = MapRegisters(); });
  rig.host.SystemSleep(SystemPowerAction::Sleep);
  rig.InDriver([&](WDFDEVICE) { READ_REGISTER_ULONG(base); });
}

}  // namespace
}  // namespace wdf_test
