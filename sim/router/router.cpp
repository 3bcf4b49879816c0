// One router: its header, its place, its events.
#include "sim/router/router.h"

#include <utility>

#include "sim/router/capability_layout.h"
#include "sim/rules/pattern.h"

namespace sim {
namespace {

using enum BitKind;

constexpr DelayRange kReady{"sim.router.ready", 1 * kMs, 1 * kMs / 10, 8 * kMs};
constexpr DelayRange kSleepReadyDelay{"sim.router.sleep-ready", 1 * kMs, 1 * kMs / 10, 20 * kMs};
constexpr DelayRange kStartEvent{"sim.router.start-event", 12 * kMs, 1 * kMs, 30 * kMs};

constexpr std::uint32_t kPlugEventsOn = 0x04;  // bits 6:2 of the plug-events control dword
constexpr std::uint32_t kPlugEventsMask = 0x7C;

constexpr RegisterRules kCs1Rules{{13, 8, ReadWrite}, {22, 20, ReadWrite}};
constexpr RegisterRules kCs4Rules{{15, 0, ReadWrite}};
constexpr RegisterRules kCs5Rules{{31, 0, Preserve}, {3, 0, ReadWrite}, {26, 23, ReadWrite}, {31, 31, ReadWrite}};

}  // namespace

Surroundings::~Surroundings() = default;

void Surroundings::Note(const char* name, const std::string& text) {
  if (!simulation_.HasSinks()) return;
  platform::TraceRecord record{};
  record.kind = platform::TraceKind::Device;
  record.when = simulation_.Now();
  record.name = name;
  record.text = text;
  simulation_.Emit(record);
}

Router* Surroundings::AtRoute(const Router& host, std::uint64_t route) const {
  for (const auto& router : routers_) {
    if (router->place().host == &host && router->place().route == route) return router.get();
  }
  return nullptr;
}

Router::Router(Surroundings& fabric, const RouterModel& model, std::string name)
    : fabric_(fabric),
      model_(model),
      name_(std::move(name)),
      notifications_(fabric, *this),
      operations_(*this),
      services_(*this) {
  DefineSpace();
  adapters_.resize(model_.maxAdapter + 1);
  for (unsigned number = 1; number <= model_.maxAdapter; ++number) {
    adapters_[number] = std::make_unique<Adapter>(*this, model_.adapters[number]);
  }
  if (isHost()) place_ = {this, model_.upstream, 0, 0};
}

void Router::DefineSpace() {
  const unsigned first = model_.capabilities.empty() ? 0 : model_.capabilities.front().offset;
  space_.Define(0, static_cast<std::uint32_t>(model_.device) << 16 | model_.vendor);
  // A Thunderbolt 3 device does not know its upstream adapter before it is told.
  const unsigned upstream = model_.usb4() || isHost() ? model_.upstream : 0;
  space_.Define(kRouterCs1,
                first | upstream << 8 | model_.maxAdapter << 14 | static_cast<std::uint32_t>(model_.revision) << 24,
                kCs1Rules);
  space_.Define(kRouterCs2, 0, kAllReadWrite);
  space_.Define(kRouterCs3, 0, kAllReadWrite);
  space_.Define(kRouterCs4, model_.notificationMs | static_cast<std::uint32_t>(model_.usb4Version) << 24, kCs4Rules);
  if (model_.usb4()) {
    space_.Define(kRouterCs5, 0, kCs5Rules);
    space_.Define(kRouterCs6, 0x01000000, kAllStatus);
    space_.Define(7, static_cast<std::uint32_t>(model_.uid));
    space_.Define(8, static_cast<std::uint32_t>(model_.uid >> 32));
    operations_.Define();
    WatchSleep();
  }
  const RouterCapabilities capabilities = DefineRouterCapabilities(space_, model_);
  services_.tmuCapability = capabilities.tmu;
  services_.plugEventsCapability = capabilities.plugEvents;
  services_.linkControllerCapability = capabilities.linkController;
  services_.Define();
  WatchHeader();
}

Adapter* Router::adapter(unsigned number) const {
  return number < adapters_.size() ? adapters_[number].get() : nullptr;
}

// USB4 routers, and the Thunderbolt 3 ones that came after it.
bool Router::takesPartInDpHandshake() const {
  const bool late = model_.device == 0x15E7 || model_.device == 0x15EA || model_.device == 0x15EF;
  return model_.usb4() || (model_.vendor == 0x8086 && late);
}

std::uint64_t Router::configuredRoute() const {
  return static_cast<std::uint64_t>(space_.Get(kRouterCs3) & 0x7FFFFFFF) << 32 | space_.Get(kRouterCs2);
}

Uuid Router::uuid() const {
  return {static_cast<std::uint32_t>(model_.uid), static_cast<std::uint32_t>(model_.uid >> 32), ~0u, ~0u};
}

void Router::SetPlace(const Place& place) {
  place_ = place;
  Adapter* upstream = adapter(place.upstream);
  if (upstream != nullptr && upstream->isLane()) upstream->SetLock(false);
  const bool knows = model_.usb4() && !configured() && place.upstream != 0;
  if (knows) space_.SetBits(kRouterCs1, 0x3F << 8, place.upstream << 8);
}

void Router::Misuse(unsigned adapter, Complaint rule, ComplaintArguments arguments) const {
  std::string object = name_;
  if (adapter != 0) object += ":" + std::to_string(adapter);
  fabric_.errors().Report(fabric_.simulation().Now(), rule, object + " (route " + Route(place_.route) + ")",
                          std::move(arguments));
}

void Router::WatchHeader() {
  space_.OnWrite(kRouterCs3, [this](const ConfigSpace::Access& access) {
    if ((access.now & kConfigurationValid) == 0) return;
    CheckTopologyWritten();
    if ((access.old & kConfigurationValid) != 0) return;
    fabric_.Note("router configured", name_);
    ScheduleStartEvents();
  });
  if (services_.plugEventsCapability == 0) return;
  space_.OnWrite(services_.plugEventsCapability + 1, [this](const ConfigSpace::Access& access) {
    const bool wasOn = (access.old & kPlugEventsMask) == kPlugEventsOn;
    if (!wasOn && (access.now & kPlugEventsMask) == kPlugEventsOn && !model_.usb4()) ScheduleStartEvents();
  });
}

void Router::CheckTopologyWritten() {
  if (!headerRead_) return;
  const std::uint32_t cs1 = space_.Get(kRouterCs1);
  const std::uint32_t depth = (cs1 >> 20) & 7, upstream = (cs1 >> 8) & 0x3F;
  if (configuredRoute() != place_.route || depth != (place_.depth & 7)) {
    Misuse(0, Complaint::ConfiguredRoute, {.route = configuredRoute(), .count = depth});
  }
  if (upstream != place_.upstream) {
    Misuse(0, Complaint::ConfiguredUpstream, {.index = upstream, .limit = place_.upstream});
  }
  const std::uint32_t version = (space_.Get(kRouterCs4) >> 8) & 0xFF;
  if (model_.usb4() && version != kManagerVersion) {
    Misuse(0, Complaint::ManagerVersion, {.value = version, .expected = kManagerVersion});
  }
}

// Displays that are there already, and adapters whose hardware reports them although nobody can use them.
void Router::ScheduleStartEvents() {
  for (auto& adapter : adapters_) {
    auto reports = [](const Adapter& each) { return each.model().eventAtStart || each.dp.display.has_value(); };
    if (adapter == nullptr || !reports(*adapter)) continue;
    fabric_.simulation().After(fabric_.timing().Draw(kStartEvent), "start event",
                               [this, life = life_, adapter = adapter.get(), reports] {
                                 if (life == life_ && reports(*adapter)) PlugChanged(*adapter, false);
                               });
  }
}

void Router::SetBitLater(const DelayRange& delay, platform::HashedName fault, unsigned offset, std::uint32_t bit) {
  if (fabric_.simulation().faults().Fires(fault)) return;
  fabric_.simulation().After(fabric_.timing().Draw(delay), "router status", [this, life = life_, offset, bit] {
    if (life == life_) space_.SetBits(offset, bit, bit);
  });
}

void Router::WatchSleep() {
  space_.OnWrite(kRouterCs5, [this](const ConfigSpace::Access& access) {
    const std::uint32_t risen = access.now & ~access.old;
    const std::uint32_t fallen = access.old & ~access.now;
    if ((risen & kEnterSleep) != 0) ForgetWakes();
    if ((risen & kEnterSleep) != 0) SetBitLater(kSleepReadyDelay, "router.never-sleep-ready", kRouterCs6, kSleepReady);
    if ((fallen & kEnterSleep) != 0) space_.SetBits(kRouterCs6, kSleepReady, 0);
    if ((risen & kConfigurationValid) != 0) SetBitLater(kReady, "router.never-ready", kRouterCs6, kConfigurationReady);
    if ((fallen & kConfigurationValid) != 0) space_.SetBits(kRouterCs6, kConfigurationReady, 0);
  });
}

// What the last sleep was ended by is told until the next one.
void Router::ForgetWakes() {
  space_.SetBits(kRouterCs6, kWakeStatus, 0);
  for (auto& adapter : adapters_) {
    if (adapter != nullptr && adapter->usb4Capability != 0) {
      adapter->space().SetBits(adapter->usb4Capability + kPortCs18, kPortWakeStatus, 0);
    }
  }
}

bool Router::reportsPlugEvents() const {
  if (!configured()) return false;
  if (model_.usb4()) return true;
  const unsigned capability = services_.plugEventsCapability;
  return capability != 0 && (space_.Get(capability + 1) & kPlugEventsMask) == kPlugEventsOn;
}

void Router::PlugChanged(Adapter& adapter, bool unplug) {
  if (fabric_.Asleep(*this)) {
    fabric_.WakeFrom(*this, adapter, unplug);
    return;
  }
  if (reportsPlugEvents() && adapter.hotPlugEnabled()) notifications_.Post(adapter.number(), unplug);
}

void Router::Reset() {
  ++life_;
  busyUntil = 0;
  headerRead_ = false;
  notifications_.Clear();
  operations_.Reset();
  services_.Reset();
  space_.Reset();
  SetPlace(place_);
  for (auto& adapter : adapters_) {
    if (adapter != nullptr) adapter->Reset();
  }
}

void Router::LosePower() {
  operations_.dpReservations().clear();
  Reset();
}

void Router::Drain() {
  for (auto& adapter : adapters_) {
    if (adapter != nullptr) adapter->Drain();
  }
}

bool Router::sleepArmed() const {
  if (!model_.usb4()) return services_.sleepArmed();
  return (space_.Get(kRouterCs5) & kEnterSleep) != 0 && (space_.Get(kRouterCs6) & kSleepReady) != 0;
}

void Router::ClearSleep() {
  if (!model_.usb4()) {
    services_.ClearSleep();
    return;
  }
  space_.SetBits(kRouterCs5, kEnterSleep, 0);
  space_.SetBits(kRouterCs6, kSleepReady, 0);
}

}  // namespace sim
