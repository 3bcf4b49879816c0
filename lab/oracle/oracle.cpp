// Each check compares one thing that the fabric says with what the driver says of it.
#include "lab/oracle/oracle.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "lab/oracle/remains.h"
#include "lab/scenario/topology_input.h"
#include "sim/dataplane/path_probe.h"
#include "sim/dataplane/usb3_function.h"
#include "sim/fabric/fabric_books.h"
#include "sim/router/cable.h"

namespace lab {
namespace {

// What the driver makes of a grant that it finds in an adapter: bits per second wrap at 32 bits.
std::int64_t ReadBackMbps(unsigned units, unsigned scale) {
  constexpr std::int64_t kHalf = 500'000, kMega = 1'000'000;
  const auto wrapped = static_cast<std::int32_t>((units * 512u << scale) * 8000u);
  return (wrapped < 0 ? wrapped - kHalf : wrapped + kHalf) / kMega;
}

// Displays go over the second lane of a link that is not bonded, whether or not the cable has one: see
// docs/known-behaviour.md.
bool MissingLane(const sim::Adapter& adapter) {
  if (!adapter.isLane() || adapter.model().lane != 1 || adapter.link == nullptr || adapter.link->bonded()) return false;
  const sim::Adapter* first = adapter.pair();
  return first != nullptr && adapter.link->LaneUp(*first) && !adapter.link->LaneUp(adapter);
}

bool EndsAtMissingLane(const sim::LivePath& path) {
  return path.to == nullptr && !path.hops.empty() && MissingLane(*path.hops.back().out);
}

// The entries of tunnels that need such a lane: they are listed, and lead nowhere.
using Entries = std::set<std::pair<std::string, unsigned>>;  // adapter and hop ID

// A finding of the fabric's books that is about such a lane or such a tunnel.
bool AboutMissingLane(const sim::FabricPaths& live, const Entries& stranded, const sim::BookFinding& finding) {
  if (finding.rule == sim::Contradiction::DanglingEntry) {
    return stranded.contains({finding.arguments.adapter, *finding.arguments.hop});
  }
  if (finding.rule != sim::Contradiction::PathLost) return false;
  return std::any_of(live.paths.begin(), live.paths.end(), [&](const sim::LivePath& path) {
    return path.Way() == finding.arguments.path && EndsAtMissingLane(path);
  });
}

class DomainAudit {
 public:
  DomainAudit(Machine& machine, Place place, const sim::FabricPaths& live)
      : machine_(machine),
        host_(machine.fabric().Find(HostRouterName(machine.config(), place))),
        live_(live),
        domain_(machine.Domain(place)) {}

  const Entries& stranded() const { return stranded_; }

  Findings Go(const OracleOptions& options) {
    if (options.complete) {
      Routers();
      Peers();
    }
    for (const TunnelView& tunnel : domain_.tunnels) Tunnel(tunnel);
    if (!options.wreckage) {
      for (const sim::LivePath& path : live_.paths) {
        if (Ours(*path.from) && !claimed_.contains(path.trail) && !EndsAtMissingLane(path)) {
          Say(path.lost.empty() ? FindingRule::PathUnclaimed : FindingRule::LostPathUnclaimed,
              {.path = path.Way(), .why = path.lost});
        }
      }
      Buffers();
    }
    Counts();
    for (const RouterView& router : domain_.routers) {
      for (const AdapterView& adapter : router.adapters) HopIds(router, adapter);
    }
    return std::move(findings_);
  }

 private:
  void Say(FindingRule rule, sim::FindingArguments arguments) {
    findings_.push_back({rule, domain_.name, std::move(arguments)});
  }

  sim::Router* Hardware(std::uint64_t route) const { return machine_.fabric().AtRoute(*host_, route); }
  bool Ours(const sim::Adapter& adapter) const { return adapter.router().place().host == host_; }

  // Every router that can be reached, once; nothing else.
  void Routers() {
    std::map<const sim::Router*, unsigned> listed;
    for (const RouterView& view : domain_.routers) {
      const sim::Router* router = Hardware(view.route);
      if (router == nullptr) {
        Say(FindingRule::RouterGone, {.route = view.route});
      } else if (++listed[router] == 2) {
        Say(FindingRule::RouterTwice, {.router = router->name()});
      }
    }
    for (const auto& router : machine_.fabric().routers()) {
      if (router->place().host == host_ && !TooDeep(*router) && !listed.contains(router.get())) {
        Say(FindingRule::RouterMissing, {.router = router->name(), .route = router->place().route});
      }
    }
  }

  // Every host behind a lane of a router that is listed; nothing where no cable is.
  void Peers() {
    for (const PeerView& peer : domain_.peers) {
      const sim::Router* router = Hardware(peer.facing.route);
      const sim::Adapter* port = router == nullptr ? nullptr : router->adapter(peer.facing.adapter);
      if (port == nullptr || port->link == nullptr || !port->link->LaneUp(*port)) {
        Say(FindingRule::PeerGone,
            {.adapter = fmt::format("{:x}:{}", peer.facing.route, peer.facing.adapter), .route = peer.route});
      }
    }
    for (const auto& link : machine_.fabric().links()) {
      for (unsigned end = 0; end < 2; ++end) Facing(*link, link->end(end));
    }
  }

