// Each key of an expectation is one comparison.
#include "lab/oracle/expectations.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/report/tree.h"
#include "sim/dataplane/path_probe.h"

namespace lab {
namespace {

const char* PowerName(platform::DevicePower power) {
  switch (power) {
    case platform::DevicePower::D0:
      return "D0";
    case platform::DevicePower::D3:
      return "D3";
    case platform::DevicePower::Off:
      break;
  }
  return "off";
}

const char* StateName(platform::PnpState state) {
  switch (state) {
    case platform::PnpState::Added:
      return "added";
    case platform::PnpState::Started:
      return "started";
    case platform::PnpState::Failed:
      return "failed";
    case platform::PnpState::SurpriseRemoved:
      return "surprise-removed";
    case platform::PnpState::Removed:
      break;
  }
  return "removed";
}

class Comparison {
 public:
  explicit Comparison(std::string where) : where_(std::move(where)) {}
  void Text(const std::string& what, const std::optional<std::string>& wanted, const std::string& found) {
    if (wanted && *wanted != found) {
      lines_.push_back(fmt::format("{}: {} is {}, expected {}", where_, what, found, *wanted));
    }
  }
  void Number(const std::string& what, const std::optional<std::int64_t>& wanted, std::int64_t found) {
    if (wanted && *wanted != found) {
      lines_.push_back(fmt::format("{}: {} is {}, expected {}", where_, what, found, *wanted));
    }
  }
  std::vector<std::string> lines() const { return lines_; }

