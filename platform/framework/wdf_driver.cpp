// Loading and unloading, WdfDriverCreate, and what must be given back by the time a driver is gone.
#include "platform/framework/wdf_driver.h"

#include "platform/framework/wdf_device.h"
#include "platform/memory/dma_memory.h"
#include "platform/memory/kernel_pool.h"

namespace platform {

void Driver::Release() {
  kernel().driver().object = nullptr;
}

Status LoadedDriver::Load(DriverEntryFunction entry) {
  KernelCall call("driver load", PASSIVE_LEVEL, KernelCall::Silent);
  registryPath_ = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\driver";
  const auto bytes = static_cast<USHORT>(registryPath_.size() * sizeof(char16_t));
  UNICODE_STRING path{bytes, bytes, reinterpret_cast<PWSTR>(registryPath_.data())};
  wdm = {};
  wdm.Size = sizeof(wdm);
  const Status status = CallDriver(kernel_, "DriverEntry", [&] { return entry(&wdm, &path); });
  loaded_ = NT_SUCCESS(status) && object != nullptr;
  if (!loaded_ && object) kernel_.objects().Delete(call, *object);
  return status;
}

void LoadedDriver::Unload(bool deviceLeft) {
  KernelCall call("driver unload", PASSIVE_LEVEL, KernelCall::Silent);
  if (deviceLeft) ReportAndStop(call, Rule::InvalidArgument, "the driver is unloaded while it has a device");
  if (object->config.EvtDriverUnload) {
    const WDFDRIVER handle = object->Handle<WDFDRIVER>();
    CallDriver(kernel_, "EvtDriverUnload", [&] { object->config.EvtDriverUnload(handle); });
  }
  kernel_.objects().Delete(call, *object);
  loaded_ = false;
}

void LoadedDriver::ReportLeaks() {
  if (const std::size_t buffers = kernel_.LiveCommonBuffers()) {
    kernel_.simulation().Report(Rule::CommonBufferLeak, std::to_string(buffers) + " common buffers at unload",
                                static_cast<std::int64_t>(buffers));
  }
  if (const std::size_t objects = kernel_.LiveObjects()) {
    std::string kinds;
    for (const auto& [name, count] : kernel_.ObjectsByType()) kinds += " " + std::to_string(count) + " " + name;
    kernel_.simulation().Report(Rule::HandleLeak, "still referenced at unload:" + kinds,
                                static_cast<std::int64_t>(objects));
  }
}

}  // namespace platform

using namespace platform;

NTSTATUS WdfDriverCreate(PDRIVER_OBJECT DriverObject, PCUNICODE_STRING RegistryPath,
                         PWDF_OBJECT_ATTRIBUTES DriverAttributes, PWDF_DRIVER_CONFIG DriverConfig, WDFDRIVER* Driver) {
  KernelCall call("WdfDriverCreate", PASSIVE_LEVEL);
  LoadedDriver& driver = call.kernel().driver();
  RequireArgument(call, DriverObject == &driver.wdm && RegistryPath != nullptr, "DriverObject or RegistryPath");
  RequireArgument(call, driver.object == nullptr, "a second WDFDRIVER of one driver");
  RequireArgument(call, DriverConfig->Size == sizeof(WDF_DRIVER_CONFIG), "WDF_DRIVER_CONFIG.Size");
  RequireModelled(call, DriverConfig->DriverInitFlags == 0, "DriverInitFlags");
  const ObjectOptions options = ReadAttributes(call, DriverAttributes, nullptr);
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  auto object = std::make_unique<platform::Driver>(call.kernel(), *DriverConfig);
  driver.object = &call.kernel().objects().Add(std::move(object), options);
  if (Driver) *Driver = driver.object->Handle<WDFDRIVER>();
  return STATUS_SUCCESS;
}

WDFDRIVER WdfDeviceGetDriver(WDFDEVICE Device) {
  KernelCall call("WdfDeviceGetDriver", DISPATCH_LEVEL);
  (void)Resolve<platform::Device>(call, Device);
  return call.kernel().driver().object->Handle<WDFDRIVER>();
}

// Asked for by tracing, so a run with an observer must pass as many switch points as one without.
WDFDRIVER WdfGetDriver(VOID) {
  KernelCall call("WdfGetDriver", HIGH_LEVEL, KernelCall::Silent);
  platform::Driver* driver = call.kernel().driver().object;
  return driver ? driver->Handle<WDFDRIVER>() : nullptr;
}
