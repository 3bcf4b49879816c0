// The driver that a host has loaded: its driver object and WDFDRIVER. On tasks of the host.
#pragma once
#include <memory>
#include <string>

#include "platform/framework/wdf_object.h"

namespace platform {

class Driver final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::Driver;
  Driver(HostKernel& kernel, const WDF_DRIVER_CONFIG& asked) : Object(kernel, kType), config(asked) {}
  void Release() override;

  const WDF_DRIVER_CONFIG config;
};

class LoadedDriver {
 public:
  explicit LoadedDriver(HostKernel& kernel) : kernel_(kernel) {}

  Status Load(DriverEntryFunction entry);
  void Unload(bool deviceLeft);  // deviceLeft: a device of the driver has not gone, which is a violation
  bool Loaded() const { return loaded_; }
  void ReportLeaks();  // framework objects and common buffers that are left after the unload

  Driver* object = nullptr;  // the WDFDRIVER, from WdfDriverCreate to its deletion
  DRIVER_OBJECT wdm{};

 private:
  HostKernel& kernel_;
  std::u16string registryPath_;
  bool loaded_ = false;
};

}  // namespace platform
