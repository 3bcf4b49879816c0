// Runs the parser on a kernel of its own, over records without a control channel: a read of theirs leaves zeros.
#include "lab/decode/driver_drom.h"

#include <ntddk.h>

#include <memory>

#include "include/domain_record.h"
#include "include/router_record.h"
#include "lab/machine/machine_config.h"
#include "platform/host/host_kernel.h"
#include "platform/host/simulation.h"
#include "topology/drom_image.h"
#include "topology/drom_parse.h"

namespace lab {
namespace {

struct Records {
  USB4_DOMAIN domain{};
  USB4_SWITCH router{};
  USB4_PORT adapters[kMostAdapters + 1]{};
};

void Prepare(Records& records, std::vector<std::uint8_t>& image) {
  RouterCs1::Value header;
  header.Set<RouterCs1::MaximumAdapter>(kMostAdapters);
  records.router.Header[RouterCs1::kOffset] = header.Word();
  records.router.Domain = &records.domain;
  records.router.Adapters = records.adapters;
  records.router.Drom = image.data();
  records.router.DromBytes = static_cast<std::uint32_t>(image.size());
  for (std::uint8_t number = 0; number <= kMostAdapters; ++number) {
    records.adapters[number].Router = &records.router;
    records.adapters[number].Number = number;
  }
}

DriverDrom TakeOut(Records& records) {
  DriverDrom drom;
  drom.uid = records.router.Uid;
  drom.vendorId = records.router.DromVendorId;
  drom.modelId = records.router.DromModelId;
  if (records.router.VendorName != nullptr) drom.vendorName = records.router.VendorName;
  if (records.router.DeviceName != nullptr) drom.deviceName = records.router.DeviceName;
  PoolDeleteArray(records.router.VendorName, USB4_SWITCH::kVendorNameTag);
  PoolDeleteArray(records.router.DeviceName, USB4_SWITCH::kDeviceNameTag);
  for (unsigned number = 0; number <= kMostAdapters; ++number) {
    if (records.adapters[number].Disabled != 0) drom.disabledAdapters.push_back(number);
  }
  return drom;
}

}  // namespace

DriverDrom ParseWithDriver(const std::vector<std::uint8_t>& image) {
  platform::Simulation simulation{platform::SimulationOptions{}};
  platform::HostKernel kernel(simulation, platform::HostKernelOptions{});
  std::vector<std::uint8_t> bytes = image;
  const auto records = std::make_unique<Records>();
  DriverDrom drom;
  simulation.RunTask(&kernel, "parse", [&] {
    Prepare(*records, bytes);
    const bool usb4 = bytes[kDromVersionOffset] == kUsb4Format;
    const KIV_RESULT result = usb4 ? KIVUsb4DromParse(&records->router) : KIVUsb4tbdromparse(&records->router);
    drom = TakeOut(*records);
    drom.accepted = result == kKivOk;
  });
  return drom;
}

}  // namespace lab
