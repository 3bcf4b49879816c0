// What the fabric keeps and loses when its host sleeps, hibernates and comes back, and what wakes it.
#include "sim/fabric/fabric_host.h"

namespace sim {
namespace {

constexpr DelayRange kLanesResume{"sim.power.lanes-resume", 10 * kMs, 5 * kMs, 50 * kMs};

constexpr std::uint32_t kWakeOnConnect = 1u << 16;  // PORT_CS_19
constexpr std::uint32_t kWakeOnDisconnect = 1u << 17;
constexpr std::uint32_t kWakeOnUsb4 = 1u << 18;
constexpr std::uint32_t kLcWakeOnPlug = 3u << 1;  // link controller port control
constexpr std::uint32_t kLcWakeOnUsb4 = 1u << 5;
constexpr std::uint32_t kLcWakeOnPcie = 1u << 6;
constexpr std::uint32_t kRouterWakeOnPcie = 1u << 1;  // ROUTER_CS_5
constexpr std::uint32_t kRouterWakeOnUsb3 = 1u << 2;
constexpr std::uint32_t kRouterWakeOnDp = 1u << 3;
constexpr std::uint32_t kWokenByPcie = 1u << 2;  // ROUTER_CS_6
constexpr std::uint32_t kWokenByUsb3 = 1u << 3;

std::uint32_t PortWakeBits(const Adapter& adapter) {
  return adapter.usb4Capability == 0 ? 0 : adapter.space().Get(adapter.usb4Capability + kPortCs19);
}

bool PortWakesOn(Router& router, Adapter& adapter, bool unplug) {
  if (!router.model().usb4()) return (router.services().PortControl(adapter) & kLcWakeOnPlug) != 0;
  return (PortWakeBits(adapter) & (unplug ? kWakeOnDisconnect : kWakeOnConnect)) != 0;
}

// A link controller has its PCIe bit in the block of each port; the wake leaves through the upstream one.
bool LinkControllerWakesOnPcie(Router& router) {
  const Adapter* upstream = router.adapter(router.upstreamAdapter());
  return upstream != nullptr && (router.services().PortControl(*upstream) & kLcWakeOnPcie) != 0;
}

bool WakesOn(Router& router, Adapter& adapter, bool unplug) {
  const std::uint32_t armed = router.model().usb4() ? router.space().Get(kRouterCs5) : 0;
  switch (adapter.type()) {
    case kTypeLane:
      return PortWakesOn(router, adapter, unplug);
    case kTypeDpOut:
      return (armed & kRouterWakeOnDp) != 0;
    case kTypePcieDown:
      return router.model().usb4() ? (armed & kRouterWakeOnPcie) != 0 : LinkControllerWakesOnPcie(router);
    case kTypeUsb3Down:
      return (armed & kRouterWakeOnUsb3) != 0;
    default:
      return false;
  }
}

// What a USB4 router shows until it is sent to sleep again.
void ShowWake(Router& router, const Adapter& adapter) {
  if (!router.model().usb4()) return;
  if (adapter.type() == kTypePcieDown) router.space().SetBits(kRouterCs6, kWokenByPcie, kWokenByPcie);
  if (adapter.type() == kTypeUsb3Down) router.space().SetBits(kRouterCs6, kWokenByUsb3, kWokenByUsb3);
}

bool PassesWake(const Adapter& adapter) {
  if (adapter.router().model().usb4()) return (PortWakeBits(adapter) & kWakeOnUsb4) != 0;
  return (adapter.router().services().PortControl(adapter) & kLcWakeOnUsb4) != 0;
}

// A router whose upstream neighbour starts from reset does so too, armed or not.
bool ArmedUpToHost(Router& router) {
  Router* at = &router;
  while (at->sleepArmed()) {
    if (at->isHost()) return true;
    Adapter* upstream = at->adapter(at->upstreamAdapter());
    Adapter* above = upstream == nullptr || upstream->link == nullptr ? nullptr : upstream->link->Opposite(*upstream);
    if (above == nullptr) return false;
    at = &above->router();
  }
  return false;
}

}  // namespace

void Fabric::HostPowerChanged(Host& host, platform::FunctionPower power) {
  if (power == platform::FunctionPower::D0) {
    Wake(host);
  } else {
    Sleep(host, power);
  }
}

// With the sleep handshake a router keeps everything; without it, or without supply, it starts from reset.
void Fabric::Sleep(Host& host, platform::FunctionPower power) {
  Note("host sleeps", host.router.name());
  for (auto& router : routers_) {
    if (router->place().host != &host.router) continue;
    router->notifications().Clear();
    const bool kept = host.asleep ? router->stateKept : ArmedUpToHost(*router);
    router->stateKept = kept && power == platform::FunctionPower::D3Hot;
    router->Drain();
  }
  host.asleep = true;
  ReconsiderLinksToOthers(host);
  for (auto& link : links_) {
    if (link->end(0).router().place().host == &host.router && link->attached()) link->Pause();
  }
  for (auto& router : routers_) {
    if (router->place().host == &host.router && !router->stateKept) router->LosePower();
  }
  for (auto& link : links_) link->Show();
}

void Fabric::Wake(Host& host) {
  Note("host wakes", host.router.name());
  host.asleep = false;
  for (auto& router : routers_) {
    if (router->place().host == &host.router) router->ClearSleep();
  }
  std::vector<Link*> paused;
  for (auto& link : links_) {
    if (link->paused() && link->end(0).router().place().host == &host.router) paused.push_back(link.get());
  }
  for (Link* link : paused) {
    if (link->end(0).router().stateKept && link->end(1).router().stateKept) {
      link->Resume(timing_.Draw(kLanesResume));
    } else {
      link->ResumeUntrained();
    }
  }
  PlacesChanged();
  ReconsiderLinksToOthers(host);
}

void Fabric::ReconsiderLinksToOthers(const Host& host) {
  for (auto& link : links_) {
    const bool ours =
        link->end(0).router().place().host == &host.router || link->end(1).router().place().host == &host.router;
    if (!ours || !link->betweenDomains()) continue;
    link->Reconsider();
    // A host that has woken looks for its neighbour, which its neighbour takes for a plug.
    if (!host.asleep && !link->mayRun()) WakeSleepingEnds(*link);
  }
}

void Fabric::WakeSleepingEnds(const Link& link) {
  for (unsigned end = 0; end < 2; ++end) {
    if (Asleep(link.end(end).router())) WakeFrom(link.end(end).router(), link.end(end), false);
  }
}

bool Fabric::Asleep(const Router& router) const {
  const Host* host = HostOf(router);
  return host != nullptr && host->asleep;
}

// A wake climbs link by link, through ports that are armed for it on both sides.
bool Fabric::WakeChainArmed(const Router& router) const {
  const Router* at = &router;
  while (!at->isHost()) {
    const Adapter* upstream = at->adapter(at->upstreamAdapter());
    if (upstream == nullptr || upstream->link == nullptr || !PassesWake(*upstream)) return false;
    Adapter* above = upstream->link->Opposite(*upstream);
    if (above == nullptr || !PassesWake(*above)) return false;
    if (above->usb4Capability != 0) {
      above->space().SetBits(above->usb4Capability + kPortCs18, kPortWakeStatus, kPortWakeStatus);
    }
    at = &above->router();
  }
  return true;
}

void Fabric::WakeFrom(Router& router, Adapter& adapter, bool unplug) {
  Host* host = HostOf(router);
  if (host == nullptr || !WakesOn(router, adapter, unplug)) return;
  ShowWake(router, adapter);
  if (!WakeChainArmed(router)) return;
  Note("wake", adapter.Name());
  host->interface.SignalWake();
}

void Fabric::SignalWake(std::string_view port) {
  Adapter* adapter = FindAdapter(port);
  if (adapter == nullptr || (adapter->type() != kTypePcieDown && adapter->type() != kTypeUsb3Down)) {
    throw TopologyError("\"" + std::string(port) + "\" is no downstream PCIe or USB3 adapter");
  }
  if (Asleep(adapter->router())) WakeFrom(adapter->router(), *adapter, false);
}

}  // namespace sim
