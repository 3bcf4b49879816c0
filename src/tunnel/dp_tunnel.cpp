// Building and switching DisplayPort tunnels, and what they consume.
#include "tunnel/dp_tunnel.h"

#include "hostif/abort.h"
#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/dp_adapter.h"
#include "tunnel/dp_capabilities.h"
#include "tunnel/dp_exchange.h"
#include "tunnel/dp_reservation.h"
#include "tunnel/link_bandwidth.h"
#include "tunnel/path_parameters.h"
#include "tunnel/protocol_adapter.h"
#include "tunnel/tunnel.h"
#include "tunnel/tunnel_kind.h"

namespace {

// On a link whose lanes are not bonded, displays take the second one.
constexpr std::uint32_t kDpLinkNumber = 1;

constexpr std::uint32_t kNegotiationPolls = 16;
constexpr std::uint32_t kCapabilityPolls = 10;
constexpr ULONG kNegotiationPollMs = 100;

bool BuildPaths(USB4_TUNNEL* tunnel) {
  const USB4_PATH_END videoIn = {tunnel->Source, kVideoHopId};
  const USB4_PATH_END videoOut = {tunnel->Destination, kVideoHopId};
  const USB4_PATH_END auxIn = {tunnel->Source, kAuxHopId};
  const USB4_PATH_END auxOut = {tunnel->Destination, kAuxHopId};
  if (!BuildPath(tunnel, kVideoPath, {videoIn, videoOut, kDpLinkNumber, kVideoName})) return false;
  InitNewVideoPath(tunnel->Paths[kVideoPath]);
  if (!BuildPath(tunnel, kAuxTransmitPath, {auxIn, auxOut, kDpLinkNumber, kAuxTransmitName})) return false;
  InitAuxPath(tunnel->Paths[kAuxTransmitPath]);
  if (!BuildPath(tunnel, kAuxReceivePath, {auxOut, auxIn, kDpLinkNumber, kAuxReceiveName})) return false;
  InitAuxPath(tunnel->Paths[kAuxReceivePath]);
  return true;
}

// What each adapter enters and leaves the tunnel with.
struct HopsOfEnds {
  DP_HOP_IDS DpIn;
  DP_HOP_IDS DpOut;
};

// All three paths have as many hops as the video path, so its last index finds the last hop of each. -1 when that is
// not so, as can happen to paths that firmware has set up.
KIV_RESULT FindHops(const USB4_TUNNEL* tunnel, HopsOfEnds& hops) {
  if (tunnel->Destination == nullptr) return kKivFailed;
  const USB4_PATH* video = tunnel->Paths[kVideoPath];
  const USB4_PATH* transmit = tunnel->Paths[kAuxTransmitPath];
  const USB4_PATH* receive = tunnel->Paths[kAuxReceivePath];
  const std::uint32_t last = video->HopCount - 1;
  if (last >= transmit->HopCount || last >= receive->HopCount) {
    TraceErrorBy(NAME_OF(KivUsb4DpActivate), "paths of different lengths", "video", video->HopCount, "transmit",
                 transmit->HopCount, "receive", receive->HopCount);
    return kKivFailed;
  }
  hops.DpIn = {video->Hops[0].InputHopId, transmit->Hops[0].InputHopId, receive->Hops[last].OutputHopId};
  hops.DpOut = {video->Hops[last].OutputHopId, receive->Hops[0].InputHopId, transmit->Hops[last].OutputHopId};
  return kKivOk;
}

KIV_RESULT ProgramHops(const USB4_TUNNEL* tunnel) {
  HopsOfEnds hops;
  KIV_RESULT result = FindHops(tunnel, hops);
  if (result == kKivOk) result = KivUsb4DpPortSetHops(tunnel->Source, hops.DpIn);
  if (result == kKivOk) result = KivUsb4DpPortSetHops(tunnel->Destination, hops.DpOut);
  return result;
}

// What fails here does not keep the adapters on.
void ClearHops(const USB4_TUNNEL* tunnel) {
  constexpr DP_HOP_IDS kNone = {};
  KIV_RESULT result = KivUsb4DpPortHpdClear(tunnel->Source);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4DpActivate), "hot-plug detect not cleared", "adapter", AsAdapter(tunnel->Source),
                 "result", AsResult(result));
  }
  result = KivUsb4DpPortSetHops(tunnel->Source, kNone);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4DpActivate), "hops not cleared", "adapter", AsAdapter(tunnel->Source), "result",
                 AsResult(result));
  }
  if (!PortIs(tunnel->Destination, USB4_ADAPTER_DP_OUT)) return;
  result = KivUsb4DpPortSetHops(tunnel->Destination, kNone);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(KivUsb4DpActivate), "hops not cleared", "adapter", AsAdapter(tunnel->Destination), "result",
                 AsResult(result));
  }
}

