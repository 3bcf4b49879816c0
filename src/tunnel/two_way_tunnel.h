// What PCIe and USB3 tunnels have in common: a path down and a path up, on hop ID 8 at either end, from a downstream to
// an upstream adapter. PASSIVE_LEVEL, under the domain's run lock.
//
// Protocol says what differs:
//   kType, kUpstreamType          of the tunnel, of its destination adapter
//   kDownName, kUpName            of the paths
//   InitPath(path)
//   Switch(adapter, enable)       0 or an error
//   IsEnabled(adapter)
//   Activate(tunnel, enable)      the tunnel's activate callback
#pragma once
#include "include/trace.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"

inline constexpr std::uint32_t kTwoWayPaths = 2;
inline constexpr std::int32_t kTwoWayHopId = 8;
inline constexpr std::uint32_t kTwoWayLinkNumber = 0;

template <class Protocol>
[[nodiscard]] USB4_TUNNEL* NewTwoWayTunnel(USB4_DOMAIN* owner, const USB4_ENDS& ends) {
  USB4_TUNNEL* tunnel = KivUsb4TunnelAlloc(owner, kTwoWayPaths, Protocol::kType);
  if (tunnel == nullptr) return nullptr;
  tunnel->Activate = Protocol::Activate;
  tunnel->Source = ends.Source;
  tunnel->Destination = ends.Destination;
  return tunnel;
}

// With both paths, inactive; null when one cannot be had.
template <class Protocol>
[[nodiscard]] USB4_TUNNEL* BuildTwoWayTunnel(USB4_DOMAIN* owner, const USB4_ENDS& ends) {
  USB4_TUNNEL* tunnel = NewTwoWayTunnel<Protocol>(owner, ends);
  if (tunnel == nullptr) return nullptr;
  const USB4_PATH_END source = {ends.Source, kTwoWayHopId};
  const USB4_PATH_END destination = {ends.Destination, kTwoWayHopId};
  if (!BuildPath(tunnel, 0, {source, destination, kTwoWayLinkNumber, Protocol::kDownName}) ||
      !BuildPath(tunnel, 1, {destination, source, kTwoWayLinkNumber, Protocol::kUpName})) {
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  Protocol::InitPath(tunnel->Paths[0]);
  Protocol::InitPath(tunnel->Paths[1]);
  return tunnel;
}

template <class Protocol>
[[nodiscard]] KIV_RESULT SwitchTwoWayTunnel(const USB4_TUNNEL* tunnel, bool enable) {
  return SwitchEnds(tunnel, Protocol::kUpstreamType, enable,
                    [](const USB4_PORT* adapter, bool on) { return Protocol::Switch(adapter, on); });
}

// Looks up path `index` of a tunnel that is being rebuilt from the hardware.
template <class Protocol>
[[nodiscard]] bool FindPath(USB4_TUNNEL* tunnel, std::uint32_t index, const USB4_PATH_SEARCH& search,
                            USB4_PORT** lastAdapter) {
  tunnel->Paths[index] = KivUsb4PathDiscover(search, lastAdapter);
  if (tunnel->Paths[index] == nullptr) return false;
  Protocol::InitPath(tunnel->Paths[index]);
  return true;
}

// The tunnel that is programmed from this downstream adapter, with active paths; null when there is none that is whole,
// and then what there is of it is switched off. The path that leaves the downstream adapter is found first and stands
// at index 1 under the name of the way up, the other one at index 0: the reverse of a tunnel that was built here.
// Nothing but names and diagnostics shows it; whatever acts on a tunnel goes by its end adapters.
template <class Protocol>
[[nodiscard]] USB4_TUNNEL* DiscoverTwoWayTunnel(USB4_DOMAIN* owner, USB4_PORT* downstream) {
  if (!Protocol::IsEnabled(downstream)) return nullptr;
  USB4_TUNNEL* tunnel = NewTwoWayTunnel<Protocol>(owner, {downstream, nullptr});
  if (tunnel == nullptr) return nullptr;
  const USB4_PATH_SEARCH away = {{downstream, kTwoWayHopId}, {nullptr, -1}, Protocol::kUpName};
  if (!FindPath<Protocol>(tunnel, 1, away, &tunnel->Destination)) {
    const KIV_RESULT result = Protocol::Switch(downstream, false);
    TraceWarning("adapter without a path switched off", "adapter", downstream->Number, "result", result);
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  const USB4_PATH_SEARCH back = {{tunnel->Destination, -1}, {downstream, kTwoWayHopId}, Protocol::kDownName};
  if (!FindPath<Protocol>(tunnel, 0, back, nullptr) || !PortIs(tunnel->Destination, Protocol::kUpstreamType) ||
      !Protocol::IsEnabled(tunnel->Destination)) {
    TraceWarning("half a tunnel dropped", "adapter", downstream->Number, "path", Protocol::kUpName);
    KivUsb4TunnelDeactivate(tunnel);
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  return tunnel;
}
