// The table of path parameters, and the rules for credits.
#include "tunnel/path_parameters.h"

#include <span>

namespace {

constexpr std::uint32_t kNoHop = 0;
constexpr std::uint32_t kAllButLast = kFirstHop | kInnerHops;
constexpr std::uint32_t kAllHops = kFirstHop | kInnerHops | kLastHop;

struct Parameters {
  std::uint32_t Priority;
  std::uint32_t Weight;
  std::uint32_t IngressFlowControl;
  std::uint32_t EgressFlowControl;
};

constexpr Parameters kPcie = {3, 1, kAllHops, kAllButLast};
constexpr Parameters kUsb3 = {3, 3, kAllHops, kAllButLast};
constexpr Parameters kVideo = {1, 1, kNoHop, kNoHop};
constexpr Parameters kAux = {2, 1, kAllHops, kAllButLast};

constexpr std::uint32_t kDmaPriority = 5;
constexpr std::uint32_t kDmaWeight = 1;
constexpr std::uint32_t kFirstHopCredits = 7;  // PCIe and USB3
constexpr std::uint32_t kAuxCredits = 1;
constexpr std::uint32_t kAuxReserve = 2;  // buffers of a DP IN adapter that are left to the AUX paths
constexpr std::uint32_t kMostVideoCredits = 12;

void Apply(const Parameters& parameters, USB4_PATH* path) {
  path->PriorityWeight = USB4_PATH::Priority::Of(parameters.Priority) | USB4_PATH::Weight::Of(parameters.Weight);
  path->IngressFlowControl = parameters.IngressFlowControl;
  path->EgressFlowControl = parameters.EgressFlowControl;
}

void SetCredits(USB4_PATH* path, std::uint32_t credits) {
  for (USB4_HOP& hop : std::span<USB4_HOP>(path->Hops, path->HopCount)) hop.InitialCredits = credits;
}

void SetProtocolCredits(USB4_PATH* path) {
  path->Hops[0].InitialCredits = kFirstHopCredits;
  if (path->HopCount > 1) path->Hops[1].InitialCredits = KivUsb4PcieHopCredits(path->Hops[1].InputAdapter->Router);
}

AdpCs4::Value BuffersOfFirstAdapter(const USB4_PATH* path) {
  return AdpCs4::Value(path->Hops[0].InputAdapter->Header[AdpCs4::kOffset]);
}

}  // namespace

std::uint32_t KivUsb4PcieHopCredits(const USB4_SWITCH* router) {
  switch (router->LinkSpeed * router->LinkWidth) {
    case 20:
      return 24;
    case 40:
      return 32;
    default:
      return 16;
  }
}

void KivUsb4PciePathInit(USB4_PATH* path) {
  Apply(kPcie, path);
  SetProtocolCredits(path);
}

void KivUsb4Usb3PathInit(USB4_PATH* path) {
  Apply(kUsb3, path);
  SetProtocolCredits(path);
}

void InitAuxPath(USB4_PATH* path) {
  Apply(kAux, path);
  SetCredits(path, kAuxCredits);
}

void InitDmaPath(USB4_PATH* path, const DMA_PATH_PARAMETERS& parameters) {
  Apply({kDmaPriority, kDmaWeight, kAllHops, parameters.EgressFlowControl}, path);
  path->IngressSharedBuffering = parameters.IngressSharedBuffering;
  path->EgressSharedBuffering = kNoHop;
  path->ClearFlowControl = 1;
  SetCredits(path, parameters.Credits);
}

void InitNewVideoPath(USB4_PATH* path) {
  Apply(kVideo, path);
  // Unsigned: an adapter with less than the reserve wraps around and gets the most.
  const std::uint32_t left = BuffersOfFirstAdapter(path).Get<AdpCs4::TotalBuffers>() - kAuxReserve;
  path->NfcCredits = static_cast<std::int32_t>(left < kMostVideoCredits ? left : kMostVideoCredits);
}

void InitFoundVideoPath(USB4_PATH* path) {
  Apply(kVideo, path);
  path->NfcCredits = static_cast<std::int32_t>(BuffersOfFirstAdapter(path).Get<AdpCs4::NfcBuffers>());
}
