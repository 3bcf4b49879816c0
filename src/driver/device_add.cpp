// Device add, in the framework's order: what is set before the device exists, the device, what hangs off it.
#include "driver/device_add.h"

#include <cstddef>

#include "driver/acpi.h"
#include "driver/power_callbacks.h"
#include "driver/prepare_hardware.h"
#include "driver/queues.h"
#include "driver/registry_policy.h"
#include "driver/release_hardware.h"
#include "hostif/power.h"
#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"
#include "net/network_requests.h"

namespace {

constexpr std::size_t kComparedCharacters = 21;

struct ControllerRow {
  WCHAR Prefix[kComparedCharacters + 1];
  LONG Index;
};

constexpr ControllerRow kControllers[] = {
    {L"PCI\\VEN_1F3A&DEV_3A0E", 0}, {L"PCI\\VEN_1F3A&DEV_3A48", 0}, {L"PCI\\VEN_1F3A&DEV_3A64", 0},
    {L"PCI\\VEN_1F3A&DEV_3A0F", 1}, {L"PCI\\VEN_1F3A&DEV_3A49", 1}, {L"PCI\\VEN_1F3A&DEV_3A65", 1},
};

// A shorter ID differs at its terminator, so nothing behind it is read.
bool HasPrefix(const WCHAR* hardwareId, const ControllerRow& row) {
  for (std::size_t i = 0; i < kComparedCharacters; ++i) {
    if (hardwareId[i] != row.Prefix[i]) return false;
  }
  return true;
}

constexpr DEVICE_TYPE kBusExtender = 42;
constexpr ULONG kChildIdentificationBytes = 32;
constexpr ULONG kHardwareIdBytes = 1024;

// {8CB2D6D3-2FA5-49DE-9C2C-D429627CC347}
constexpr GUID kFirstControllerInterface = {
    0x8CB2D6D3, 0x2FA5, 0x49DE, {0x9C, 0x2C, 0xD4, 0x29, 0x62, 0x7C, 0xC3, 0x47}};
// {EF2249DF-E60D-4E54-9636-3A7C1D021587}
constexpr GUID kSecondControllerInterface = {
    0xEF2249DF, 0xE60D, 0x4E54, {0x96, 0x36, 0x3A, 0x7C, 0x1D, 0x02, 0x15, 0x87}};

void EvtDeviceContextCleanup(WDFOBJECT) {
  TraceInfoBy(NAME_OF(USB4EvtDeviceAdd), "device goes");
}

void RegisterPowerCallbacks(PWDFDEVICE_INIT init) {
  WDF_PNPPOWER_EVENT_CALLBACKS callbacks;
  WDF_PNPPOWER_EVENT_CALLBACKS_INIT(&callbacks);
  callbacks.EvtDevicePrepareHardware = USB4EvtDevicePrepareHardware;
  callbacks.EvtDeviceReleaseHardware = USB4EvtDeviceReleaseHardware;
  callbacks.EvtDeviceD0Entry = USB4EvtDeviceD0Entry;
  callbacks.EvtDeviceD0Exit = USB4EvtDeviceD0Exit;
  callbacks.EvtDeviceD0EntryPostInterruptsEnabled = USB4WdfDeviceD0EntryPostInterruptsEnabled;
  callbacks.EvtDeviceD0ExitPreInterruptsDisabled = USB4WdfDeviceD0ExitPreInterruptsDisabled;
  WdfDeviceInitSetPnpPowerEventCallbacks(init, &callbacks);
}

// The network device of a peer host is a child of this one.
void SetUpAsBus(PWDFDEVICE_INIT init) {
  WdfDeviceInitSetDeviceType(init, kBusExtender);
  WdfDeviceInitSetExclusive(init, TRUE);
  WDF_CHILD_LIST_CONFIG children;
  WDF_CHILD_LIST_CONFIG_INIT(&children, kChildIdentificationBytes, USB4EvtChildListCreateDevice);
  WdfFdoInitSetDefaultChildListConfig(init, &children, WDF_NO_OBJECT_ATTRIBUTES);
}

NTSTATUS CreateDevice(PWDFDEVICE_INIT init, DEVICE_EXTENSION** context) {
  WdfDeviceInitSetIoType(init, WdfDeviceIoDirect);
  RegisterPowerCallbacks(init);
  SetUpAsBus(init);
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, DEVICE_EXTENSION);
  attributes.EvtCleanupCallback = EvtDeviceContextCleanup;
  WDFDEVICE device = nullptr;
  const NTSTATUS status = WdfDeviceCreate(&init, &attributes, &device);
  if (!NT_SUCCESS(status)) {
    TraceErrorBy(NAME_OF(USB4EvtDeviceAdd), "no device", "status", AsStatus(status));
    return status;
  }
  *context = DeviceContextOf(device);
  (*context)->Device = device;
  return status;
}

NTSTATUS CreateInterface(DEVICE_EXTENSION* context) {
  WCHAR hardwareId[kHardwareIdBytes / sizeof(WCHAR)] = {};
  ULONG bytes = 0;
  NTSTATUS status =
      WdfDeviceQueryProperty(context->Device, DevicePropertyHardwareID, sizeof hardwareId, hardwareId, &bytes);
  if (!NT_SUCCESS(status)) {
    TraceErrorBy(NAME_OF(USB4EvtDeviceAdd), "no hardware ID", "status", AsStatus(status));
    return status;
  }
  const LONG index = KivUsb4ReturnControllerBasedOnDevId(hardwareId);
  const GUID& interfaceClass = index == 0 ? kFirstControllerInterface : kSecondControllerInterface;
  status = WdfDeviceCreateDeviceInterface(context->Device, &interfaceClass, nullptr);
  if (!NT_SUCCESS(status)) {
    TraceErrorBy(NAME_OF(USB4EvtDeviceAdd), "no device interface", "status", AsStatus(status));
    return status;
  }
  context->ControllerIndex = index == 0 ? 0 : 1;
  return status;
}

void ReportDefaultState(WDFDEVICE device) {
  WDF_DEVICE_STATE state;
  WDF_DEVICE_STATE_INIT(&state);
  WdfDeviceSetDeviceState(device, &state);
}

}  // namespace

LONG KivUsb4ReturnControllerBasedOnDevId(const WCHAR* hardwareId) {
  for (const ControllerRow& row : kControllers) {
    if (HasPrefix(hardwareId, row)) return row.Index;
  }
  TraceWarning("unknown controller");
  return -1;
}

NTSTATUS USB4EvtDeviceAdd(WDFDRIVER, PWDFDEVICE_INIT init) {
  DEVICE_EXTENSION* context = nullptr;
  NTSTATUS status = CreateDevice(init, &context);
  if (!NT_SUCCESS(status)) return status;
  // Traced by the operation; without settings of its own the device stays in its working state, which serves as well.
  IgnoreResult(USB4SetIdleAndWakeSettings(context, kIdleTimeoutMs));
  KivUsb4SetDEPMethodFromSDEP(context->Device);
  status = CreateInterface(context);
  if (!NT_SUCCESS(status)) return status;
  KivUsb4ReadPreOsCmWorkAroundValFromRegistry(context->Device);
  status = CreateQueues(context);
  if (!NT_SUCCESS(status)) return status;
  ReportDefaultState(context->Device);
  TraceInfo("device added", "controller", context->ControllerIndex);
  return status;
}
