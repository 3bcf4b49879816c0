// A host with a plain function and a small driver whose callbacks write what happens, line by line, into one log.
// Every test runs first-come and with three seeds.
#pragma once
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <ntddk.h>
#include <wdf.h>

#include "platform/host/host_kernel.h"
#include "platform/host/simulation.h"

namespace wdf_test {

// A function with 64 registers and a configuration space that keeps what is written.
class PlainFunction : public platform::DeviceModel {
 public:
  explicit PlainFunction(std::string& events) : events_(events) {}
  void Attach(platform::PciSlot& plugged) override { slot = &plugged; }
  std::uint32_t ReadRegister(std::uint32_t offset) override { return registers[offset / 4]; }
  void WriteRegister(std::uint32_t offset, std::uint32_t value) override { registers[offset / 4] = value; }
  std::uint32_t ReadConfig(std::uint32_t offset) override { return config[offset / 4]; }
  void WriteConfig(std::uint32_t offset, std::uint32_t value) override { config[offset / 4] = value; }
  void SetPower(platform::FunctionPower power) override;

  platform::PciSlot* slot = nullptr;
  std::uint32_t registers[64] = {};
  std::uint32_t config[64] = {};

 private:
  std::string& events_;
};

struct Context {
  WDFDEVICE Device;
  ULONG Marks;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Context, GetContext)

// What the driver does beyond writing its log. Statuses are what the callback of that name returns.
struct Script {
  std::string log;
  NTSTATUS add = 0, prepare = 0, entry = 0, post = 0, entryFromD3 = 0;
  std::function<void(PWDFDEVICE_INIT)> onInit;
  std::function<void(WDFDEVICE)> onAdd, onEntry, onPost, onPre, onExit, onRelease, onUnload;
  std::function<void(WDFDEVICE, WDFCMRESLIST raw, WDFCMRESLIST translated)> onPrepare;
};

// The driver whose callbacks follow the one script that is alive.
platform::Status DriverEntry(_DRIVER_OBJECT* driverObject, _UNICODE_STRING* registryPath);

// 0: first-come; multiples of 3: priorities; the others: uniform.
platform::SimulationOptions OptionsFor(unsigned seed);

class WdfTest : public testing::TestWithParam<unsigned> {
 protected:
  WdfTest();
  ~WdfTest() override;

  // Loads the driver, adds and starts the device.
  platform::Status Start();
  void Unload() { host.UnloadDriver(); }
  // Runs `body` on a task of the host.
  platform::Outcome InDriver(std::function<void(WDFDEVICE)> body);
  // The log since the last call.
  std::string Log();
  // The one rule that is broken, as "rule in call"; empty when none is. A test that expects one calls this at its end.
  std::string Broken();

  platform::Simulation simulation{OptionsFor(GetParam())};
  Script script;
  PlainFunction function{script.log};
  platform::HostKernel host{simulation};
  platform::DeviceConfig config;
  platform::DeviceId id = 0;

 private:
  bool checked_ = false;
};

#define INSTANTIATE_WDF(suite) INSTANTIATE_TEST_SUITE_P(Seeds, suite, testing::Range(0u, 4u))

}  // namespace wdf_test
