// ACPI method evaluation through the device's default I/O target.
#include "driver/acpi.h"

#include <acpiioct.h>

#include "include/pool.h"
#include "include/status.h"
#include "include/trace.h"

namespace {

constexpr LONGLONG kEvaluationMs = 3000;
constexpr ULONG kComplexInputSignature = 0x43696541;  // "AeiC"

// A complex input of one zeroed argument, as the ACPI driver reads it.
struct SDEP_INPUT {
  static constexpr ULONG kPoolTag = PoolTag("acpi");

  ULONG Signature;
  UCHAR MethodName[4];
  ULONG Size;  // bytes of the arguments
  ULONG ArgumentCount;
  ULONG Argument[2];
};
static_assert(sizeof(SDEP_INPUT) == 24);
static_assert(sizeof(SDEP_INPUT) == sizeof(ACPI_EVAL_INPUT_BUFFER_COMPLEX));

void FillInput(SDEP_INPUT& input) {
  input.Signature = kComplexInputSignature;
  input.MethodName[0] = 'S';
  input.MethodName[1] = 'D';
  input.MethodName[2] = 'E';
  input.MethodName[3] = 'P';
  input.Size = sizeof input.Argument;
  input.ArgumentCount = 1;
}

}  // namespace

NTSTATUS Acpi_EvaluateUSB4SDEP(WDFDEVICE device) {
  PoolPtr<SDEP_INPUT> input = PoolPtr<SDEP_INPUT>::New();
  if (!input) return kStatusNoResources;
  FillInput(*input);
  WDF_MEMORY_DESCRIPTOR inputBuffer;
  WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(&inputBuffer, input.Get(), sizeof(SDEP_INPUT));
  WDF_REQUEST_SEND_OPTIONS options;
  WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_TIMEOUT);
  options.Timeout = WDF_REL_TIMEOUT_IN_MS(kEvaluationMs);
  return WdfIoTargetSendIoctlSynchronously(WdfDeviceGetIoTarget(device), nullptr, IOCTL_ACPI_EVAL_METHOD, &inputBuffer,
                                           nullptr, &options, nullptr);
}

void KivUsb4SetDEPMethodFromSDEP(WDFDEVICE device) {
  const NTSTATUS status = Acpi_EvaluateUSB4SDEP(device);
  TraceInfo("SDEP evaluated", "status", AsStatus(status));
}
