// One simulated host: kernel, framework, registry, PnP and power manager, and the driver that it has loaded.
//
// The verbs Load, Start, Remove, ... each run one task of the simulation to its end and return what the system would
// say. They are called from outside the simulation. The *Async forms only begin the verb; PnP verbs of one device never
// overlap.
#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/companion.h"
#include "platform/host/device_model.h"
#include "platform/host/io_request.h"
#include "platform/host/simulation.h"

struct _DRIVER_OBJECT;
struct _UNICODE_STRING;

namespace platform {

using Status = std::int32_t;  // an NTSTATUS
using DriverEntryFunction = Status (*)(_DRIVER_OBJECT* driverObject, _UNICODE_STRING* registryPath);

// One entry of a device's resource list, as the bus hands it out, in this order.
struct Resource {
  enum class Kind { Interrupt, Memory, Other, Missing };  // Missing: the framework returns no descriptor for this index
  Kind kind = Kind::Other;
  std::uint64_t start = 0;    // Memory: bus address
  std::uint32_t length = 0;   // Memory: bytes
  std::uint32_t message = 0;  // Interrupt: message number
};

struct DeviceConfig {
  std::string hardwareId;  // first string of the hardware-ID property, "PCI\\VEN_1F3A&DEV_3A0E&SUBSYS_..."
  std::vector<Resource> resources;
  DeviceModel* model = nullptr;  // borrowed
  // Values below the device-parameters key: "USB3Tunnel\\USB3TunnelSupported" -> 1.
  std::map<std::string, std::uint32_t> parameters;
  Status acpiStatus = 0;  // what evaluating an ACPI method gives
  Time acpiDelay = 0;     // and after which virtual time
};

struct HostKernelOptions {
  std::string name = "host";
  // Registry values outside the device's keys: full key path "\\Registry\\Machine\\..." -> value name -> text.
  std::map<std::string, std::map<std::string, std::string>> registryText;
  std::string fileRoot;  // directory of the host in which kernel file calls land; empty: calls fail
};

enum class SystemPowerAction { None = 0, Sleep = 2, Hibernate = 3 };

using DeviceId = unsigned;

// A device's place in PnP and power, as the manager sees it.
enum class PnpState { Added, Started, Failed, SurpriseRemoved, Removed };
enum class DevicePower { D0, D3, Off };

struct PowerReferences {
  std::int64_t held = 0;           // taken by WdfDeviceStopIdle and not given back
  std::int64_t leftAtRemoval = 0;  // still held when the device went
};

class HostKernel {
 public:
  HostKernel(Simulation& simulation, HostKernelOptions options = {});
  ~HostKernel();
  HostKernel(const HostKernel&) = delete;
  HostKernel& operator=(const HostKernel&) = delete;

  Simulation& simulation() { return simulation_; }
  const HostKernelOptions& options() const { return options_; }

  // --- driver
  Status LoadDriver(DriverEntryFunction entry);
  // Unloads once every device is gone; then checks pool, handles, mappings and buffers for leaks (rules *-leak).
  void UnloadDriver();
  bool DriverLoaded() const;

  // --- PnP and power: verbs
  // AddAndStart, Remove, Disable and Enable begin after the next resume when the system sleeps.
  //
  // Device add, prepare hardware, D0 entry, interrupts connected, post-interrupts-enabled. The status of the first
  // failure.
  Status AddAndStart(const DeviceConfig& config, DeviceId* id);
  void Remove(DeviceId id);                    // orderly: D0 exit to D3Final, release hardware, delete
  void SurpriseRemove(DeviceId id);            // registers read all ones at once; then the documented callbacks
  void Disable(DeviceId id);                   // as Remove but the device stays known
  Status Enable(DeviceId id);                  // as AddAndStart
  void SystemSleep(SystemPowerAction action);  // every device to Dx, deepest child first
  void SystemResume();                         // every device to D0
  bool SystemAsleep() const;                   // or will be, once all that was asked for has happened

  // The same verbs, begun now and run by later RunUntil/RunFor calls; Busy() until ended.
  DeviceId AddAndStartAsync(const DeviceConfig& config, std::function<void(Status)> done);
  void RemoveAsync(DeviceId id);
  void EnableAsync(DeviceId id, std::function<void(Status)> done);
  void SurpriseRemoveAsync(DeviceId id);
  void SystemSleepAsync(SystemPowerAction action);
  void SystemResumeAsync();
  bool WaitsForResume() const;  // a start or an orderly removal was asked for while the system sleeps
  bool Busy() const;            // a PnP or power transition is in progress or queued

  // --- requests of clients ---
  // Brings the request to the device's queues on a task of its own; completed when the driver has completed it.
  std::shared_ptr<PendingIo> SendAsync(DeviceId id, IoRequest request);
  // The same, and runs the simulation until it is completed or `within` has passed.
  std::shared_ptr<PendingIo> Send(DeviceId id, IoRequest request, Time within = kNever);

  // --- companion drivers, whose device interfaces the driver finds and sends to
  void Offer(Companion companion);
  void Withdraw(std::string_view symbolicLink);

  PnpState State(DeviceId id) const;
  DevicePower Power(DeviceId id) const;
  PowerReferences References(DeviceId id) const;

  // --- views for the tool and tests
  std::size_t PoolBytes() const;  // live pool, and by tag
  std::map<std::string, std::size_t> PoolByTag() const;
  std::size_t LiveObjects() const;  // framework objects, the driver object included
  std::map<std::string, std::size_t> ObjectsByType() const;
  std::size_t LiveMappings() const;
  std::size_t LiveCommonBuffers() const;
  // The device interfaces registered by a device, as text "{8cb2d6d3-...}".
  std::vector<std::string> Interfaces(DeviceId id) const;
  // The WDFDEVICE of a started device; for code that runs on a task of this kernel.
  void* FrameworkDevice(DeviceId id) const;

  // The parts behind the calls in higher rooms; for the platform's own files. `state`: waits, lock order, trace
  // providers.
  class KernelState& state() {
    return *state_;
  }
  class Pool& pool() {
    return *pool_;
  }
  class IoMappings& mappings() {
    return *mappings_;
  }
  class Registry& registry() {
    return *registry_;
  }
  class ObjectTable& objects() {
    return *objects_;
  }
  class PnpManager& pnp() {
    return *pnp_;
  }
  class LoadedDriver& driver() {
    return *driver_;
  }
  class DeviceInits& deviceInits() {
    return *deviceInits_;
  }
  class DmaMemory& dmaMemory() {
    return *dmaMemory_;
  }

 private:
  void RunVerb(const char* name, std::function<void()> verb);
  void BeginVerb(const char* name, std::function<void()> verb);

  Simulation& simulation_;
  HostKernelOptions options_;
  std::unique_ptr<KernelState> state_;  // outlives the pool, whose frees look for waiters
  std::unique_ptr<Pool> pool_;
  std::unique_ptr<IoMappings> mappings_;
  std::unique_ptr<Registry> registry_;
  std::unique_ptr<DmaMemory> dmaMemory_;
  std::unique_ptr<LoadedDriver> driver_;
  std::unique_ptr<DeviceInits> deviceInits_;
  std::unique_ptr<ObjectTable> objects_;
  std::unique_ptr<PnpManager> pnp_;
};

}  // namespace platform
