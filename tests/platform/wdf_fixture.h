// A host with a plain function and a small driver whose callbacks write what happens, line by line, into one log.
// Every test runs first-come and with three seeds, every break of a rule first-come.
#pragma once
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <ntddk.h>
#include <wdf.h>

#include "platform/host/host_kernel.h"
#include "platform/host/simulation.h"
#include "tests/platform/kernel_verbs.h"
#include "tests/platform/rule_tests.h"

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

// Adds a line to that script's log.
void Write(const std::string& line);

// The driver whose callbacks follow the one script that is alive.
platform::Status DriverEntry(_DRIVER_OBJECT* driverObject, _UNICODE_STRING* registryPath);

// 0: first-come; multiples of 3: priorities; the others: uniform.
platform::SimulationOptions OptionsFor(unsigned seed);

struct DriverRig {
  explicit DriverRig(platform::SimulationOptions options = {});

  // Loads the driver, adds and starts the device.
  platform::Status Start();
  // Runs `body` on a task of the host.
  void InDriver(std::function<void(WDFDEVICE)> body);
  // Both.
  void WithDevice(std::function<void(WDFDEVICE)> body);
  // Brings the device to D3 by the default time-out; it was given idle settings.
  void RunToIdle();
  // Lets virtual time pass until the host has nothing to do.
  void Settle();
  // Removes the device and unloads the driver.
  void Finish();
  void Unload() { host.UnloadDriver(); }
  // The log since the last call.
  std::string Log();

  platform::Simulation simulation;
  Script script;
  PlainFunction function{script.log};
  platform::HostKernel host{simulation};
  platform::DeviceConfig config;
  platform::DeviceId id = 0;
};

// Breaks of one rule each (rule_tests.h): the body has the rig, or the started device on a task.
#define DRIVER_BREAKS(testName, ruleName, callName) BREAKS_ON(::wdf_test::DriverRig, testName, ruleName, callName)
#define DEVICE_BREAKS(testName, ruleName, callName) \
  static void Device##testName(WDFDEVICE device);   \
  DRIVER_BREAKS(testName, ruleName, callName) {     \
    rig.WithDevice(&Device##testName);              \
  }                                                 \
  static void Device##testName([[maybe_unused]] WDFDEVICE device)

// 0 ms: the framework's own time-out, 5 s.
void AssignIdle(WDFDEVICE device, ULONG timeoutMs = 0);
void AssignWake(WDFDEVICE device);

// The device's memory: PlainFunction's registers and room after them. From a task.
constexpr std::size_t kMemoryBytes = 0x1000;
ULONG* MapRegisters();

// A test whose driver is still loaded at its end is finished then, and must have broken no rule.
class WdfTest : public testing::TestWithParam<unsigned>, protected DriverRig {
 protected:
  WdfTest() : DriverRig(OptionsFor(GetParam())) {}
  void TearDown() override;
  void StartQuietly() {
    ASSERT_EQ(Start(), 0);
    Log();
  }
  // The one rule that is broken, as "rule in call"; empty when none is. A test that expects one calls this at its end.
  std::string Broken();

 private:
  bool checked_ = false;
};

#define INSTANTIATE_WDF(suite) INSTANTIATE_TEST_SUITE_P(Seeds, suite, testing::Range(0u, 4u))

}  // namespace wdf_test
