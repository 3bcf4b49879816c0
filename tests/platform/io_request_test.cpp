// Goal: a packet that a driver builds reaches the bus driver and comes back; misuse of packets is caught. Method: the
// configuration space of a plain function, and breaks of one rule each.
#include <ntddk.h>

#include "tests/platform/rule_tests.h"
#include "tests/platform/wdf_fixture.h"

namespace {

struct ConfigRead {
  NTSTATUS status = STATUS_NOT_SUPPORTED;
  ULONG offset = 0;
  ULONG length = 4;
  NTSTATUS returned = 0;
  IO_STATUS_BLOCK block{};
  ULONG data[4] = {};
};

void Send(PDEVICE_OBJECT device, ConfigRead& read) {
  KEVENT done;
  KeInitializeEvent(&done, NotificationEvent, FALSE);
  PIRP request = IoBuildSynchronousFsdRequest(IRP_MJ_PNP, device, nullptr, 0, nullptr, &done, &read.block);
  if (request == nullptr) {
    read.returned = STATUS_INSUFFICIENT_RESOURCES;
    return;
  }
  request->IoStatus.Status = read.status;
  PIO_STACK_LOCATION location = IoGetNextIrpStackLocation(request);
  location->MinorFunction = IRP_MN_READ_CONFIG;
  location->Parameters.ReadWriteConfig.WhichSpace = PCI_WHICHSPACE_CONFIG;
  location->Parameters.ReadWriteConfig.Buffer = read.data;
  location->Parameters.ReadWriteConfig.Offset = read.offset;
  location->Parameters.ReadWriteConfig.Length = read.length;
  read.returned = IoCallDriver(device, request);
  EXPECT_EQ(KeReadStateEvent(&done), 1);
}

class IoRequest : public wdf_test::WdfTest {};

TEST_P(IoRequest, ReadsTheFunctionsConfigurationSpace) {
  function.config[0] = 0x11112222;
  function.config[1] = 0x33334444;
  function.config[63] = 0x55556666;
  bool ran = false;
  script.onEntry = [&](WDFDEVICE device) {
    PDEVICE_OBJECT lower = WdfDeviceWdmGetAttachedDevice(device);
    ConfigRead two{.length = 8};
    Send(lower, two);
    EXPECT_EQ(two.returned, STATUS_SUCCESS);
    EXPECT_EQ(two.block.Status, STATUS_SUCCESS);
    EXPECT_EQ(two.block.Information, 8u);
    EXPECT_EQ(two.data[0], 0x11112222u);
    EXPECT_EQ(two.data[1], 0x33334444u);
    EXPECT_EQ(two.data[2], 0u);
    ConfigRead last{.offset = 252};
    Send(lower, last);
    EXPECT_EQ(last.data[0], 0x55556666u);
    ConfigRead past{.offset = 252, .length = 8};
    Send(lower, past);
    EXPECT_EQ(past.block.Status, STATUS_INVALID_PARAMETER);
    simulation.faults().FailNth("IoBuildSynchronousFsdRequest", 1);
    ConfigRead refused;
    Send(lower, refused);
    EXPECT_EQ(refused.returned, STATUS_INSUFFICIENT_RESOURCES);
    ran = true;
  };
  ASSERT_EQ(Start(), 0);
  EXPECT_TRUE(ran);
  host.Remove(id);
  Unload();
}

INSTANTIATE_WDF(IoRequest);

// A device object whose driver never sees a packet.
PDEVICE_OBJECT NoDevice() {
  static DEVICE_OBJECT device{};
  device.StackSize = 1;
  return &device;
}

}  // namespace

BREAKS(PacketNeverSent, HandleLeak, "") {
  rig.OnTask([] {
    KEVENT done;
    IO_STATUS_BLOCK block;
    KeInitializeEvent(&done, NotificationEvent, FALSE);
    (void)IoBuildSynchronousFsdRequest(IRP_MJ_PNP, NoDevice(), nullptr, 0, nullptr, &done, &block);
  });
  rig.kernel.UnloadDriver();
}

BREAKS(PacketNeverBuilt, HandleStale, "IofCallDriver") {
  rig.OnTask([] {
    IRP request{};
    (void)IofCallDriver(NoDevice(), &request);
  });
}

BREAKS(PnpPacketWithoutItsFirstStatus, InvalidArgument, "IofCallDriver") {
  rig.OnTask([] {
    ConfigRead read{.status = STATUS_SUCCESS};
    Send(NoDevice(), read);
  });
}

BREAKS(PacketWithBuffer, NotModelled, "IoBuildSynchronousFsdRequest") {
  rig.OnTask([] {
    KEVENT done;
    IO_STATUS_BLOCK block;
    ULONG data;
    KeInitializeEvent(&done, NotificationEvent, FALSE);
    (void)IoBuildSynchronousFsdRequest(IRP_MJ_READ, NoDevice(), &data, 4, nullptr, &done, &block);
  });
}
