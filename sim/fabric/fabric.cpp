// All routers, hosts and cables of a simulation: building it, and who is where.
#include "sim/fabric/fabric.h"

#include <algorithm>
#include <deque>
#include <set>
#include <utility>

#include "sim/dataplane/display_adapter.h"
#include "sim/dataplane/protocol_adapters.h"
#include "sim/fabric/fabric_host.h"
#include "sim/router/drom_writer.h"

namespace sim {
namespace {

constexpr platform::Time kImpatientPause = 300 * platform::kMillisecond;

std::string Quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

}  // namespace

Fabric::Fabric(platform::Simulation& simulation)
    : Surroundings(simulation),
      frames_(std::make_unique<FrameTransport>(
          *this, [this](const Router& host, unsigned ring, const Frame& frame, const WriteBackForgery& damage) {
            HostOf(host)->interface.Receive(ring, frame, damage);
          })) {}

Fabric::~Fabric() = default;

Router& Fabric::AddRouter(std::string_view model, std::string name) {
  const RouterModel* found = FindModel(model);
  if (found == nullptr) throw TopologyError("unknown model " + Quoted(model));
  return AddRouter(*found, std::move(name));
}

Router& Fabric::AddRouter(const RouterModel& model, std::string name) {
  if (name.empty() || name.find(':') != std::string::npos) throw TopologyError("bad router name " + Quoted(name));
  if (Find(name) != nullptr) throw TopologyError("two routers are called " + Quoted(name));
  routers_.push_back(std::make_unique<Router>(*this, model, std::move(name)));
  Router& router = *routers_.back();
  router.operations().SetDrom(BuildDrom(model));
  router.services().SetDrom(BuildDrom(model));
  if (model.host) hosts_.push_back(std::make_unique<Host>(*this, router, model.hostInterface.value()));
  return router;
}

Router& Fabric::AddPeer(const RouterModel& model, PeerConfig config) {
  if (!model.host) throw TopologyError("a peer is a host, and " + Quoted(model.name) + " is no model of one");
  Router& router = AddRouter(model, config.name);
  Host& host = *hosts_.back();
  host.peer = std::make_unique<ScriptedPeer>(simulation_, router, host.wire, std::move(config));
  host.wire.AttachManager(host.peer.get());
  return router;
}

Router* Fabric::Find(std::string_view name) const {
  auto found =
      std::find_if(routers_.begin(), routers_.end(), [&](const auto& router) { return router->name() == name; });
  return found == routers_.end() ? nullptr : found->get();
}

Adapter* Fabric::FindAdapter(std::string_view port) const {
  const std::size_t colon = port.find(':');
  Router* router = Find(port.substr(0, colon));
  if (router == nullptr || colon == std::string_view::npos || colon + 1 == port.size()) return nullptr;
  unsigned number = 0;
  for (char c : port.substr(colon + 1)) {
    if (c < '0' || c > '9' || number > 63) return nullptr;
    number = number * 10 + static_cast<unsigned>(c - '0');
  }
  return router->adapter(number);
}

Fabric::Host* Fabric::HostOf(const Router& router) const {
  auto found = std::find_if(hosts_.begin(), hosts_.end(),
                            [&](const auto& host) { return &host->router == router.place().host; });
  return found == hosts_.end() ? nullptr : found->get();
}

void Fabric::AdapterMade(Adapter& adapter) {
  WatchProtocolAdapter(adapter);
}

void Fabric::AdapterReset(Adapter& adapter) {
  RestoreProtocolAdapter(adapter);
}

HostInterface& Fabric::hostInterface(std::string_view hostName) {
  Router* router = Find(hostName);
  Host* host = router != nullptr && router->isHost() ? HostOf(*router) : nullptr;
  if (host == nullptr) throw TopologyError("no host is called " + Quoted(hostName));
  return host->interface;
}

ControlWire& Fabric::wire(std::string_view hostName) {
  hostInterface(hostName);
  return HostOf(*Find(hostName))->wire;
}

const ScriptedPeer* Fabric::peer(std::string_view hostName) {
  hostInterface(hostName);
  return HostOf(*Find(hostName))->peer.get();
}

HostFirmware& Fabric::firmware(std::string_view hostName) {
  hostInterface(hostName);
  return HostOf(*Find(hostName))->firmware;
}

// --- cables

Adapter& Fabric::LanePort(std::string_view port) const {
  Adapter* adapter = FindAdapter(port);
  if (adapter == nullptr) throw TopologyError("no adapter is called " + Quoted(port));
  if (!adapter->isLane()) throw TopologyError(Quoted(port) + " is no lane adapter");
  if (adapter->model().lane != 0) throw TopologyError(Quoted(port) + " is the second lane of its port");
  if (adapter->link != nullptr) throw TopologyError(Quoted(port) + " has a cable already");
  return *adapter;
}

Link& Fabric::AddLink(std::string_view first, std::string_view second, CableOptions options) {
  Adapter& a = LanePort(first);
  Adapter& b = LanePort(second);
  const bool loopBack = &a.router() == &b.router();
  if (loopBack && (&a == &b || !a.router().isHost())) {
    throw TopologyError("cable from " + Quoted(first) + " to its own router");
  }
  if (options.lanes < 1 || options.lanes > 2) throw TopologyError("a cable has one lane or two");
  links_.push_back(std::make_unique<Link>(*this, a, b, options));
  return *links_.back();
}

void Fabric::Connect(std::string_view first, std::string_view second, CableOptions options) {
  options.trained = true;
  AddLink(first, second, options).Start();
}

void Fabric::Plug(std::string_view first, std::string_view second, CableOptions options) {
  options.trained = false;
  Link& link = AddLink(first, second, options);
  Note("plug", std::string(first) + " - " + std::string(second));
  link.Start();
  if (!link.mayRun()) WakeSleepingEnds(link);
}

Link* Fabric::FindLink(std::string_view portOrRouter) const {
  Adapter* adapter = FindAdapter(portOrRouter);
  if (adapter == nullptr) {
    Router* router = Find(portOrRouter);
    if (router == nullptr) throw TopologyError("no router or adapter is called " + Quoted(portOrRouter));
    adapter = router->isHost() ? nullptr : router->adapter(router->upstreamAdapter());
    // A router whose link has not come up yet hangs on the only cable that it has.
    for (unsigned n = 1; adapter == nullptr && n <= router->maxAdapter(); ++n) {
      if (router->adapter(n)->link != nullptr) adapter = router->adapter(n);
    }
  }
  if (adapter == nullptr || adapter->link == nullptr) throw TopologyError("no cable at " + Quoted(portOrRouter));
  return adapter->link;
}

void Fabric::Unplug(std::string_view portOrRouter) {
  Link& link = *FindLink(portOrRouter);
  Note("unplug", link.end(0).Name() + " - " + link.end(1).Name());
  RemoveLink(link);
}

void Fabric::RemoveLink(Link& link) {
  auto found = std::find_if(links_.begin(), links_.end(), [&](const auto& each) { return each.get() == &link; });
  retired_.push_back(std::move(*found));
  links_.erase(found);
  link.Unplugged();
  PlacesChanged();
}

void Fabric::DropLink(std::string_view portOrRouter, platform::Time backAfter) {
  Link& link = *FindLink(portOrRouter);
  Note("link dropped", link.end(0).Name() + " - " + link.end(1).Name());
  link.Drop(backAfter);
}

void Fabric::PlugDisplay(std::string_view port, const Display& display) {
  Adapter* adapter = FindAdapter(port);
  if (adapter == nullptr || adapter->type() != kTypeDpOut) throw TopologyError(Quoted(port) + " is no DP OUT adapter");
  if (adapter->dp.display) throw TopologyError(Quoted(port) + " has a display already");
  if (!DpRateHasCode(display.most)) throw TopologyError("no display has such a link: " + Quoted(port));
  ChangeDisplay(*adapter, display);
}

void Fabric::UnplugDisplay(std::string_view port) {
  Adapter* adapter = FindAdapter(port);
  if (adapter == nullptr || !adapter->dp.display) throw TopologyError("no display at " + Quoted(port));
  ChangeDisplay(*adapter, std::nullopt);
}

void Fabric::ChangeDisplay(Adapter& adapter, const std::optional<Display>& display) {
  DpFacts facts = adapter.dp;
  facts.display = display;
  SetDpFacts(adapter, facts);
  Note(display ? "display plugged" : "display unplugged", adapter.Name());
  adapter.router().PlugChanged(adapter, !display);
}

// --- who is where

// The first link to a host that comes up makes the port its upstream port, for as long as that link is attached.
bool Fabric::StaysElsewhere(const Adapter& port) {
  const Adapter* upstream = port.router().adapter(port.router().upstreamAdapter());
  if (upstream == nullptr || upstream == &port || upstream->link == nullptr || !upstream->link->attached()) {
    return false;
  }
  return upstream->link->Opposite(*upstream)->router().place().host != nullptr;
}

void Fabric::PlacesChanged() {
  std::deque<Router*> open;
  std::set<const Router*> placed;
  for (auto& host : hosts_) {
    open.push_back(&host->router);
    placed.insert(&host->router);
  }
  while (!open.empty()) {
    Router& router = *open.front();
    open.pop_front();
    for (unsigned n = 1; n <= router.maxAdapter(); ++n) {
      Adapter& adapter = *router.adapter(n);
      if (adapter.link == nullptr || adapter.model().lane != 0 || !adapter.link->attached()) continue;
      Adapter* far = adapter.link->Opposite(adapter);
      if (far == nullptr || far->router().isHost() || StaysElsewhere(*far)) continue;
      if (!placed.insert(&far->router()).second) continue;
      const Place& here = router.place();
      const std::uint64_t route = here.route | static_cast<std::uint64_t>(n) << (8 * here.depth);
      if (far->router().place().host == nullptr) Watch(far->router());
      far->router().SetPlace({here.host, far->number(), route, here.depth + 1});
      open.push_back(&far->router());
    }
  }
  for (auto& router : routers_) {
    if (!placed.contains(router.get())) router->SetPlace({});
  }
}

// The end of a link that is nearer to a host reports what happens there; of a link between domains both do.
void Fabric::LinkCameUp(Link& link) {
  PlacesChanged();
  Note("link up", link.end(0).Name() + " - " + link.end(1).Name());
  for (unsigned end = 0; end < 2; ++end) {
    Adapter& adapter = link.end(end);
    Router& router = adapter.router();
    if (router.upstreamAdapter() != 0 && router.upstreamAdapter() != adapter.number()) {
      router.PlugChanged(adapter, false);
    }
  }
  DisplaysChanged(*this);
}

void Fabric::LinkWentDown(Link& link) {
  Note("link down", link.end(0).Name() + " - " + link.end(1).Name());
  for (unsigned end = 0; end < 2; ++end) {
    Adapter& adapter = link.end(end);
    Router& router = adapter.router();
    if (router.upstreamAdapter() == 0 || router.upstreamAdapter() == adapter.number()) continue;
    if (router.model().usb4()) adapter.SetLock(true);
    // A host that goes to sleep has disconnected the link itself.
    if (!Asleep(router) || link.mayRun()) router.PlugChanged(adapter, true);
  }
  for (unsigned end = 0; end < 2; ++end) {
    Router& router = link.end(end).router();
    if (!router.isHost() && router.upstreamAdapter() == link.end(end).number()) CutOff(router);
  }
  PlacesChanged();
  DisplaysChanged(*this);
}

// `router` and everything that hangs on its downstream ports.
void Fabric::CollectBelow(Router& router, std::vector<Router*>& found) {
  found.push_back(&router);
  for (unsigned n = 1; n <= router.maxAdapter(); ++n) {
    Adapter& adapter = *router.adapter(n);
    if (adapter.link == nullptr || adapter.model().lane != 0) continue;
    Adapter* far = adapter.link->Opposite(adapter);
    if (far != nullptr && !far->router().isHost() && far->router().upstreamAdapter() == far->number()) {
      CollectBelow(far->router(), found);
    }
  }
}

// A router that loses its upstream link starts from reset, and so does everything behind it. With the cable its supply
// goes.
void Fabric::CutOff(Router& router) {
  const bool unplugged = router.adapter(router.upstreamAdapter())->link == nullptr;
  std::vector<Router*> lost;
  CollectBelow(router, lost);
  for (Router* each : lost) {
    each->SetPlace({});
    unplugged ? each->LosePower() : each->Reset();
  }
  for (Router* each : lost) {
    for (unsigned n = 1; n <= each->maxAdapter(); ++n) {
      if (each->adapter(n)->link != nullptr && each->adapter(n)->model().lane == 0) each->adapter(n)->link->Retrain();
    }
  }
}

// Some docks give a manager little time, from the moment that there is a way to a host.
void Fabric::Watch(Router& router) {
  const unsigned limitMs = router.model().enumerateWithinMs;
  if (limitMs == 0) return;
  const platform::Time limit = static_cast<platform::Time>(limitMs) * platform::kMillisecond;
  simulation_.After(limit, "dock loses patience", [this, &router, life = router.life()] {
    Adapter* upstream = router.adapter(router.upstreamAdapter());
    if (router.life() != life || router.configured() || upstream == nullptr || upstream->link == nullptr) return;
    Note("dock lost patience", router.name());
    upstream->link->Drop(kImpatientPause);
  });
}

bool Fabric::Quiet() const {
  if (inFlight_ != 0 || !frames_->Quiet()) return false;
  for (const auto& host : hosts_) {
    if (!host->interface.Quiet() || !host->wire.Quiet()) return false;
  }
  return std::none_of(routers_.begin(), routers_.end(),
                      [](const auto& router) { return std::as_const(*router).notifications().Outstanding(); });
}

}  // namespace sim
