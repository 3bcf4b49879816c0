// Goal: a packet that a driver builds reaches the bus driver and comes back; misuse of packets is caught. Method: the
// configuration space of a plain function, and breaks of one rule each.
#include <ntddk.h>

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

class RequestPacket : public wdf_test::WdfTest {};

TEST_P(RequestPacket, ReadsConfigurationSpaceToItsEndAndNotPastIt) {
  function.config[63] = 0x55556666;
  WithDevice([](WDFDEVICE device) {
    PDEVICE_OBJECT lower = WdfDeviceWdmGetAttachedDevice(device);
    ConfigRead last{.offset = 252};
    Send(lower, last);
    EXPECT_EQ(last.returned, STATUS_SUCCESS);
    EXPECT_EQ(last.block.Information, 4u);
    EXPECT_EQ(last.data[0], 0x55556666u);
    EXPECT_EQ(last.data[1], 0u);
    ConfigRead past{.offset = 252, .length = 8};
    Send(lower, past);
    EXPECT_EQ(past.block.Status, STATUS_INVALID_PARAMETER);
  });
}

INSTANTIATE_WDF(RequestPacket);

// A device object whose driver never sees a packet.
PDEVICE_OBJECT NoDevice() {
  static DEVICE_OBJECT device{};
  device.StackSize = 1;
  return &device;
}

}  // namespace

static void Build(UCHAR major, void* buffer, ULONG bytes) {
  KEVENT done;
  IO_STATUS_BLOCK block;
  KeInitializeEvent(&done, NotificationEvent, FALSE);
  (void)IoBuildSynchronousFsdRequest(major, NoDevice(), buffer, bytes, nullptr, &done, &block);
}

HOST_BREAKS(PacketNeverSent, HandleLeak, "") {
  rig.OnTask([] { Build(IRP_MJ_PNP, nullptr, 0); });
  rig.kernel.UnloadDriver();
}

BREAKS(PacketNeverBuilt, HandleStale, "IofCallDriver") {
  IRP request{};
  (void)IofCallDriver(NoDevice(), &request);
}

BREAKS(PnpPacketWithoutItsFirstStatus, InvalidArgument, "IofCallDriver") {
  ConfigRead read{.status = STATUS_SUCCESS};
  Send(NoDevice(), read);
}

BREAKS(PacketWithBuffer, NotModelled, "IoBuildSynchronousFsdRequest") {
  ULONG data;
  Build(IRP_MJ_READ, &data, 4);
}
