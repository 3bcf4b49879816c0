// The kinds of tunnels as the driver's table has them.
#pragma once
#include <cstddef>
#include <cstdint>
#include <span>

namespace lab {

enum class TunnelKind : std::uint32_t { Pcie, Dp, Dma, Usb3 };  // as the driver numbers them
inline constexpr std::size_t kTunnelKindCount = 4;

std::span<const TunnelKind> TunnelKinds();    // every one, in the driver's order
const char* TunnelKindName(TunnelKind kind);  // "PCIe", "DP", "DMA", "USB3"

// Adapter types of a kind's two ends.
struct TunnelKindEnds {
  std::uint32_t source = 0, destination = 0;
};
TunnelKindEnds EndsOf(TunnelKind kind);

}  // namespace lab
