// What each kind of path asks of the routers: the values that follow from the protocol it carries. Touches records
// only.
#pragma once
#include <cstdint>

#include "include/path_record.h"
#include "include/router_record.h"

// Credits of the second hop of a PCIe or USB3 path, by the upstream link of the router that it enters.
[[nodiscard]] std::uint32_t KivUsb4PcieHopCredits(const USB4_SWITCH* router);
void KivUsb4PciePathInit(USB4_PATH* path);
void KivUsb4Usb3PathInit(USB4_PATH* path);
void InitAuxPath(USB4_PATH* path);
// What the two paths of a DMA tunnel differ in; the masks are those of USB4_PATH.
struct DMA_PATH_PARAMETERS {
  std::uint32_t IngressSharedBuffering;
  std::uint32_t EgressFlowControl;
  std::uint32_t Credits;  // of every hop
};
void InitDmaPath(USB4_PATH* path, const DMA_PATH_PARAMETERS& parameters);
// A new video path takes buffers by the total that its DP IN adapter has; one that is found in the hardware is taken to
// have as many as that adapter has set aside.
void InitNewVideoPath(USB4_PATH* path);
void InitFoundVideoPath(USB4_PATH* path);