// Reads what the DP IN has negotiated, up to `polls` times with a wait after each, until the display's capabilities are
// in it. 0 also when they are not; else the error of a read.
KIV_RESULT WaitForCapabilities(const USB4_PORT* dpIn, std::uint32_t polls, DpAdpCs7::Value& negotiated) {
  for (std::uint32_t poll = 0; poll < polls; ++poll) {
    const KIV_RESULT result = ReadProtocolRegister<DpAdpCs7>(dpIn, negotiated);
    if (result != kKivOk) return result;
    if (negotiated.IsSet<DpAdpCs7::ReadDone>()) break;
    SleepMs(dpIn->Router->Domain, kNegotiationPollMs);
  }
  return kKivOk;
}

// A display that stays silent shows nothing and so consumes nothing, which is no error.
KIV_RESULT NegotiatedMode(const USB4_PORT* dpIn, DP_LINK_MODE& mode) {
  DpAdpCs7::Value negotiated;
  const KIV_RESULT result = WaitForCapabilities(dpIn, kNegotiationPolls, negotiated);
  if (result == kKivOk && negotiated.IsSet<DpAdpCs7::ReadDone>()) mode = DpCapMode(negotiated.Word());
  return result;
}

// The mode in use as far as it is known, else 0 x 0.
KIV_RESULT CurrentMode(const USB4_PORT* dpIn, DP_LINK_MODE& mode) {
  if (KivUsb4SwitchSupportsDpHandshake(dpIn->Router)) return NegotiatedMode(dpIn, mode);
  if (dpIn->Router->Generation < kFirstDpGeneration) return kKivOk;
  DpAdpCs5::Value remote;
  const KIV_RESULT result = ReadProtocolRegister<DpAdpCs5>(dpIn, remote);
  if (result == kKivOk) mode = DpCapMode(remote.Word());
  return result;
}

}  // namespace

USB4_TUNNEL* KivUsb4TunnelAllocDp(USB4_DOMAIN* owner, const USB4_ENDS& ends, const USB4_BANDWIDTH& maximum) {
  if (ends.Source->ProtocolCapability == 0 || ends.Destination->ProtocolCapability == 0) return nullptr;
  USB4_TUNNEL* tunnel = NewTunnel(USB4_TUNNEL_DP, owner, ends);
  if (tunnel == nullptr) return nullptr;
  tunnel->Maximum = maximum;
  if (!BuildPaths(tunnel)) {
    KivUsb4TunnelFree(tunnel);
    return nullptr;
  }
  return tunnel;
}

KIV_RESULT KivUsb4DpActivate(USB4_TUNNEL* tunnel, bool enable) {
  if (enable) {
    const KIV_RESULT result = ProgramHops(tunnel);
    if (result != kKivOk) return result;
  } else {
    ClearHops(tunnel);
  }
  return SwitchEnds(tunnel, enable);
}

KIV_RESULT KivUsb4DpConsumedBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& consumed) {
  if (tunnel->Destination == nullptr) return kKivFailed;
  DP_LINK_MODE mode = {};
  const KIV_RESULT result = CurrentMode(tunnel->Source, mode);
  if (result != kKivOk) return result;
  const auto mbps = static_cast<std::int32_t>(KivUsb4DpBandwidth(mode));
  consumed = FlowsDownstream(tunnel) ? USB4_BANDWIDTH{0, mbps} : USB4_BANDWIDTH{mbps, 0};
  return kKivOk;
}

KIV_RESULT KivUsb4PollDPRxCapDone(const USB4_TUNNEL* tunnel) {
  if (!KivUsb4SwitchIsUsb4(tunnel->Source->Router)) return kKivOk;
  TraceStep("wait for the display", "in", AsAdapter(tunnel->Source));
  DpAdpCs7::Value negotiated;
  const KIV_RESULT result = WaitForCapabilities(tunnel->Source, kCapabilityPolls, negotiated);
  if (result != kKivOk) return result;
  return negotiated.IsSet<DpAdpCs7::ReadDone>() ? kKivOk : kKivFailed;
}

void GiveBackDp(const USB4_TUNNEL* tunnel) {
  const KIV_RESULT result = KivUsb4SwitchDeallocDpResource(tunnel->Source->Router, tunnel->Source);
  if (result != kKivOk) {
    TraceError("DP IN not given back", "adapter", AsAdapter(tunnel->Source), "result", AsResult(result));
  }
  // Failures are traced where they happen; the tunnel goes all the same.
  IgnoreResult(KivUsb4ReclaimUsb3Bandwidth(tunnel->Owner, {tunnel->Source, tunnel->Destination}));
}
