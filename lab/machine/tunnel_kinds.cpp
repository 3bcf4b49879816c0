// Asks the driver's table.
#include "lab/machine/tunnel_kinds.h"

#include <array>

#include "tunnel/tunnel_kind.h"

namespace lab {
namespace {

constexpr std::array kKinds = {TunnelKind::Pcie, TunnelKind::Dp, TunnelKind::Dma, TunnelKind::Usb3};

constexpr USB4_TUNNEL_TYPE TypeOf(TunnelKind kind) {
  return static_cast<USB4_TUNNEL_TYPE>(kind);
}

static_assert(kKinds.size() == kTunnelKindCount && kTunnelKindCount == USB4_TUNNEL_TYPE_COUNT);
static_assert(TypeOf(TunnelKind::Pcie) == USB4_TUNNEL_PCIE && TypeOf(TunnelKind::Dp) == USB4_TUNNEL_DP &&
              TypeOf(TunnelKind::Dma) == USB4_TUNNEL_DMA && TypeOf(TunnelKind::Usb3) == USB4_TUNNEL_USB3);

}  // namespace

std::span<const TunnelKind> TunnelKinds() {
  return kKinds;
}

const char* TunnelKindName(TunnelKind kind) {
  return KindOf(TypeOf(kind)).Name;
}

TunnelKindEnds EndsOf(TunnelKind kind) {
  const USB4_TUNNEL_KIND& row = KindOf(TypeOf(kind));
  return {row.SourceType, row.DestinationType};
}

}  // namespace lab
