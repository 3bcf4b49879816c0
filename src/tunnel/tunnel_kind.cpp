// The table of tunnel kinds, and what follows from a row alone.
#include "tunnel/tunnel_kind.h"

#include <array>

#include "tunnel/dma_tunnel.h"
#include "tunnel/dp_adapter.h"
#include "tunnel/dp_discover.h"
#include "tunnel/dp_exchange.h"
#include "tunnel/dp_tunnel.h"
#include "tunnel/pcie_tunnel.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/two_way_tunnel.h"
#include "tunnel/usb3_adapter.h"
#include "tunnel/usb3_tunnel.h"

namespace {

constexpr USB4_TUNNEL_KIND kKinds[] = {
    {.Type = USB4_TUNNEL_PCIE,
     .Name = "PCIe",
     .SourceType = USB4_ADAPTER_PCIE_DOWNSTREAM,
     .DestinationType = USB4_ADAPTER_PCIE_UPSTREAM,
     .PathCount = kTwoWayPaths,
     .Callbacks = {.Activate = KivUsb4PciActivate},
     .SwitchEnd = KivUsb4PciPortEnable,
     .EndIsOn = KivUsb4PciPortIsEnabled,
     .Discover = KivUsb4TunnelDiscoverPci,
     .CleanUp = TraceBrokenPcie,
     .Adopted = MarkFirmwarePcieRouters,
     .Count = &USB4_DOMAIN::PcieTunnelCount,
     .CountsAdopted = true},
    // An adopted DisplayPort tunnel counts in the total only. The count of its kind says which displays this driver has
    // brought up and is to bring up again after a sleep; an adopted one belongs to whoever set it up.
    {.Type = USB4_TUNNEL_DP,
     .Name = "DP",
     .SourceType = USB4_ADAPTER_DP_IN,
     .DestinationType = USB4_ADAPTER_DP_OUT,
     .PathCount = kDpPaths,
     .Callbacks = {.Init = KivUsb4DpXchgCaps,
                   .Activate = KivUsb4DpActivate,
                   .ConsumedBandwidth = KivUsb4DpConsumedBandwidth},
     .SwitchEnd = KivUsb4DpPortEnable,
     .EndIsOn = KivUsb4DpPortIsEnabled,
     .Discover = KivUsb4TunnelDiscoverDp,
     .CleanUp = CleanUpDpIn,
     .GiveBack = GiveBackDp,
     .Count = &USB4_DOMAIN::DpTunnelCount},
    // Tunnels to a peer host: none is found in the hardware, and their ends carry other traffic too.
    {.Type = USB4_TUNNEL_DMA,
     .Name = "DMA",
     .SourceType = USB4_ADAPTER_HOST_INTERFACE,
     .DestinationType = USB4_ADAPTER_LANE,
     .PathCount = kDmaPaths,
     .Callbacks = {.Activate = KivUsb4DmaActivate}},
    {.Type = USB4_TUNNEL_USB3,
     .Name = "USB3",
     .SourceType = USB4_ADAPTER_USB3_DOWNSTREAM,
     .DestinationType = USB4_ADAPTER_USB3_UPSTREAM,
     .PathCount = kTwoWayPaths,
     .Callbacks = {.Init = KivUsb4Usb3Init,
                   .Activate = KivUsb4Usb3Activate,
                   .ConsumedBandwidth = KivUsb4Usb3ConsumedBandwidth,
                   .ReleaseUnusedBandwidth = KivUsb4Usb3ReleaseUnusedBandwidth,
                   .ReclaimAvailableBandwidth = KivUsb4Usb3ReclaimAvailableBandwidth},
     .SwitchEnd = KivUsb4Usb3PortEnable,
     .EndIsOn = KivUsb4Usb3PortIsEnabled,
     .Discover = KivUsb4TunnelDiscoverUsb3,
     .CleanUp = TraceBrokenUsb3,
     .GiveBack = GiveBackUsb3,
     .Count = &USB4_DOMAIN::Usb3TunnelCount,
     .CountsAdopted = true},
};

// Each type has its row, at its own number.
constexpr bool IsComplete() {
  if (std::size(kKinds) != USB4_TUNNEL_TYPE_COUNT) return false;
  for (std::uint32_t type = 0; type < USB4_TUNNEL_TYPE_COUNT; ++type) {
    if (kKinds[type].Type != type || kKinds[type].Name == nullptr) return false;
  }
  return true;
}
static_assert(IsComplete());

}  // namespace

const USB4_TUNNEL_KIND& KindOf(USB4_TUNNEL_TYPE type) {
  KivAssert(type < USB4_TUNNEL_TYPE_COUNT);
  return kKinds[type];
}

const USB4_TUNNEL_KIND* KindStartingAt(std::uint32_t adapterType) {
  for (const USB4_TUNNEL_KIND& kind : kKinds) {
    if (kind.SourceType == adapterType) return &kind;
  }
  return nullptr;
}

const USB4_TUNNEL_KIND* KindWithEndAt(std::uint32_t adapterType) {
  for (const USB4_TUNNEL_KIND& kind : kKinds) {
    if (kind.SourceType == adapterType || kind.DestinationType == adapterType) return &kind;
  }
  return nullptr;
}

USB4_TUNNEL* NewTunnel(USB4_TUNNEL_TYPE type, USB4_DOMAIN* owner, const USB4_ENDS& ends) {
  const USB4_TUNNEL_KIND& kind = KindOf(type);
  USB4_TUNNEL* tunnel = KivUsb4TunnelAlloc(owner, kind.PathCount, type);
  if (tunnel == nullptr) return nullptr;
  tunnel->Source = ends.Source;
  tunnel->Destination = ends.Destination;
  tunnel->Init = kind.Callbacks.Init;
  tunnel->Activate = kind.Callbacks.Activate;
  tunnel->ConsumedBandwidth = kind.Callbacks.ConsumedBandwidth;
  tunnel->ReleaseUnusedBandwidth = kind.Callbacks.ReleaseUnusedBandwidth;
  tunnel->ReclaimAvailableBandwidth = kind.Callbacks.ReclaimAvailableBandwidth;
  return tunnel;
}

KIV_RESULT SwitchEnds(const USB4_TUNNEL* tunnel, bool enable) {
  const USB4_TUNNEL_KIND& kind = KindOf(tunnel->Type);
  const KIV_RESULT result = kind.SwitchEnd(tunnel->Source, enable);
  if (result != kKivOk || !PortIs(tunnel->Destination, kind.DestinationType)) return result;
  return kind.SwitchEnd(tunnel->Destination, enable);
}
