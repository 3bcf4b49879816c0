// Notifications to the graphics driver, over the device interface that it offers.
#include <ntddk.h>
#include <wdf.h>

#include "include/status.h"
#include "include/trace.h"
#include "tunnel/upcalls.h"

namespace {

constexpr GUID kGraphicsInterface = {0x52D5F7E0, 0x0786, 0x41EF, {0xA5, 0xD8, 0xF0, 0x3A, 0x2B, 0x29, 0xBA, 0x26}};
constexpr ULONG kDisplayPowerCode = 0x23202C;
constexpr LONGLONG kGraphicsAnswerMs = 2000;

// What the graphics driver reads.
struct DISPLAY_POWER_MESSAGE {
  UCHAR ControllerIndex;
  UCHAR Adapter;
  UCHAR Zero[6];
  ULONG PowerState;
};
static_assert(sizeof(DISPLAY_POWER_MESSAGE) == 12);

// The links of its interface, freed with this.
class InterfaceList {
 public:
  ~InterfaceList() {
    if (links_ != nullptr) ExFreePool(links_);
  }
  [[nodiscard]] NTSTATUS Find() {
    const NTSTATUS status = IoGetDeviceInterfaces(&kGraphicsInterface, nullptr, 0, &links_);
    if (!NT_SUCCESS(status)) return status;
    // A list of no links is an empty string.
    return links_ == nullptr || links_[0] == 0 ? kStatusNotFound : kStatusOk;
  }
  PWSTR First() const { return links_; }

 private:
  PWSTR links_ = nullptr;
};

NTSTATUS Send(WDFIOTARGET target, PWSTR link, DISPLAY_POWER_MESSAGE& message) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, link);
  WDF_IO_TARGET_OPEN_PARAMS open;
  WDF_IO_TARGET_OPEN_PARAMS_INIT_OPEN_BY_NAME(&open, &name, STANDARD_RIGHTS_ALL);
  NTSTATUS status = WdfIoTargetOpen(target, &open);
  if (!NT_SUCCESS(status)) {
    TraceWarningBy(NAME_OF(KivUsb4SendIoctlToGFXDriver), "graphics driver not opened", "status", AsStatus(status));
    return status;
  }
  WDF_MEMORY_DESCRIPTOR input;
  WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(&input, &message, sizeof message);
  WDF_REQUEST_SEND_OPTIONS options;
  WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_TIMEOUT);
  options.Timeout = WDF_REL_TIMEOUT_IN_MS(kGraphicsAnswerMs);
  status = WdfIoTargetSendIoctlSynchronously(target, nullptr, kDisplayPowerCode, &input, nullptr, &options, nullptr);
  if (!NT_SUCCESS(status)) {
    TraceWarningBy(NAME_OF(KivUsb4SendIoctlToGFXDriver), "graphics driver does not answer", "status", AsStatus(status));
  }
  WdfIoTargetClose(target);
  return status;
}

}  // namespace

NTSTATUS KivUsb4SendIoctlToGFXDriver(DEVICE_EXTENSION* context, std::uint8_t adapter, std::uint32_t state) {
  InterfaceList interfaces;
  NTSTATUS status = interfaces.Find();
  if (!NT_SUCCESS(status)) {
    TraceInfo("no graphics driver", "status", AsStatus(status));
    return status;
  }
  WDFIOTARGET target = nullptr;
  status = WdfIoTargetCreate(context->Device, WDF_NO_OBJECT_ATTRIBUTES, &target);
  if (!NT_SUCCESS(status)) {
    TraceError("no target", "status", AsStatus(status));
    return status;
  }
  DISPLAY_POWER_MESSAGE message = {static_cast<UCHAR>(context->ControllerIndex), adapter, {}, state};
  status = Send(target, interfaces.First(), message);
  WdfObjectDelete(target);
  return status;
}