 private:
  std::string where_;
  std::vector<std::string> lines_;
};

std::string NameOf(const RouterView& router) {
  if (!router.vendorName || !router.deviceName) return router.vendorName.value_or("") + router.deviceName.value_or("");
  return *router.vendorName + " " + *router.deviceName;
}

const sim::Router* HardwareAt(Machine& machine, Place place, std::uint64_t route) {
  const sim::Router* host = machine.fabric().Find(HostRouterName(machine.config(), place));
  return host == nullptr ? nullptr : machine.fabric().AtRoute(*host, route);
}

std::string ModelAt(Machine& machine, Place place, std::uint64_t route) {
  const sim::Router* router = HardwareAt(machine, place, route);
  return router == nullptr ? "none" : router->model().name;
}

// The driver reads a link's width right after it has asked for the bonding and does not wait for it: of a link that it
// has bonded it may know one lane for ever. What the expectation is about then is what became of the link.
std::string LinkOf(const RouterView& router, const sim::Router* hardware) {
  if (!router.link) return "none";
  LinkView link = *router.link;
  const sim::Adapter* upstream = hardware == nullptr ? nullptr : hardware->adapter(hardware->upstreamAdapter());
  if (link.bonded && upstream != nullptr && upstream->link != nullptr && upstream->link->bonded()) link.lanes = 2;
  return LinkText(link);
}

void CompareRouter(Comparison& comparison, const Expectation& expectation, Machine& machine, const DomainView& domain) {
  const auto found = std::find_if(domain.routers.begin(), domain.routers.end(),
                                  [&](const RouterView& router) { return router.route == expectation.route; });
  const bool present = found != domain.routers.end();
  const std::string what = fmt::format("router {:x}", expectation.route);
  comparison.Text(what, expectation.present ? "present" : "absent", present ? "present" : "absent");
  if (!present || !expectation.present) return;
  comparison.Text(what + " name", expectation.routerName, NameOf(*found));
  comparison.Text(what + " model", expectation.model, ModelAt(machine, expectation.place, expectation.route));
  comparison.Text(what + " link", expectation.link,
                  LinkOf(*found, HardwareAt(machine, expectation.place, expectation.route)));
  comparison.Text(what + " tmu", expectation.tmu, found->tmu.value_or("none"));
  comparison.Number(what + " generation", expectation.generation, found->generation);
  comparison.Number(what + " adapters", expectation.adapters, static_cast<std::int64_t>(found->adapters.size()));
}

void ComparePeer(Comparison& comparison, const Expectation& expectation, const DomainView& domain) {
  const PeerView* peer = domain.FindPeer(*expectation.peer);
  const std::string what = fmt::format("peer {:x}", *expectation.peer);
  comparison.Text(what, expectation.present ? "present" : "absent", peer != nullptr ? "present" : "absent");
  if (peer == nullptr || !expectation.present) return;
  comparison.Text(what + " state", expectation.peerState, peer->state);
  comparison.Text(what + " name", expectation.routerName, PeerNameText(*peer));
  comparison.Text(what + " link", expectation.link, LinkText(peer->link));
  comparison.Text(what + " hop limits", expectation.hopLimits,
                  fmt::format("{}/{}", peer->inputHopLimit, peer->outputHopLimit));
}

std::string Joined(std::vector<std::string> texts) {
  std::sort(texts.begin(), texts.end());
  std::string line;
  for (const std::string& text : texts) line += (line.empty() ? "" : ", ") + text;
  return line.empty() ? "none" : line;
}

void CompareTunnels(Comparison& comparison, const Expectation& expectation, const DomainView& domain) {
  std::vector<std::string> active;
  const TunnelView* found = nullptr;
  for (const TunnelView& tunnel : domain.tunnels) {
    if (!tunnel.listed || !tunnel.active) continue;
    active.push_back(TunnelText(tunnel));
    if (active.back() == expectation.tunnel) found = &tunnel;
  }
  if (expectation.tunnels) comparison.Text("tunnels", Joined(*expectation.tunnels), Joined(active));
  comparison.Number("tunnel count", expectation.tunnelCount, domain.counts.total);
  comparison.Number("PCIe tunnel count", expectation.pcieTunnels, domain.counts.pcie);
  comparison.Number("USB3 tunnel count", expectation.usb3Tunnels, domain.counts.usb3);
  comparison.Number("DP tunnel count", expectation.dpTunnels, domain.counts.dp);
  if (!expectation.tunnel) return;
  const std::string what = "tunnel " + *expectation.tunnel;
  // Beside a route, `present` is about the router, and what is asked of the tunnel needs one.
  comparison.Text(what, expectation.aboutRouter || expectation.present ? "present" : "absent",
                  found != nullptr ? "present" : "absent");
  if (found != nullptr) {
    comparison.Text(what + " allocated", expectation.allocated,
                    found->allocated ? BandwidthText(*found->allocated) : "not managed");
  }
  if (found != nullptr) {
    comparison.Text(what + " consumed", expectation.consumed,
                    found->consumed ? BandwidthText(*found->consumed) : "nothing");
  }
}

// How packets fare between two adapters, as long as both are there.
std::string ProbeText(const sim::Fabric& fabric, const std::string& ends) {
  const std::string from = ends.substr(0, ends.find(" -> ")), to = ends.substr(ends.find(" -> ") + 4);
  unsigned away = 0, back = 0;
  for (const sim::LivePath& path : sim::TracePaths(fabric).paths) {
    if (!path.lost.empty() || path.to == nullptr) continue;
    away += path.from->Name() == from && path.to->Name() == to;
    back += path.from->Name() == to && path.to->Name() == from;
  }
  if (away == 0 && back == 0) return "absent";
  return away != 0 && back != 0 ? "present" : "one way only";
}

bool AsksForDomain(const Expectation& expectation) {
  return expectation.routers || expectation.adapters || expectation.aboutRouter || expectation.peer ||
         expectation.peers || expectation.tunnels || expectation.tunnelCount || expectation.pcieTunnels ||
         expectation.usb3Tunnels || expectation.dpTunnels || expectation.tunnel;
}

std::optional<std::string> Hex(const std::optional<platform::Status>& status) {
  return status ? std::optional(fmt::format("0x{:08X}", static_cast<std::uint32_t>(*status))) : std::nullopt;
}

}  // namespace

std::vector<std::string> Mismatches(const Expectation& expectation, Machine& machine, bool afterFaults) {
  const Place place = expectation.place;
  platform::HostKernel& kernel = machine.kernel(place.host);
  const platform::DeviceId device = machine.device(place);
  Comparison comparison(machine.DomainName(place));
  comparison.Text("power", expectation.power, PowerName(kernel.Power(device)));
  comparison.Text("state", expectation.state, StateName(kernel.State(device)));
  if (!afterFaults) comparison.Text("start status", Hex(expectation.startStatus), *Hex(machine.StartStatus(place)));
  if (expectation.interface) {
    const std::vector<std::string> all = kernel.Interfaces(device);
    if (std::find(all.begin(), all.end(), *expectation.interface) == all.end()) {
      comparison.Text("interface", expectation.interface, all.empty() ? "none" : all.front());
    }
  }
  if (expectation.probe) {
    comparison.Text("probe " + *expectation.probe, expectation.present ? "present" : "absent",
                    ProbeText(machine.fabric(), *expectation.probe));
  }
  if (!AsksForDomain(expectation)) return comparison.lines();
  const DomainView domain = machine.Domain(place);
  comparison.Number("routers", expectation.routers, static_cast<std::int64_t>(domain.routers.size()));
  // Without a route, what is said about a router is about the host's.
  if (expectation.adapters || expectation.aboutRouter) CompareRouter(comparison, expectation, machine, domain);
  comparison.Number("peers", expectation.peers, static_cast<std::int64_t>(domain.peers.size()));
  if (expectation.peer) ComparePeer(comparison, expectation, domain);
  CompareTunnels(comparison, expectation, domain);
  return comparison.lines();
}

}  // namespace lab
