// Looking into the driver: its records as plain data.
#include <fmt/format.h>
#include <ntddk.h>

#include <wdf.h>

#include "include/device_context.h"
#include "include/domain_record.h"
#include "include/locks.h"
#include "include/path_record.h"
#include "include/peer_record.h"
#include "include/router_record.h"
#include "include/tunnel_record.h"
#include "lab/machine/bandwidth.h"
#include "lab/machine/machine.h"
#include "lab/machine/register_table.h"
#include "topology/device_list.h"
#include "topology/router_queries.h"
#include "topology/tmu.h"
#include "tunnel/dp_resources.h"
#include "tunnel/tunnel.h"
#include "xdomain/peer_state.h"

namespace lab {
namespace {

using Capabilities = std::vector<std::pair<std::string, unsigned>>;

// The driver reads these under locks that it may hold for hours. A look takes no time, so it needs none of them.
using Orphans = ListView<USB4_TUNNEL, offsetof(USB4_TUNNEL, Link)>;
using DpResources = ListView<USB4_PORT, offsetof(USB4_PORT, DpResourceLink)>;

std::optional<std::string> TextOf(const char* text) {
  return text ? std::optional<std::string>(text) : std::nullopt;
}

void AddCapability(Capabilities& list, const char* name, std::uint32_t offset) {
  if (CapabilityFound(offset)) list.emplace_back(name, offset);
}

AdapterPlace PlaceOf(const USB4_PORT& adapter) {
  return {KivUsb4SwitchRoute(adapter.Router), adapter.Number};
}

std::vector<unsigned> InUse(const USB4_HOP_MAP& hops) {
  std::vector<unsigned> used;
  for (unsigned hop = 0; hop < kHopIdCount; ++hop) {
    if (hops.InUse[hop] != 0) used.push_back(hop);
  }
  return used;
}

AdapterView ViewOf(const USB4_PORT& adapter, unsigned number) {
  AdapterView view;
  view.number = number;
  view.type = adapter.Type();
  view.disabled = adapter.Disabled != 0;
  view.bonded = adapter.Bonded != 0;
  view.secondLane = adapter.IsSecondLane();
  if (adapter.DualLinkPartner != nullptr) view.partner = adapter.DualLinkPartner->Number;
  if (adapter.Remote.Peek() != nullptr) view.remote = PlaceOf(*adapter.Remote.Peek());
  view.inputHops = InUse(adapter.InputHops.Peek());
  view.outputHops = InUse(adapter.OutputHops.Peek());
  AddCapability(view.capabilities, "lane", adapter.LaneCapability);
  AddCapability(view.capabilities, "TMU", adapter.TmuCapability);
  AddCapability(view.capabilities, "protocol", adapter.ProtocolCapability);
  AddCapability(view.capabilities, "USB4 port", adapter.Usb4PortCapability);
  return view;
}

RouterView ViewOf(const USB4_SWITCH& router) {
  RouterView view;
  view.route = KivUsb4SwitchRoute(&router);
  view.name = router.Info.Name;
  view.vendorName = TextOf(router.VendorName);
  view.deviceName = TextOf(router.DeviceName);
  if (router.Uid != 0) view.uid = fmt::format("{:016x}", router.Uid);
  view.generation = router.Generation;
  view.depth = KivUsb4RouteDepth(view.route);
  view.upstreamAdapter = router.UpstreamAdapter();
  if (router.TmuCapability != 0) view.tmu = KivUsb4SwitchTmuModeName(&router);
  view.state = router.Unplugged.IsSet() ? "unplugged" : "ready";
  AddCapability(view.capabilities, "TMU", router.TmuCapability);
  AddCapability(view.capabilities, "plug events", router.PlugEventsCapability);
  AddCapability(view.capabilities, "link controller", router.LinkControllerCapability);
  if (router.Adapters == nullptr) return view;
  for (unsigned number = 1; number <= router.MaximumAdapter(); ++number) {
    view.adapters.push_back(ViewOf(router.Adapters[number], number));
  }
  if (view.depth > 0) {
    view.link = LinkView{router.LinkSpeed, router.LinkWidth, router.Adapters[view.upstreamAdapter].Bonded != 0};
  }
  return view;
}

PathView ViewOf(const USB4_PATH& path) {
  PathView view;
  view.name = path.Name;
  view.active = path.Active != 0;
  view.discovered = path.Discovered != 0;
  view.nfcCredits = path.NfcCredits;
  for (std::uint32_t i = 0; i < path.HopCount; ++i) {
    const USB4_HOP& hop = path.Hops[i];
    if (hop.InputAdapter == nullptr || hop.OutputAdapter == nullptr) continue;
    const AdapterPlace in = PlaceOf(*hop.InputAdapter);
    view.hops.push_back({in.route, in.adapter, hop.InputHopId, hop.OutputAdapter->Number, hop.OutputHopId});
  }
  return view;
}

TunnelEnd EndOf(const USB4_PORT& adapter) {
  return {PlaceOf(adapter), adapter.Router->Info.Name};
}

TunnelView ViewOf(const USB4_TUNNEL& tunnel) {
  TunnelView view;
  view.kind = static_cast<TunnelKind>(tunnel.Type);
  if (tunnel.Source != nullptr) view.source = EndOf(*tunnel.Source);
  if (tunnel.Destination != nullptr) view.destination = EndOf(*tunnel.Destination);
  view.active = KivUsb4TunnelIsActive(&tunnel);
  for (std::uint32_t i = 0; i < tunnel.PathCount; ++i) {
    if (tunnel.Paths[i] != nullptr) view.paths.push_back(ViewOf(*tunnel.Paths[i]));
  }
  view.maximum = {tunnel.Maximum.Upstream, tunnel.Maximum.Downstream};
  // Bandwidth is managed where there is something to give back.
  if (tunnel.ReleaseUnusedBandwidth != nullptr) {
    view.allocated = BandwidthView{tunnel.Allocated.Upstream, tunnel.Allocated.Downstream};
  }
  return view;
}

std::optional<std::string> UuidOf(const std::uint8_t* bytes) {
  if (bytes == nullptr) return std::nullopt;
  return fmt::format("{:02x}", fmt::join(bytes, bytes + kUuidBytes, ""));
}

PeerView ViewOf(const USB4_XDOMAIN& peer, const USB4_PORT& facing) {
  PeerView view;
  view.route = peer.Route;
  view.facing = PlaceOf(facing);
  view.name = peer.Info.Name;
  view.state = PeerStateName(peer.State.Value);
  view.ownUuid = UuidOf(peer.OwnUuid).value_or("");
  view.uuid = UuidOf(peer.PeerUuid);
  view.vendorName = TextOf(peer.PeerVendorName);
  view.deviceName = TextOf(peer.PeerDeviceName);
  view.vendorId = peer.PeerVendorId;
  view.deviceId = peer.PeerDeviceId;
  view.link = LinkView{peer.LinkSpeed, peer.LinkWidth, facing.Bonded != 0, {}};
  view.inputHopLimit = peer.InputHopLimit;
  view.outputHopLimit = peer.OutputHopLimit;
  view.requestedWidth = static_cast<unsigned>(peer.RequestedLinkWidth.Value);
  view.replaced = peer.Removed.IsSet();
  return view;
}

void AddPeers(const USB4_SWITCH& router, DomainView& view) {
  if (router.Adapters == nullptr) return;
  for (unsigned number = 1; number <= router.MaximumAdapter(); ++number) {
    if (const USB4_XDOMAIN* peer = router.Adapters[number].XDomain.Peek()) {
      view.peers.push_back(ViewOf(*peer, router.Adapters[number]));
    }
  }
}

void AddTunnels(USB4_DOMAIN* domain, DomainView& view) {
  const SpinLockGuard guard(domain->TopologyLock);
  for (USB4_TUNNEL& tunnel : TunnelList(domain->TunnelListHead)) view.tunnels.push_back(ViewOf(tunnel));
  for (USB4_TUNNEL& tunnel : Orphans(domain->OrphanTunnelListHead)) {
    view.tunnels.push_back(ViewOf(tunnel));
    view.tunnels.back().listed = false;
  }
  for (USB4_PORT& adapter : DpResources(domain->DpResourceListHead)) view.displayResources.push_back(PlaceOf(adapter));
}

void AddDomain(USB4_DOMAIN* domain, DomainView& view) {
  view.present = true;
  view.started = domain->Started.IsSet();
  view.pcieAllowed = domain->PcieTunnelSupported != 0;
  view.usb3Allowed = domain->Usb3TunnelSupported != 0;
  view.counts = {domain->TunnelCount.Load(), domain->PcieTunnelCount.Load(), domain->Usb3TunnelCount.Load(),
                 domain->DpTunnelCount.Load()};
  const RouterReference host = KivUsb4DomainGetSwitch(domain, 0);
  const auto add = [&view](const USB4_SWITCH& router) {
    view.routers.push_back(ViewOf(router));
    AddPeers(router, view);
  };
  if (host) add(*host);
  DeviceWalk walk(domain);
  while (const USB4_DEV_ENTRY* entry = walk.Next()) {
    if (entry->Router != nullptr && entry->Router != host.Get()) add(*entry->Router);
  }
  AddTunnels(domain, view);
}

}  // namespace

const std::vector<std::string>& PeerStateNames() {
  static const std::vector<std::string> kNames = [] {
    std::vector<std::string> names;
    for (LONG state = USB4_XDOMAIN_INIT; state <= USB4_XDOMAIN_ERROR; ++state) names.push_back(PeerStateName(state));
    return names;
  }();
  return kNames;
}

bool Machine::InDriver(Place place, const std::function<void(DEVICE_EXTENSION&)>& look) {
  bool looked = false;
  if (!Added(place)) return false;
  const auto task = [&] {
    void* device = kernel(place.host).FrameworkDevice(this->device(place));
    DEVICE_EXTENSION* context = device ? DeviceContextOf(static_cast<WDFDEVICE>(device)) : nullptr;
    if (context == nullptr) return;
    looked = true;
    look(*context);
  };
  const bool ended = simulation_.StepReached()
                         ? simulation_.RunAlone(&kernel(place.host), "look", task)
                         : simulation_.RunTask(&kernel(place.host), "look", task) == platform::Outcome::Done;
  return ended && looked;
}

DomainView Machine::Domain(Place place) {
  DomainView view;
  view.name = DomainName(place);
  InDriver(place, [&](DEVICE_EXTENSION& context) {
    if (context.Domain != nullptr) AddDomain(context.Domain, view);
  });
  if (const sim::Router* host = fabric_->Find(RouterName(place))) AddConsumption(view, *host);
  AddAvailable(view);
  return view;
}

}  // namespace lab
