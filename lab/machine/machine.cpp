// Builds hosts from their configuration and keeps what belongs together alive in the right order.
#include "lab/machine/machine.h"

#include <algorithm>

#include "lab/machine/waivers.h"
#include "sim/dataplane/display_adapter.h"
#include "sim/dataplane/usb3_function.h"

extern "C" platform::Status DriverEntry(_DRIVER_OBJECT* driverObject, _UNICODE_STRING* registryPath);

namespace lab {
namespace {

// Where firmware would have put the first BAR; the others follow, each on its own boundary.
constexpr std::uint64_t kFirstBar = 0x90000000;
constexpr std::uint64_t kBarSpacing = 0x10000000;
// The longest that the driver waits without anything outstanding, below its shortest idle time-out of 15 s after work.
constexpr platform::Time kQuietHorizon = 6 * platform::kSecond;

constexpr platform::Status kNotStarted = static_cast<platform::Status>(0xC0000001);
constexpr const char* kComputerNameKey =
    "\\Registry\\Machine\\System\\CurrentControlSet\\Control\\ComputerName\\ActiveComputerName";

std::vector<platform::Resource> DefaultResources(std::uint64_t bar, std::uint32_t barBytes, unsigned messages) {
  std::vector<platform::Resource> resources;
  platform::Resource memory;
  memory.kind = platform::Resource::Kind::Memory;
  memory.start = bar;
  memory.length = barBytes;
  resources.push_back(memory);
  for (unsigned i = 0; i < messages; ++i) {
    platform::Resource interrupt;
    interrupt.kind = platform::Resource::Kind::Interrupt;
    interrupt.message = i;
    resources.push_back(interrupt);
  }
  return resources;
}

unsigned CountInterrupts(const std::vector<platform::Resource>& resources) {
  unsigned count = 0;
  for (const platform::Resource& resource : resources) count += resource.kind == platform::Resource::Kind::Interrupt;
  return count;
}

}  // namespace

std::vector<std::string> HostModelNames() {
  std::vector<std::string> names;
  for (const std::string& name : sim::ModelNames()) {
    if (sim::FindModel(name)->host) names.push_back(name);
  }
  return names;
}

std::vector<std::string> DeviceModelNames() {
  std::vector<std::string> names;
  for (const std::string& name : sim::ModelNames()) {
    if (!sim::FindModel(name)->host) names.push_back(name);
  }
  return names;
}

std::string HostRouterName(const MachineConfig& config, Place place) {
  const HostConfig& host = config.hosts[place.host];
  const std::string& name = host.controllers[place.controller].name;
  return config.hosts.size() == 1 ? name : host.name + "/" + name;
}

Machine::Machine(MachineConfig config)
    : config_(std::move(config)), simulation_(config_.simulation), fabric_(std::make_unique<sim::Fabric>(simulation_)) {
  simulation_.waivers() = KnownWaivers();
  for (std::size_t host = 0; host < config_.hosts.size(); ++host) {
    platform::HostKernelOptions options;
    options.name = config_.hosts[host].name;
    options.registryText[kComputerNameKey]["ComputerName"] = config_.hosts[host].computerName;
    hosts_.push_back({std::make_unique<platform::HostKernel>(simulation_, options), {}});
    hosts_.back().controllers.resize(config_.hosts[host].controllers.size());
    for (std::size_t i = 0; i < hosts_.back().controllers.size(); ++i) BuildController({host, i});
  }
  for (const PeerHostConfig& peer : config_.peers) BuildPeer(peer);
  for (const RouterConfig& router : config_.routers) BuildRouter(router);
  for (const CableConfig& cable : config_.cables) fabric_->Connect(cable.first, cable.second, cable.options);
  Furnish();
}

void Machine::BuildPeer(const PeerHostConfig& config) {
  const sim::RouterModel* named = sim::FindModel(config.model);
  if (named == nullptr || !named->host) throw sim::TopologyError("no host model \"" + config.model + "\"");
  sim::RouterModel& model = *routerModels_.emplace_back(std::make_unique<sim::RouterModel>(*named));
  const std::uint64_t next = NextUid(named->uid);
  model.uid = config.uid.value_or(next);
  if (config.peer.lanes == 1) model.laneWidths = 1;
  sim::PeerConfig peer = config.peer;
  if (!config.sameUuidAs.empty()) {
    const sim::Router* other = fabric_->Find(config.sameUuidAs);
    if (other == nullptr) throw sim::TopologyError("no host \"" + config.sameUuidAs + "\"");
    peer.uuid = other->uuid();
  }
  fabric_->AddPeer(model, std::move(peer));
}

void Machine::BuildRouter(const RouterConfig& config) {
  const sim::RouterModel* named = sim::FindModel(config.model);
  if (named == nullptr) throw sim::TopologyError("no model \"" + config.model + "\"");
  sim::RouterModel& model = *routerModels_.emplace_back(std::make_unique<sim::RouterModel>(*named));
  if (config.notificationMs) model.notificationMs = *config.notificationMs;
  fabric_->AddRouter(model, config.name);
}

// What stood at the adapters, and what firmware had done, when the machine was switched on.
void Machine::Furnish() {
  const auto adapter = [this](const std::string& name) -> sim::Adapter& {
    sim::Adapter* found = fabric_->FindAdapter(name);
    if (found == nullptr) throw sim::TopologyError("no adapter \"" + name + "\"");
    return *found;
  };
  for (const DisplayConfig& display : config_.displays) {
    sim::DpFacts facts = adapter(display.adapter).dp;
    facts.display = display.display;
    sim::SetDpFacts(adapter(display.adapter), facts);
  }
  for (const Usb3Config& usb3 : config_.usb3) sim::SetUsb3Facts(adapter(usb3.adapter), usb3.facts);
  for (const CableConfig& cable : config_.cables) {
    if (cable.bondedByFirmware) sim::BondByFirmware(*fabric_, cable.first);
  }
  for (const sim::FirmwareTunnel& tunnel : config_.firmware) sim::SetUpFirmwareTunnel(*fabric_, tunnel);
}

Machine::~Machine() = default;

std::string Machine::DomainName(Place place) const {
  const HostConfig& host = config_.hosts[place.host];
  return host.name + "/" + host.controllers[place.controller].name;
}

std::vector<Place> Machine::Places() const {
  std::vector<Place> places;
  for (std::size_t host = 0; host < hosts_.size(); ++host) {
    for (std::size_t i = 0; i < hosts_[host].controllers.size(); ++i) places.push_back({host, i});
  }
  return places;
}

// Devices are added in the order of the controllers and the bus numbers them from 1, so that a device has its name
// before its start, whose events name it, has returned.
std::string Machine::NameOf(const platform::HostKernel& kernel, platform::DeviceId device) const {
  for (std::size_t host = 0; host < hosts_.size(); ++host) {
    if (hosts_[host].kernel.get() == &kernel && device >= 1 && device <= hosts_[host].controllers.size()) {
      return DomainName({host, device - 1});
    }
  }
  return kernel.options().name;
}

void Machine::BuildController(Place place) {
  ControllerConfig& config = config_.hosts[place.host].controllers[place.controller];
  Controller& controller = At(place);
  const sim::RouterModel* named = sim::FindModel(config.model);
  if (named == nullptr || !named->hostInterface) throw sim::TopologyError("no host model \"" + config.model + "\"");
  controller.model = std::make_unique<sim::RouterModel>(*named);
  const std::uint64_t next = NextUid(named->uid);
  controller.model->uid = config.uid.value_or(next);
  sim::HostInterfaceConfig& interface = *controller.model->hostInterface;
  if (config.pciIdentity) {
    interface.pci.vendor = static_cast<std::uint16_t>(*config.pciIdentity);
    interface.pci.device = static_cast<std::uint16_t>(*config.pciIdentity >> 16);
    interface.pci.powerOnSequence = *config.pciIdentity == 0x9A1B8086;
  }
  if (config.hopCount) interface.hopCount = *config.hopCount;
  if (config.resources) {
    interface.messages = CountInterrupts(*config.resources);
  } else {
    config.resources =
        DefaultResources(kFirstBar + place.controller * kBarSpacing, interface.barBytes, interface.messages);
  }
  controller.router = &fabric_->AddRouter(*controller.model, RouterName(place));
  fabric_->firmware(RouterName(place)).SetAnswer(config.handOver);
}

sim::HostInterface& Machine::hostInterface(Place place) {
  return fabric_->hostInterface(RouterName(place));
}

sim::ControlWire& Machine::wire(Place place) {
  return fabric_->wire(RouterName(place));
}

void Machine::BeginController(Place place, std::shared_ptr<unsigned> starting) {
  const ControllerConfig& config = config_.hosts[place.host].controllers[place.controller];
  Controller& controller = At(place);
  platform::DeviceConfig device;
  device.hardwareId = config.hardwareId;
  device.resources = *config.resources;
  device.model = &hostInterface(place);
  device.parameters = config.parameters;
  device.acpiStatus = config.acpiStatus;
  device.acpiDelay = config.acpiDelay;
  controller.added = true;
  controller.startStatus = kNotStarted;
  ++*starting;
  controller.device = kernel(place.host).AddAndStartAsync(device, [&controller, starting](platform::Status status) {
    controller.startStatus = status;
    --*starting;
  });
}

void Machine::WaitForStart(const std::shared_ptr<unsigned>& starting) {
  simulation_.RunUntil([starting] { return *starting == 0; });
}

void Machine::Start() {
  std::size_t controllers = 0;
  std::vector<platform::Status> loaded;
  for (std::size_t host = 0; host < hosts_.size(); ++host) {
    loaded.push_back(kernel(host).LoadDriver(&DriverEntry));
    controllers = std::max(controllers, hosts_[host].controllers.size());
    if (loaded[host] < 0) {
      for (Controller& controller : hosts_[host].controllers) controller.startStatus = loaded[host];
    }
  }
  for (std::size_t i = 0; i < controllers && !simulation_.Stopped(); ++i) {
    const auto starting = std::make_shared<unsigned>(0);
    for (std::size_t host = 0; host < hosts_.size(); ++host) {
      if (loaded[host] >= 0 && i < hosts_[host].controllers.size()) BeginController({host, i}, starting);
    }
    WaitForStart(starting);
  }
}

void Machine::RestartIfFailed(Place place) {
  if (!At(place).added) {
    const auto starting = std::make_shared<unsigned>(0);
    BeginController(place, starting);
    return WaitForStart(starting);
  }
  if (kernel(place.host).State(device(place)) == platform::PnpState::Failed) {
    At(place).startStatus = kernel(place.host).Enable(device(place));
  }
}

platform::Status Machine::StartStatus(Place place) const {
  return At(place).startStatus;
}

platform::DeviceId Machine::device(Place place) const {
  return At(place).device;
}

platform::PnpState Machine::State(Place place) const {
  return At(place).added ? hosts_[place.host].kernel->State(At(place).device) : platform::PnpState::Removed;
}

bool Machine::Added(Place place) const {
  return State(place) != platform::PnpState::Removed;
}

void Machine::RemoveAndUnload() {
  for (Place place : Places()) {
    if (!simulation_.Stopped() && kernel(place.host).SystemAsleep()) kernel(place.host).SystemResume();
    if (simulation_.Stopped()) return;
    if (Added(place)) kernel(place.host).Remove(device(place));
  }
  for (std::size_t host = 0; host < hosts_.size() && !simulation_.Stopped(); ++host) {
    if (kernel(host).DriverLoaded()) kernel(host).UnloadDriver();
  }
}

bool Machine::Quiet() {
  for (const Host& host : hosts_) {
    if (host.kernel->Busy()) return false;
  }
  return fabric_->Quiet() && simulation_.QuietUntil(simulation_.Now() + kQuietHorizon);
}

platform::Outcome Machine::WaitQuiet(platform::Time within) {
  if (Quiet()) return platform::Outcome::Done;
  return simulation_.RunUntil([this] { return Quiet(); }, simulation_.Now() + within);
}

}  // namespace lab