  void Facing(const sim::Link& link, const sim::Adapter& port) {
    const sim::Router& router = port.router();
    if (!link.betweenDomains() || !link.LaneUp(port) || !Ours(port) || domain_.Find(router.place().route) == nullptr) {
      return;
    }
    const std::uint64_t route = router.place().route | std::uint64_t{port.number()} << (8 * router.place().depth);
    if (domain_.FindPeer(route) == nullptr) Say(FindingRule::PeerMissing, {.adapter = port.Name(), .route = route});
  }

  bool TooDeep(const sim::Router& router) const {
    const bool usb4 = host_->model().usb4() || router.model().usb4();
    return router.place().depth > (usb4 ? kUsb4Depth : kThunderboltDepth);
  }

  // The path with the names of the hardware, as the fabric says it; empty when it runs through what is not there.
  std::string Trail(const PathView& path) const {
    std::string text;
    for (const HopView& hop : path.hops) {
      const sim::Router* router = Hardware(hop.route);
      if (router == nullptr) return "";
      const std::string& name = router->name();
      text += fmt::format("{}{}:{} {} -> {}:{} {}", text.empty() ? "" : " | ", name, hop.in, hop.inHop, name, hop.out,
                          hop.outHop);
    }
    return text;
  }

  const sim::LivePath* Find(const TunnelView& tunnel, const std::string& trail) const {
    for (const sim::LivePath& path : live_.paths) {
      // A tunnel to another host is one half of the way: the other host has programmed the rest.
      const bool half = tunnel.kind == TunnelKind::Dma && path.trail.find(trail) != std::string::npos;
      if (path.trail == trail || half) return &path;
    }
    return nullptr;
  }

  bool NeedsMissingLane(const PathView& path) const {
    return std::any_of(path.hops.begin(), path.hops.end(), [this](const HopView& hop) {
      const sim::Router* router = Hardware(hop.route);
      return router != nullptr && (MissingLane(*router->adapter(hop.in)) || MissingLane(*router->adapter(hop.out)));
    });
  }

  void Strand(const PathView& path) {
    for (const HopView& hop : path.hops) {
      if (const sim::Router* router = Hardware(hop.route)) {
        stranded_.insert({router->adapter(hop.in)->Name(), hop.inHop});
      }
    }
  }

  void Tunnel(const TunnelView& tunnel) {
    for (const PathView& path : tunnel.paths) {
      for (const HopView& hop : path.hops) {
        inputs_[{hop.route, hop.in}].insert(hop.inHop);
        outputs_[{hop.route, hop.out}].insert(hop.outHop);
      }
      if (!path.active) continue;
      if (NeedsMissingLane(path)) {
        Strand(path);
        continue;
      }
      const std::string trail = Trail(path);
      const sim::LivePath* live = trail.empty() ? nullptr : Find(tunnel, trail);
      if (live == nullptr) {
        Say(FindingRule::PathMissing, {.path = path.name + " " + PathText(path), .tunnel = TunnelText(tunnel)});
      } else {
        claimed_.insert(live->trail);
      }
    }
    if (tunnel.allocated && tunnel.active) Grant(tunnel);
  }

  // The record says what the adapter was given; units are coarser than Mb/s.
  void Grant(const TunnelView& tunnel) {
    const sim::Router* router = Hardware(tunnel.source.place.route);
    if (router == nullptr) return;
    const sim::Usb3Book book = sim::ReadUsb3(*router->adapter(tunnel.source.place.adapter));
    const auto granted = [&](std::int64_t recorded, unsigned units) {
      if (units == sim::Usb3Units(static_cast<unsigned>(recorded), book.scale)) return true;
      const bool readBack =
          std::any_of(tunnel.paths.begin(), tunnel.paths.end(), [](const PathView& path) { return path.discovered; });
      return readBack && recorded == ReadBackMbps(units, book.scale);
    };
    if (granted(tunnel.allocated->up, book.allocatedUpUnits) &&
        granted(tunnel.allocated->down, book.allocatedDownUnits)) {
      return;
    }
    Say(FindingRule::Grant, {.tunnel = TunnelText(tunnel),
                             .held = BandwidthText(*tunnel.allocated),
                             .used = fmt::format("{}/{}", book.allocated.upMbps, book.allocated.downMbps)});
  }

