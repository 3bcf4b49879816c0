// The verbs of a host, each one task of the simulation, and the views of its parts.
#include "platform/host/host_kernel.h"

#include "platform/framework/wdf_device.h"
#include "platform/framework/wdf_driver.h"
#include "platform/framework/wdf_request.h"
#include "platform/kernel/kernel_state.h"
#include "platform/kernel/registry.h"
#include "platform/memory/dma_memory.h"
#include "platform/memory/kernel_pool.h"
#include "platform/pnp/pnp_manager.h"

namespace platform {

HostKernel::HostKernel(Simulation& simulation, HostKernelOptions options)
    : simulation_(simulation),
      options_(std::move(options)),
      state_(std::make_unique<KernelState>(simulation, options_.name)),
      pool_(std::make_unique<Pool>(simulation, state_->waits)),
      mappings_(std::make_unique<IoMappings>(simulation)),
      registry_(std::make_unique<Registry>(simulation)),
      dmaMemory_(std::make_unique<DmaMemory>()),
      driver_(std::make_unique<LoadedDriver>(*this)),
      deviceInits_(std::make_unique<DeviceInits>()),
      objects_(std::make_unique<ObjectTable>(*this)),
      pnp_(std::make_unique<PnpManager>(*this)) {
  for (const auto& [path, values] : options_.registryText) {
    RegistryKey& key = registry_->Create(path);
    for (const auto& [name, text] : values) key.SetText(name, text);
  }
}

HostKernel::~HostKernel() = default;

// --- driver ---

Status HostKernel::LoadDriver(DriverEntryFunction entry) {
  auto status = std::make_shared<Status>(STATUS_UNSUCCESSFUL);
  simulation_.RunTask(this, "load driver", [this, entry, status] { *status = driver_->Load(entry); });
  return *status;
}

void HostKernel::UnloadDriver() {
  if (driver_->Loaded() &&
      simulation_.RunTask(this, "unload driver", [this] { driver_->Unload(pnp_->HasDevice()); }) != Outcome::Done) {
    return;
  }
  // Outside of a task, so that one leak does not hide the next.
  driver_->ReportLeaks();
  pool_->ReportLeaks();
  mappings_->ReportLeaks();
  registry_->ReportLeaks();
  state_->ReportLeaks();
}

bool HostKernel::DriverLoaded() const {
  return driver_->Loaded();
}

// --- PnP and power ---

void HostKernel::BeginVerb(const char* name, std::function<void()> verb) {
  ++pnp_->verbs;
  simulation_.Spawn(this, name, [this, verb = std::move(verb)] {
    verb();
    --pnp_->verbs;
  });
}

void HostKernel::RunVerb(const char* name, std::function<void()> verb) {
  ++pnp_->verbs;
  simulation_.RunTask(this, name, [this, verb = std::move(verb)] {
    verb();
    --pnp_->verbs;
  });
}

Status HostKernel::AddAndStart(const DeviceConfig& config, DeviceId* id) {
  DeviceNode& node = pnp_->Add(config);
  *id = node.id();
  return Enable(node.id());
}

Status HostKernel::Enable(DeviceId id) {
  auto status = std::make_shared<Status>(STATUS_UNSUCCESSFUL);
  RunVerb("start device", [this, id, status] { *status = pnp_->Start(*pnp_->Find(id)); });
  return *status;
}

void HostKernel::Remove(DeviceId id) {
  RunVerb("remove device", [this, id] { pnp_->Remove(*pnp_->Find(id)); });
}

void HostKernel::Disable(DeviceId id) {
  RunVerb("disable device", [this, id] { pnp_->Remove(*pnp_->Find(id)); });
}

void HostKernel::SurpriseRemove(DeviceId id) {
  pnp_->BeginSurpriseRemoval(*pnp_->Find(id));
  RunVerb("surprise removal", [this, id] { pnp_->FinishSurpriseRemoval(*pnp_->Find(id)); });
}

void HostKernel::SystemSleep(SystemPowerAction action) {
  pnp_->RequestSleep(action);
  RunVerb("system sleep", [this] { pnp_->RunSystemRequests(); });
}

void HostKernel::SystemResume() {
  pnp_->RequestResume();
  RunVerb("system resume", [this] { pnp_->RunSystemRequests(); });
}

void HostKernel::RemoveAsync(DeviceId id) {
  BeginVerb("remove device", [this, id] { pnp_->Remove(*pnp_->Find(id)); });
}

DeviceId HostKernel::AddAndStartAsync(const DeviceConfig& config, std::function<void(Status)> done) {
  const DeviceId id = pnp_->Add(config).id();
  EnableAsync(id, std::move(done));
  return id;
}

void HostKernel::EnableAsync(DeviceId id, std::function<void(Status)> done) {
  BeginVerb("start device", [this, id, done = std::move(done)] { done(pnp_->Start(*pnp_->Find(id))); });
}

void HostKernel::SurpriseRemoveAsync(DeviceId id) {
  pnp_->BeginSurpriseRemoval(*pnp_->Find(id));
  BeginVerb("surprise removal", [this, id] { pnp_->FinishSurpriseRemoval(*pnp_->Find(id)); });
}

void HostKernel::SystemSleepAsync(SystemPowerAction action) {
  pnp_->RequestSleep(action);
  BeginVerb("system sleep", [this] { pnp_->RunSystemRequests(); });
}

void HostKernel::SystemResumeAsync() {
  pnp_->RequestResume();
  BeginVerb("system resume", [this] { pnp_->RunSystemRequests(); });
}

bool HostKernel::SystemAsleep() const {
  return pnp_->SleepIsAhead();
}

bool HostKernel::WaitsForResume() const {
  return pnp_->WaitsForResume();
}

bool HostKernel::Busy() const {
  return pnp_->Busy();
}

PnpState HostKernel::State(DeviceId id) const {
  return pnp_->Find(id)->state;
}

DevicePower HostKernel::Power(DeviceId id) const {
  return pnp_->Find(id)->power;
}

PowerReferences HostKernel::References(DeviceId id) const {
  const PowerPolicy& policy = pnp_->Find(id)->policy;
  return {policy.References(), policy.ReferencesLeft()};
}

// --- companions ---

void HostKernel::Offer(Companion companion) {
  state_->companions.Offer(std::move(companion));
}

void HostKernel::Withdraw(std::string_view symbolicLink) {
  state_->companions.Withdraw(symbolicLink);
}

// --- requests ---

std::shared_ptr<PendingIo> HostKernel::SendAsync(DeviceId id, IoRequest request) {
  auto io = std::make_shared<PendingIo>();
  io->request = std::move(request);
  simulation_.Spawn(this, "client", [this, id, io] {
    KernelCall call("client request", PASSIVE_LEVEL, KernelCall::Silent);
    Device* device = pnp_->Find(id)->device;
    if (device) return Dispatch(call, *device, io);
    io->status = STATUS_NO_SUCH_DEVICE;
    io->completed = true;
  });
  return io;
}

std::shared_ptr<PendingIo> HostKernel::Send(DeviceId id, IoRequest request, Time within) {
  std::shared_ptr<PendingIo> io = SendAsync(id, std::move(request));
  simulation_.RunUntil([&] { return io->completed; }, within == kNever ? kNever : simulation_.Now() + within);
  return io;
}

// --- views ---

std::size_t HostKernel::PoolBytes() const {
  return pool_->LiveBytes();
}
std::map<std::string, std::size_t> HostKernel::PoolByTag() const {
  return pool_->BytesByTag();
}
std::size_t HostKernel::LiveObjects() const {
  return objects_->live();
}
std::size_t HostKernel::LiveMappings() const {
  return mappings_->Live();
}
std::size_t HostKernel::LiveCommonBuffers() const {
  return dmaMemory_->live();
}

std::map<std::string, std::size_t> HostKernel::ObjectsByType() const {
  std::map<std::string, std::size_t> counts;
  for (unsigned i = 0; i < static_cast<unsigned>(ObjectType::Count); ++i) {
    const auto type = static_cast<ObjectType>(i);
    if (const std::size_t live = objects_->live(type)) counts[TypeName(type)] = live;
  }
  return counts;
}

std::vector<std::string> HostKernel::Interfaces(DeviceId id) const {
  const Device* device = pnp_->Find(id)->device;
  return device ? device->interfaces : std::vector<std::string>{};
}

void* HostKernel::FrameworkDevice(DeviceId id) const {
  const Device* device = pnp_->Find(id)->device;
  return device ? device->handle() : nullptr;
}

}  // namespace platform
