// Domains as pre-OS firmware leaves them: enumeration and bonding, and the tunnels of each kind and state.
#include "sim/firmware/firmware_tunnels.h"

#include <array>
#include <vector>

#include "sim/dataplane/display_adapter.h"
#include "sim/dataplane/usb3_function.h"
#include "sim/fabric/fabric.h"
#include "sim/firmware/firmware_paths.h"

namespace sim {
namespace {

constexpr unsigned kRoundTrips = 7;  // of a path that is longer than 14 hops

constexpr std::uint32_t kRouterSetUp = 1u << 31 | 1u << 23;  // ROUTER_CS_5

struct NamedKind {
  const char* name;
  FirmwareKind kind;
};
constexpr NamedKind kKinds[] = {{"pcie", FirmwareKind::Pcie}, {"usb3", FirmwareKind::Usb3}, {"dp", FirmwareKind::Dp}};

struct NamedState {
  const char* name;
  FirmwareState state;
};
constexpr NamedState kStates[] = {
    {"whole", FirmwareState::Whole}, {"off", FirmwareState::Off},         {"bare", FirmwareState::Bare},
    {"half", FirmwareState::Half},   {"broken", FirmwareState::Broken},   {"far-off", FirmwareState::FarOff},
    {"wrong", FirmwareState::Wrong}, {"looping", FirmwareState::Looping}, {"long", FirmwareState::Long},
};

struct Ends {
  Adapter* from;
  Adapter* to;
};

Ends FindEnds(const Fabric& fabric, const FirmwareTunnel& tunnel) {
  struct Types {
    std::uint32_t from, to;
    const char* name;
  };
  constexpr Types kTypes[] = {{kTypePcieDown, kTypePcieUp, "PCIe"},
                              {kTypeUsb3Down, kTypeUsb3Up, "USB3"},
                              {kTypeDpIn, kTypeDpOut, "DisplayPort"}};
  const Types& types = kTypes[static_cast<unsigned>(tunnel.kind)];
  const Ends ends{fabric.FindAdapter(tunnel.from), fabric.FindAdapter(tunnel.to)};
  if (ends.from == nullptr || ends.from->type() != types.from) {
    throw TopologyError("\"" + tunnel.from + "\" is no adapter at which a " + types.name + " tunnel starts");
  }
  if (ends.to == nullptr || ends.to->type() != types.to) {
    throw TopologyError("\"" + tunnel.to + "\" is no adapter at which a " + types.name + " tunnel ends");
  }
  return ends;
}

// Another adapter of the same router, of another type where there is one.
Adapter& WrongEnd(Adapter& right) {
  Adapter* wrong = nullptr;
  for (unsigned n = 1; n <= right.router().maxAdapter(); ++n) {
    Adapter& each = *right.router().adapter(n);
    const bool fits = each.implemented() && !each.isLane() && each.protocolCapability != 0 && &each != &right;
    if (fits && (wrong == nullptr || wrong->type() == right.type())) wrong = &each;
  }
  if (wrong == nullptr) throw TopologyError(right.router().name() + " has no other protocol adapter");
  return *wrong;
}

void SwitchOn(Adapter& adapter, FirmwareKind kind) {
  const std::uint32_t enables = kind == FirmwareKind::Pcie ? 1u << 31 : 3u << 30;
  adapter.space().SetBits(adapter.protocolCapability, enables, enables);
}

void Reserve(const Adapter& dpIn) {
  Router& router = dpIn.router();
  if (router.model().usb4()) {
    router.operations().dpReservations().insert(dpIn.number());
    return;
  }
  unsigned sink = 0;
  for (unsigned n = 1; n < dpIn.number(); ++n) {
    if (router.adapter(n)->type() == kTypeDpIn) sink = 1;
  }
  if (router.services().linkControllerCapability != 0) router.services().SetSinkState(sink, 1);
}

void AllocateUsb3(Adapter& from, const FirmwareTunnel& tunnel) {
  const unsigned scale = ReadUsb3(from).scale;
  from.space().SetBits(from.protocolCapability + 2, 0xFFFFFF,
                       Usb3Units(tunnel.downMbps, scale) << 12 | Usb3Units(tunnel.upMbps, scale));
}

// Each end has been told what the other can do.
void ExchangeCapabilities(const Ends& ends) {
  const std::array<Adapter*, 2> both{ends.from, ends.to};
  for (unsigned i = 0; i < 2; ++i) {
    both[i]->space().Set(both[i]->protocolCapability + 5,
                         both[1 - i]->space().Get(both[1 - i]->protocolCapability + 4));
  }
}

// The path that a manager looks at first.
void FirstPath(const FirmwareTunnel& tunnel, const Ends& ends, const FirmwareWay& way) {
  const bool dp = tunnel.kind == FirmwareKind::Dp;
  FirmwarePath path{*ends.from, dp ? kVideoHop : kTunnelHop, *ends.to, dp ? kVideoHop : kTunnelHop};
  path.style = dp ? FirmwarePathStyle::Video : FirmwarePathStyle::Data;
  path.toHop = std::min(path.toHop, ends.to->model().hop);
  if (tunnel.state == FirmwareState::Long) path.roundTrips = kRoundTrips;
  if (tunnel.state == FirmwareState::Looping) {
    ProgramLoop(path, way);
    return;
  }
  const PathHop last = ProgramPath(path, way);
  if (tunnel.state == FirmwareState::Broken) last.in->SetPathEntry(last.inHop, {});
}

void OtherPaths(const FirmwareTunnel& tunnel, const Ends& ends, const FirmwareWay& way) {
  const FirmwareWay back = Reversed(way);
  const bool half = tunnel.state == FirmwareState::Half;
  if (tunnel.kind != FirmwareKind::Dp) {
    if (!half) ProgramPath({*ends.to, kTunnelHop, *ends.from, kTunnelHop}, back);
    return;
  }
  ProgramPath({*ends.from, kAuxHop, *ends.to, kAuxHop, FirmwarePathStyle::Aux}, way);
  if (!half) ProgramPath({*ends.to, kAuxHop, *ends.from, kAuxHop, FirmwarePathStyle::Aux}, back);
}

void Enumerate(Router& router) {
  const Place& place = router.place();
  ConfigSpace& space = router.space();
  space.SetBits(kRouterCs1, 0x3Fu << 8 | 7u << 20, place.upstream << 8 | (place.depth & 7) << 20);
  space.Set(kRouterCs2, static_cast<std::uint32_t>(place.route));
  space.Set(kRouterCs3, static_cast<std::uint32_t>(place.route >> 32) | kConfigurationValid);
  if (!router.model().usb4()) return;
  space.SetBits(kRouterCs4, 0xFF00, kManagerVersion << 8);
  if (router.isHost()) return;
  space.SetBits(kRouterCs5, kRouterSetUp, kRouterSetUp);
  space.SetBits(kRouterCs6, kConfigurationReady, kConfigurationReady);
}

}  // namespace

std::optional<FirmwareKind> ParseFirmwareKind(std::string_view text) {
  for (const NamedKind& each : kKinds) {
    if (text == each.name) return each.kind;
  }
  return std::nullopt;
}

std::optional<FirmwareState> ParseFirmwareState(std::string_view text) {
  for (const NamedState& each : kStates) {
    if (text == each.name) return each.state;
  }
  return std::nullopt;
}

void EnumerateByFirmware(Fabric& fabric, std::string_view hostName) {
  Router* host = fabric.Find(hostName);
  if (host == nullptr || !host->isHost()) throw TopologyError("no host is called \"" + std::string(hostName) + "\"");
  for (const auto& router : fabric.routers()) {
    if (router->place().host == host && !router->configured()) Enumerate(*router);
  }
  for (const auto& link : fabric.links()) {
    if (!link->attached() || link->end(0).router().place().host != host) continue;
    for (unsigned end = 0; end < 2; ++end) {
      Adapter& adapter = link->end(end);
      adapter.SetLock(false);
      if (adapter.usb4Capability != 0) {
        adapter.space().SetBits(adapter.usb4Capability + kPortCs19, kPortConfigured, kPortConfigured);
      }
    }
  }
}

void BondByFirmware(Fabric& fabric, std::string_view port) {
  Adapter* adapter = fabric.FindAdapter(port);
  if (adapter == nullptr || adapter->link == nullptr || !adapter->link->BondAtOnce()) {
    throw TopologyError("no two lanes to bond at \"" + std::string(port) + "\"");
  }
}

void SetUpFirmwareTunnel(Fabric& fabric, const FirmwareTunnel& tunnel) {
  const Ends asked = FindEnds(fabric, tunnel);
  const FirmwareWay way = FindWay(*asked.from, *asked.to, tunnel.lane);
  EnumerateByFirmware(fabric, asked.from->router().place().host->name());
  Ends ends = asked;
  if (tunnel.state == FirmwareState::Wrong) ends.to = &WrongEnd(*asked.to);
  if (tunnel.state != FirmwareState::Bare) {
    FirstPath(tunnel, ends, way);
    OtherPaths(tunnel, ends, way);
  }
  if (tunnel.kind == FirmwareKind::Usb3) AllocateUsb3(*ends.from, tunnel);
  if (tunnel.kind == FirmwareKind::Dp && tunnel.reserved) Reserve(*ends.from);
  if (tunnel.kind == FirmwareKind::Dp) ExchangeCapabilities(asked);
  if (tunnel.state == FirmwareState::Off) return;
  SwitchOn(*ends.from, tunnel.kind);
  if (tunnel.state != FirmwareState::FarOff) SwitchOn(*ends.to, tunnel.kind);
  if (tunnel.kind == FirmwareKind::Dp) LearnDisplayAtOnce(*ends.from);
}

}  // namespace sim