  // Tunnels that have left the list without being torn down stay counted, and tunnels to other hosts never are.
  void Counts() {
    TunnelCounts listed;
    for (const TunnelView& tunnel : domain_.tunnels) {
      if (!tunnel.listed || tunnel.kind == TunnelKind::Dma) return;
      ++listed.total;
      listed.pcie += tunnel.kind == TunnelKind::Pcie;
      listed.usb3 += tunnel.kind == TunnelKind::Usb3;
      listed.dp += tunnel.kind == TunnelKind::Dp;
    }
    const auto compare = [this](const char* what, std::int64_t counted, std::int64_t there) {
      if (counted != there) Say(FindingRule::TunnelCount, {.kind = what, .found = counted, .expected = there});
    };
    compare("tunnels", domain_.counts.total, listed.total);
    compare("PCIe tunnels", domain_.counts.pcie, listed.pcie);
    compare("USB3 tunnels", domain_.counts.usb3, listed.usb3);
    // An adopted one counts in the total only.
    if (domain_.counts.dp > listed.dp) compare("DP tunnels", domain_.counts.dp, listed.dp);
  }

  void HopIds(const RouterView& router, const AdapterView& adapter) {
    const std::pair key{router.route, adapter.number};
    const auto compare = [&](const char* what, const std::vector<unsigned>& held, const std::set<unsigned>& used) {
      if (std::equal(held.begin(), held.end(), used.begin(), used.end())) return;
      Say(FindingRule::HopIds, {.adapter = fmt::format("{:x}:{}", router.route, adapter.number),
                                .kind = what,
                                .held = fmt::format("{}", fmt::join(held, " ")),
                                .used = fmt::format("{}", fmt::join(used, " "))});
    };
    compare("input", adapter.inputHops, inputs_[key]);
    compare("output", adapter.outputHops, outputs_[key]);
  }

  // Set-aside buffers are those after reset and what active paths have added: at lanes; at Thunderbolt 3 routers also
  // at the other adapters.
  void Buffers() {
    std::map<std::string, std::int64_t> added;
    std::set<std::string> adopted;
    for (const TunnelView& tunnel : domain_.tunnels) {
      for (const PathView& path : tunnel.paths) {
        if (!path.active || path.nfcCredits == 0) continue;
        for (const HopView& hop : path.hops) {
          const sim::Router* router = Hardware(hop.route);
          if (router == nullptr) continue;
          const sim::Adapter* in = router->adapter(hop.in);
          if (path.discovered) adopted.insert(in->Name());
          if (in->isLane() || !router->model().usb4()) added[in->Name()] += path.nfcCredits;
        }
      }
    }
    for (const sim::BufferBook& book : sim::BufferBooks(machine_.fabric())) {
      const sim::Adapter* adapter = machine_.fabric().FindAdapter(book.adapter);
      if (adapter == nullptr || !Ours(*adapter) || adopted.contains(book.adapter)) continue;
      const std::int64_t wanted = book.setAsideReset + added[book.adapter];
      if (book.setAside != wanted) {
        Say(FindingRule::PathBuffers, {.adapter = book.adapter, .found = book.setAside, .expected = wanted});
      }
    }
  }

  Machine& machine_;
  const sim::Router* host_;
  const sim::FabricPaths& live_;
  const DomainView domain_;
  Entries stranded_;
  std::set<std::string> claimed_;  // trails of live paths that some tunnel has
  std::map<std::pair<std::uint64_t, unsigned>, std::set<unsigned>> inputs_, outputs_;  // hop IDs of all paths
  Findings findings_;
};

bool Running(Machine& machine, Place place) {
  platform::HostKernel& kernel = machine.kernel(place.host);
  return machine.Added(place) && kernel.State(machine.device(place)) == platform::PnpState::Started &&
         kernel.Power(machine.device(place)) == platform::DevicePower::D0 && machine.Domain(place).started;
}

}  // namespace

OracleOptions OracleOptionsFor(const MachineConfig& config) {
  OracleOptions options;
  for (const sim::FirmwareTunnel& tunnel : config.firmware) {
    options.wreckage = options.wreckage || tunnel.state != sim::FirmwareState::Whole;
  }
  return options;
}

namespace {

Findings AllFindings(Machine& machine, const OracleOptions& options) {
  Findings findings;
  const sim::FabricPaths live = sim::TracePaths(machine.fabric());
  bool all = true;
  Entries stranded;
  for (Place place : machine.Places()) {
    if (!Running(machine, place)) {
      all = false;
      continue;
    }
    DomainAudit audit(machine, place, live);
    Findings found = audit.Go(options);
    std::move(found.begin(), found.end(), std::back_inserter(findings));
    stranded.insert(audit.stranded().begin(), audit.stranded().end());
  }
  // The fabric's own books know no domains.
  if (!all || options.wreckage) return findings;
  for (sim::BookFinding& finding : sim::CheckBooks(machine.fabric())) {
    if (!AboutMissingLane(live, stranded, finding)) {
      findings.push_back({static_cast<FindingRule>(finding.rule), "", std::move(finding.arguments)});
    }
  }
  return findings;
}

}  // namespace

Findings OracleFindings(Machine& machine, const OracleOptions& options) {
  Findings found = AllFindings(machine, options);
  if (options.remains) return Without(KnownRemains(), std::move(found));
  return options.lostGrants ? Without(LostGrants(), std::move(found)) : found;
}

}  // namespace lab
