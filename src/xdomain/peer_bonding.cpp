// Link and lanes towards a peer.
#include "xdomain/peer_bonding.h"

#include "include/domain_record.h"
#include "include/trace.h"
#include "topology/adapter_state.h"
#include "topology/link.h"
#include "topology/router_access.h"
#include "xdomain/peer_request.h"
#include "xdomain/upcalls.h"

namespace {

constexpr std::uint32_t kOneLane = 1;
constexpr std::uint32_t kTwoLanes = 2;
// As packets and registers say it.
constexpr std::uint8_t kOneLaneTarget = 1;
constexpr std::uint8_t kTwoLanesTarget = 3;
constexpr std::uint32_t kWidthReads = 11;  // with a second after each

// What both ends do once the lanes are one link, or are not.
void LinkSettled(USB4_XDOMAIN* xdomain) {
  // The link has the width that was waited for; speed and width in the record are for whoever looks at it.
  IgnoreResult(KivUsb4XdomainUpdateLinkAttributes(xdomain));
  // Registered already by an earlier peer, as a rule.
  IgnoreResult(KivUsb4NetDriverInit(xdomain->Domain));
}

// As a wait for 10 s is, but over a second after the peer has gone: its removal waits for this step.
KIV_RESULT WaitForWidth(const USB4_XDOMAIN* xdomain, std::uint32_t width) {
  for (std::uint32_t read = 0; read < kWidthReads && !xdomain->Removed.IsSet(); ++read) {
    const KIV_RESULT result = KivUsb4PortWaitForLinkWidth(xdomain->FacingAdapter, width, 0);
    if (result != kKivTimedOut) return result;
  }
  return kKivTimedOut;
}

// Lanes that a link state change request asks for; 0 while none has come.
std::uint32_t RequestedWidth(USB4_XDOMAIN* xdomain) {
  switch (xdomain->RequestedLinkWidth.Load()) {
    case kOneLaneTarget:
      return kOneLane;
    case kTwoLanesTarget:
      return kTwoLanes;
    default:
      return 0;
  }
}

}  // namespace

KIV_RESULT TakeRetry(AtomicLong& retries, KIV_RESULT failure) {
  return retries.Decrement() + 1 >= 1 ? kKivTryAgain : failure;
}

KIV_RESULT KivUsb4XdomainGetLinkStatus(USB4_XDOMAIN* xdomain) {
  USB4_XDP_LINK link = {};
  const KIV_RESULT result = KivUsb4XdpLinkStatusRequest(xdomain->Domain->ControlChannel, xdomain->Route,
                                                        static_cast<std::uint32_t>(xdomain->RetryCount.Load()), &link);
  if (result == kKivNotAvailable) return result;
  if (result != kKivOk) return TakeRetry(xdomain->RetryCount, result);
  TraceInfo("link of peer", "name", xdomain->Info.Name, "widths", link.SupportedWidths, "target", link.TargetWidth,
            "speeds", link.SupportedSpeeds);
  return link.SupportedWidths < kTwoLanes ? kKivNotAvailable : kKivOk;
}

KIV_RESULT KivUsb4XdomainLinkStateChange(USB4_XDOMAIN* xdomain, std::uint32_t width) {
  if (width != kOneLane && width != kTwoLanes) return kKivInvalid;
  const USB4_PORT* facing = xdomain->FacingAdapter;
  LaneAdpCs1::Value cs1;
  KIV_RESULT result = ReadRegister<LaneAdpCs1>(facing, facing->LaneCapability, cs1);
  if (result != kKivOk) return result;
  result = KivUsb4XdpLinkStateChangeRequest(xdomain->Domain->ControlChannel, xdomain->Route,
                                            static_cast<std::uint32_t>(xdomain->RetryCount.Load()),
                                            width == kOneLane ? kOneLaneTarget : kTwoLanesTarget,
                                            static_cast<std::uint8_t>(cs1.Get<LaneAdpCs1::TargetSpeed>()));
  return result == kKivOk ? kKivOk : TakeRetry(xdomain->RetryCount, result);
}

KIV_RESULT KivUsb4XdomainLaneBondingEnable(USB4_XDOMAIN* xdomain) {
  USB4_PORT* facing = xdomain->FacingAdapter;
  const USB4_PORT* second = facing->DualLinkPartner;
  if (second == nullptr) return kKivNoDevice;
  KIV_RESULT result = KivUsb4PortLaneEnable(second);
  if (result != kKivOk) return result;
  const KIV_RESULT up = KivUsb4WaitForPort(second, true);
  if (up <= 0) return up < 0 ? up : kKivNotReady;
  result = KivUsb4PortLaneBondingEnable(facing);
  if (result == kKivOk) result = WaitForWidth(xdomain, kTwoLanes);
  if (result != kKivOk) return result;
  LinkSettled(xdomain);
  return kKivOk;
}

KIV_RESULT KivUsb4XdomainBondLanesUuidHigh(USB4_XDOMAIN* xdomain) {
  const std::uint32_t width = RequestedWidth(xdomain);
  if (width == 0) return TakeRetry(xdomain->RetryCount, kKivTimedOut);
  USB4_PORT* facing = xdomain->FacingAdapter;
  USB4_PORT* second = facing->DualLinkPartner;
  if (second == nullptr) return kKivNoDevice;
  KIV_RESULT result = KivUsb4PortSetLinkWidth(second, width);
  if (result == kKivOk) result = KivUsb4PortSetLinkWidth(facing, width);
  if (result == kKivOk) result = WaitForWidth(xdomain, width);
  if (result != kKivOk) return result;
  facing->Bonded = width >= kTwoLanes;
  second->Bonded = width >= kTwoLanes;
  LinkSettled(xdomain);
  return kKivOk;
}

KIV_RESULT KivUsb4XdomainUpdateLinkAttributes(USB4_XDOMAIN* xdomain) {
  const USB4_PORT* facing = xdomain->FacingAdapter;
  if (facing == nullptr) return kKivFailed;
  const KIV_RESULT speed = KivUsb4PortGetLinkSpeed(facing);
  if (speed < 0) return speed;
  xdomain->LinkSpeed = static_cast<std::uint32_t>(speed);
  const KIV_RESULT width = KivUsb4PortGetLinkWidth(facing);
  if (width < 0) return width;
  xdomain->LinkWidth = static_cast<std::uint32_t>(width);
  TraceInfo("link to peer", "name", xdomain->Info.Name, "gbps", speed, "lanes", width);
  return kKivOk;
}
