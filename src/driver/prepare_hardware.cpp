// Hardware preparation. PASSIVE_LEVEL, before any interrupt is connected.
#include "driver/prepare_hardware.h"

#include "driver/hardware_resources.h"
#include "driver/power_on_sequence.h"
#include "driver/registry_policy.h"
#include "hostif/domain.h"
#include "hostif/host_interface.h"
#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"
#include "include/wait.h"
#include "xdomain/computer_name.h"
#include "xdomain/host_properties.h"
#include "xdomain/request_handler.h"

namespace {

struct RESOURCES {
  WDFCMRESLIST Raw;
  WDFCMRESLIST Translated;
};

struct MEMORY_RANGES {
  ULONG Count;
  MEMORY_RANGE Bar0;
};

NTSTATUS AllocateHostInterface(DEVICE_EXTENSION* context) {
  USB4_HOST_INTERFACE* hostInterface = PoolNew<USB4_HOST_INTERFACE>();
  if (hostInterface == nullptr) {
    TraceErrorBy(NAME_OF(USB4EvtDevicePrepareHardware), "no memory for the host interface");
    return kStatusNoResources;
  }
  hostInterface->Device = context->Device;
  hostInterface->HopLock.Initialise();
  hostInterface->InterruptLock.Initialise();
  context->HostInterface = hostInterface;
  context->InterruptCount = 0;
  InitialiseAutoResetEvent(context->DeviceEvent);
  context->HandlerMutex.Initialise();
  context->XDomainMutex.Initialise();
  InitializeListHead(&context->ReapListHead);
  InitialisePeerRequests(context);
  return kStatusOk;
}

void TakeMemory(const CM_PARTIAL_RESOURCE_DESCRIPTOR& descriptor, MEMORY_RANGES* ranges) {
  constexpr const char* kNames[] = {"BAR0", "BAR1"};
  const ULONG index = ranges->Count++;
  const MEMORY_RANGE range = {descriptor.u.Memory.Start, descriptor.u.Memory.Length};
  if (index == 0) ranges->Bar0 = range;
  TraceInfoBy(NAME_OF(USB4EvtDevicePrepareHardware), "memory resource", "name",
              index < 2 ? kNames[index] : "<unrecognized>", "start", AsHex(range.Start.QuadPart), "length",
              range.Length);
}

void TakeInterrupt(WDFDEVICE device, PCM_PARTIAL_RESOURCE_DESCRIPTOR raw, PCM_PARTIAL_RESOURCE_DESCRIPTOR translated,
                   const MEMORY_RANGES& ranges) {
  const NTSTATUS status = KivUsb4InitializeInterrupt(device, raw, translated);
  if (!NT_SUCCESS(status)) {
    TraceErrorBy(NAME_OF(USB4EvtDevicePrepareHardware), "interrupt not created", "status", AsStatus(status));
  }
  if (ranges.Count != 0) RunPowerOnSequenceOnce(device);
}

NTSTATUS WalkResources(WDFDEVICE device, const RESOURCES& resources, MEMORY_RANGES* ranges) {
  const ULONG count = WdfCmResourceListGetCount(resources.Translated);
  for (ULONG i = 0; i < count; ++i) {
    PCM_PARTIAL_RESOURCE_DESCRIPTOR translated = WdfCmResourceListGetDescriptor(resources.Translated, i);
    PCM_PARTIAL_RESOURCE_DESCRIPTOR raw = WdfCmResourceListGetDescriptor(resources.Raw, i);
    if (translated == nullptr || raw == nullptr) {
      TraceErrorBy(NAME_OF(USB4EvtDevicePrepareHardware), "resource descriptor missing", "index", i);
      return kStatusNoDescriptor;
    }
    if (translated->Type == CmResourceTypeInterrupt) TakeInterrupt(device, raw, translated, *ranges);
    if (translated->Type == CmResourceTypeMemory) TakeMemory(*translated, ranges);
  }
  return kStatusOk;
}

NTSTATUS SetUpHostInterface(USB4_HOST_INTERFACE* hostInterface, const MEMORY_RANGE& bar0) {
  NTSTATUS status = MapBar0(hostInterface, bar0);
  if (!NT_SUCCESS(status)) return status;
  ReadHopCount(*hostInterface);
  if (hostInterface->HopCount == 0) return kStatusOk;
  KivUsb4MaskInterrupts(*hostInterface);
  ProgramThrottling(*hostInterface);
  status = KivUsb4HostInterfaceRingAlloc(hostInterface);
  if (!NT_SUCCESS(status)) return status;
  return KivUsb4InitializeDma(hostInterface, &hostInterface->DmaEnabler);
}

NTSTATUS BuildDomain(DEVICE_EXTENSION* context, const TUNNEL_POLICY_NAMES& names) {
  USB4_DOMAIN* domain = KivUSB4DomainAlloc(context->HostInterface, 0);
  if (domain == nullptr) return kStatusNotAllocated;
  domain->Usb3TunnelSupported =
      static_cast<std::uint8_t>(KivUsb4ReadTunnelSupportFromRegistry(context->Device, names.Usb3));
  domain->PcieTunnelSupported =
      static_cast<std::uint8_t>(KivUsb4ReadTunnelSupportFromRegistry(context->Device, names.Pcie));
  InitialiseAutoResetEvent(context->WorkDoneEvent);
  context->WorkListMutex.Initialise();
  context->Domain = domain;
  context->PoweredDown.Set(false);
  const NTSTATUS status = KivUsb4ReadActiveComputerNameFromRegistry(domain);
  // A host without a name offers a default one to its peers.
  if (!NT_SUCCESS(status)) {
    TraceInfoBy(NAME_OF(USB4EvtDevicePrepareHardware), "no computer name", "status", AsStatus(status));
  }
  TraceInfoBy(NAME_OF(USB4EvtDevicePrepareHardware), "domain built", "hops", context->HostInterface->HopCount, "USB3",
              domain->Usb3TunnelSupported, "PCIe", domain->PcieTunnelSupported);
  return kStatusOk;
}

}  // namespace

NTSTATUS USB4EvtDevicePrepareHardware(WDFDEVICE device, WDFCMRESLIST raw, WDFCMRESLIST translated) {
  TUNNEL_POLICY_NAMES names;
  BuildTunnelPolicyNames(&names);
  DEVICE_EXTENSION* context = DeviceContextOf(device);
  if (context == nullptr) return kStatusNoContextInPrepare;
  NTSTATUS status = AllocateHostInterface(context);
  if (!NT_SUCCESS(status)) return status;
  const KIV_RESULT described = KivUsb4XdomainInit(context->HostInterface);
  if (described != kKivOk) TraceError("no properties for peers", "result", AsResult(described));
  MEMORY_RANGES ranges = {};
  status = WalkResources(device, {raw, translated}, &ranges);
  if (!NT_SUCCESS(status)) return status;
  if (ranges.Count != 0) {
    status = SetUpHostInterface(context->HostInterface, ranges.Bar0);
    if (!NT_SUCCESS(status)) return status;
    if (context->HostInterface->HopCount == 0) {
      TraceError("the host interface has no rings");
      return kStatusOk;
    }
  }
  return BuildDomain(context, names);
}
