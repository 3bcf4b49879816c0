// Tunnels and paths as a person reads them.
#include "lab/machine/domain_view.h"

#include <fmt/format.h>

#include <algorithm>

namespace lab {

const RouterView* DomainView::Find(std::uint64_t route) const {
  const auto found =
      std::find_if(routers.begin(), routers.end(), [&](const RouterView& router) { return router.route == route; });
  return found == routers.end() ? nullptr : &*found;
}

const PeerView* DomainView::FindPeer(std::uint64_t route) const {
  const auto found =
      std::find_if(peers.begin(), peers.end(), [&](const PeerView& peer) { return peer.route == route; });
  return found == peers.end() ? nullptr : &*found;
}

std::string PeerNameText(const PeerView& peer) {
  if (!peer.vendorName && !peer.deviceName) return "(no name)";
  return peer.vendorName.value_or("?") + " " + peer.deviceName.value_or("?");
}

std::string TunnelText(const TunnelView& tunnel) {
  const AdapterPlace& from = tunnel.source.place;
  std::string text = fmt::format("{} {:x}:{} -> ", TunnelKindName(tunnel.kind), from.route, from.adapter);
  if (!tunnel.destination) return text + "?";
  return text + fmt::format("{:x}:{}", tunnel.destination->place.route, tunnel.destination->place.adapter);
}

std::string BandwidthText(const BandwidthView& bandwidth) {
  return fmt::format("{}/{}", bandwidth.up, bandwidth.down);
}

std::string PathText(const PathView& path) {
  std::string text;
  for (const HopView& hop : path.hops) {
    text += fmt::format("{}{:x}:{} {} -> {:x}:{} {}", text.empty() ? "" : " | ", hop.route, hop.in, hop.inHop,
                        hop.route, hop.out, hop.outHop);
  }
  return text;
}

}  // namespace lab
