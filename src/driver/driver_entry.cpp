// The driver's entry: tracing, and the framework driver whose context holds what is driver-wide.
#include <ntddk.h>
#include <wdf.h>

#include "driver/device_add.h"
#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"

extern "C" DRIVER_INITIALIZE DriverEntry;

namespace {

// {6F1E2B52-4B0D-4C62-9D3B-8A5D0A6E7C41}
constexpr GUID kTraceProvider = {0x6F1E2B52, 0x4B0D, 0x4C62, {0x9D, 0x3B, 0x8A, 0x5D, 0x0A, 0x6E, 0x7C, 0x41}};

REGHANDLE StartTracing() {
  REGHANDLE handle = 0;
  // Without tracing the driver is as good: a failure leaves the handle 0, and no event is written.
  if (!NT_SUCCESS(EtwRegister(&kTraceProvider, nullptr, nullptr, &handle))) return 0;
  return handle;
}

void EndTracing(REGHANDLE handle) {
  if (handle != 0) IgnoreResult(EtwUnregister(handle));  // fails only for a handle that is not registered
}

void EvtDriverContextCleanup(WDFOBJECT driver) {
  TraceInfoBy(NAME_OF(DriverEntry), "driver goes");
  DRIVER_CONTEXT* context = DriverContextOf(driver);
  EndTracing(context->TraceHandle);
  context->TraceHandle = 0;
}

}  // namespace

extern "C" NTSTATUS DriverEntry(PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath) {
  const REGHANDLE tracing = StartTracing();
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, DRIVER_CONTEXT);
  attributes.EvtCleanupCallback = EvtDriverContextCleanup;
  WDF_DRIVER_CONFIG config;
  WDF_DRIVER_CONFIG_INIT(&config, USB4EvtDeviceAdd);
  WDFDRIVER driver = nullptr;
  const NTSTATUS status = WdfDriverCreate(driverObject, registryPath, &attributes, &config, &driver);
  if (!NT_SUCCESS(status)) {
    EndTracing(tracing);
    return status;
  }
  DriverContextOf(driver)->TraceHandle = tracing;
  TraceInfo("driver loaded");
  return status;
}
