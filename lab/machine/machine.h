// Kernel, driver, hardware and faults put together: the only assembly. The tool, tests, benchmarks and fuzzers all run
// this.
//
// Used from outside the simulation. One clock and one scheduler for all hosts; each host has its own kernel and its own
// instance of the driver; each controller of a host is a device of that driver.
#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lab/machine/domain_view.h"
#include "lab/machine/machine_config.h"
#include "platform/host/host_kernel.h"
#include "platform/host/simulation.h"
#include "sim/fabric/fabric.h"

struct DEVICE_EXTENSION;

namespace lab {

// A controller of the machine by position.
struct Place {
  std::size_t host = 0;
  std::size_t controller = 0;
  bool operator==(const Place&) const = default;
};

// What the router of a controller is called on cables: the controller's name, "host/H1" where there are several hosts.
std::string HostRouterName(const MachineConfig& config, Place place);

class Machine {
 public:
  // Builds the hardware; nothing runs yet. A topology that cannot exist throws sim::TopologyError.
  explicit Machine(MachineConfig config);
  ~Machine();  // checks nothing; see Remove and Unload
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  const MachineConfig& config() const { return config_; }
  platform::Simulation& simulation() { return simulation_; }
  platform::FaultPlan& faults() { return simulation_.faults(); }
  sim::Fabric& fabric() { return *fabric_; }
  platform::HostKernel& kernel(std::size_t host = 0) { return *hosts_[host].kernel; }
  sim::HostInterface& hostInterface(Place place = {});
  sim::ControlWire& wire(Place place = {});
  std::string DomainName(Place place) const;  // "host/H1"
  std::vector<Place> Places() const;          // every controller, host by host
  // "host/H1" of a device that the trace names; the kernel's own name when it is none of the machine's controllers.
  std::string NameOf(const platform::HostKernel& kernel, platform::DeviceId device) const;

  // --- verbs: each runs until the system would say that it is done
  // Loads the driver of every host, then adds and starts each controller: hosts side by side, the controllers of one
  // host in order. Goes on after a failure.
  void Start();
  // Of add and start; 0 before Start().
  platform::Status StartStatus(Place place = {}) const;
  // Removes every device that is left, orderly, and unloads every driver; the verifier then looks for leaks.
  void RemoveAndUnload();
  // Starts a device once more whose start has failed; others are left alone.
  void RestartIfFailed(Place place);
  platform::DeviceId device(Place place = {}) const;
  platform::PnpState State(Place place = {}) const;  // "removed" before Start()
  bool Added(Place place = {}) const;                // the bus shows it to the driver: started or failed, not removed

  // --- quiet
  // No transition, packet or notification on its way, and nothing due before the idle time-out could be.
  bool Quiet();
  // Runs until Quiet(), at most `within`; Done when it is.
  [[nodiscard]] platform::Outcome WaitQuiet(platform::Time within);

  // --- looking into the driver: `look` runs on a PASSIVE_LEVEL task of the controller's kernel
  // False when the device has no context (not started, or removed); then `look` was not called. A machine that has
  // reached its last step is looked at as it stands (Simulation::RunAlone).
  bool InDriver(Place place, const std::function<void(DEVICE_EXTENSION&)>& look);
  // Copies the domain as its device list shows it; what links are charged comes from the fabric.
  DomainView Domain(Place place = {});
  // Reads every register that the driver knows of every router and adapter of `view` over ring 0, as the driver does.
  void ReadRegisters(Place place, DomainView& view);

 private:
  struct Controller {
    const sim::Router* router = nullptr;
    std::unique_ptr<sim::RouterModel> model;  // the named one with what the configuration overrides
    platform::DeviceId device = 0;
    bool added = false;
    platform::Status startStatus = 0;
  };
  struct Host {
    std::unique_ptr<platform::HostKernel> kernel;
    std::vector<Controller> controllers;
  };
  Controller& At(Place place) { return hosts_[place.host].controllers[place.controller]; }
  const Controller& At(Place place) const { return hosts_[place.host].controllers[place.controller]; }
  std::string RouterName(Place place) const { return HostRouterName(config_, place); }
  void BuildController(Place place);
  void BuildPeer(const PeerHostConfig& config);
  void BuildRouter(const RouterConfig& config);
  std::uint64_t NextUid(std::uint64_t ofModel) { return ofModel + 0x100 * hostRouters_++; }
  void Furnish();
  void BeginController(Place place, std::shared_ptr<unsigned> starting);
  void WaitForStart(const std::shared_ptr<unsigned>& starting);

  MachineConfig config_;
  platform::Simulation simulation_;
  std::vector<std::unique_ptr<sim::RouterModel>> routerModels_;  // the named ones with what the configuration overrides
  std::unique_ptr<sim::Fabric> fabric_;
  std::vector<Host> hosts_;
  std::uint64_t hostRouters_ = 0;  // built so far
};

}  // namespace lab
