// TMU state: finding it, switching it off, and on in HiFi mode; and posting the host router's time into a device
// router.
#include "topology/tmu.h"

#include "hostif/abort.h"
#include "include/domain_record.h"
#include "include/trace.h"
#include "topology/capabilities.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"

namespace {

void FindTmuCapabilities(USB4_SWITCH* router) {
  const CAPABILITY_OFFSET found = KivUsb4SwitchFindCap(router, kRouterCapabilityTmu);
  if (found > 0) router->TmuCapability = static_cast<std::uint32_t>(found);
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    const CAPABILITY_OFFSET offset = KivUsb4PortFindCap(&adapter, kAdapterCapabilityTmu);
    if (offset > 0) adapter.TmuCapability = static_cast<std::uint32_t>(offset);
  }
}

// The parent's end first: it must send before the router's end listens for answers to its own packets.
KIV_RESULT EnableFromUnidirectional(USB4_SWITCH* router) {
  const USB4_PORT* down = ParentAdapterOf(router);
  KIV_RESULT result = down == nullptr ? kKivOk : KivUsb4PortTmuSetBidirectional(down);
  if (result == kKivOk) result = KivUsb4SwitchTmuRateWrite(router, kTmuHiFi);
  if (result == kKivOk) result = KivUsb4PortTmuSetBidirectional(KivUsb4SwitchUpstreamPort(router));
  return result;
}

constexpr ULONG kPostPollMs = 10;
constexpr std::uint32_t kPostPolls = 100;

KIV_RESULT ReadHostTime(const USB4_SWITCH* host, std::uint64_t& time) {
  std::uint32_t words[RouterTmuLocalTime::kCount] = {};
  const KIV_RESULT result = ReadArray<RouterTmuLocalTime>(host, host->TmuCapability, words);
  if (result != kKivOk) return result;
  const std::uint64_t low = RouterTmuCs1::Value(words[0]).Get<RouterTmuCs1::TimeLow>();
  const std::uint64_t middle = RouterTmuCs2::Value(words[1]).Get<RouterTmuCs2::TimeMiddle>();
  const std::uint64_t high = RouterTmuCs3::Value(words[2]).Get<RouterTmuCs3::TimeHigh>();
  time = high << 48 | middle << 16 | low;
  return kKivOk;
}

template <class Array>
KIV_RESULT WriteTime(const USB4_SWITCH* router, std::uint64_t time) {
  return WriteArray<Array>(router, router->TmuCapability,
                           {static_cast<std::uint32_t>(time), static_cast<std::uint32_t>(time >> 32)});
}

KIV_RESULT WaitUntilTaken(const USB4_SWITCH* router) {
  for (std::uint32_t left = kPostPolls;;) {
    SleepMs(router->Domain, kPostPollMs);
    std::uint32_t words[RouterTmuPostTime::kCount] = {};
    const KIV_RESULT result = ReadArray<RouterTmuPostTime>(router, router->TmuCapability, words);
    if (result != kKivOk) return result;
    // Counted before the value is looked at: taken at the last poll is too late.
    if (--left == 0) return kKivFailed;
    if (words[0] == 0 && words[1] == 0) return kKivOk;
  }
}

KIV_RESULT Post(const USB4_SWITCH* router, std::uint64_t time) {
  KIV_RESULT result = WriteTime<RouterTmuPostLocalTime>(router, time);
  if (result == kKivOk) result = WriteTime<RouterTmuPostTime>(router, 1);
  if (result == kKivOk) result = WaitUntilTaken(router);
  return result;
}

}  // namespace

KIV_RESULT KivUsb4SwitchTmuInit(USB4_SWITCH* router) {
  FindTmuCapabilities(router);
  // Also without a capability: the rate then comes from the router space word of the same offset.
  const KIV_RESULT rate = KivUsb4SwitchTmuRateRead(router);
  if (rate < 0) return rate;
  router->TmuRate = static_cast<std::uint32_t>(rate);
  router->TmuUniCapable = KivUsb4SwitchTmuUcapSupported(router);
  if (router->TmuUniCapable == 0) {
    router->TmuUniMode = 0;
  } else if (!IsHostRouter(router)) {
    router->TmuUniMode = KivUsb4PortTmuIsUnidirectional(KivUsb4SwitchUpstreamPort(router));
  }
  TraceInfo("time synchronisation", "name", router->Info.Name, "mode", KivUsb4SwitchTmuModeName(router));
  return kKivOk;
}

KIV_RESULT KivUsb4EnableTmu(USB4_SWITCH* router) {
  if (KivUsb4SwitchTmuIsHiFiBidirectional(router)) return kKivOk;
  KIV_RESULT result = KivUsb4SwitchTmuDisable(router);
  if (result == kKivOk) result = KivUsb4SwitchTmuPostTime(router);
  if (result == kKivOk) result = KivUsb4SwitchTmuEnable(router);
  return result;
}

KIV_RESULT KivUsb4SwitchTmuEnable(USB4_SWITCH* router) {
  if (!KivUsb4SwitchIsUsb4(router) || KivUsb4SwitchTmuIsHiFiBidirectional(router)) return kKivOk;
  KIV_RESULT result = KivUsb4SwitchTmuSetTimeDisruption(router, true);
  if (result != kKivOk) return result;
  result = IsHostRouter(router) || router->TmuUniMode == 0 ? KivUsb4SwitchTmuRateWrite(router, kTmuHiFi)
                                                           : EnableFromUnidirectional(router);
  // Returned with the disruption still on: the router's time is not to be trusted.
  if (result != kKivOk) return result;
  router->TmuUniMode = 0;
  router->TmuRate = kTmuHiFi;
  TraceInfo("time synchronisation", "name", router->Info.Name, "mode", KivUsb4SwitchTmuModeName(router));
  return KivUsb4SwitchTmuSetTimeDisruption(router, false);
}

KIV_RESULT KivUsb4SwitchTmuDisable(USB4_SWITCH* router) {
  if (!KivUsb4SwitchIsUsb4(router) || router->TmuRate == kTmuOff) return kKivOk;
  if (router->TmuUniMode != 0) {
    // The parent's end decides; the router's own may be out of reach already.
    IgnoreResult(KivUsb4PortTmuSetBidirectional(KivUsb4SwitchUpstreamPort(router)));
    const USB4_PORT* down = ParentAdapterOf(router);
    const KIV_RESULT result = down == nullptr ? kKivOk : KivUsb4PortTmuSetBidirectional(down);
    if (result != kKivOk) return result;
  }
  // A router that does not take the rate has gone, or is switched on again next.
  IgnoreResult(KivUsb4SwitchTmuRateWrite(router, kTmuOff));
  router->TmuRate = kTmuOff;
  router->TmuUniMode = 0;
  return kKivOk;
}

KIV_RESULT KivUsb4SwitchTmuRateRead(const USB4_SWITCH* router) {
  RouterTmuCs3::Value cs3;
  const KIV_RESULT result = ReadRegister<RouterTmuCs3>(router, router->TmuCapability, cs3);
  return result != kKivOk ? result : static_cast<KIV_RESULT>(cs3.Get<RouterTmuCs3::Rate>());
}

KIV_RESULT KivUsb4SwitchTmuRateWrite(const USB4_SWITCH* router, std::uint32_t rate) {
  return ModifyRegister<RouterTmuCs3>(router, router->TmuCapability,
                                      [rate](RouterTmuCs3::Value& cs3) { cs3.Set<RouterTmuCs3::Rate>(rate); });
}

KIV_RESULT KivUsb4SwitchTmuSetTimeDisruption(const USB4_SWITCH* router, bool on) {
  return ModifyRegister<RouterTmuCs0>(router, router->TmuCapability,
                                      [on](RouterTmuCs0::Value& cs0) { cs0.Set<RouterTmuCs0::TimeDisruption>(on); });
}

bool KivUsb4SwitchTmuUcapSupported(const USB4_SWITCH* router) {
  RouterTmuCs0::Value cs0;
  if (ReadRegister<RouterTmuCs0>(router, router->TmuCapability, cs0) != kKivOk) return false;
  return cs0.IsSet<RouterTmuCs0::UnidirectionalCapable>();
}

bool KivUsb4PortTmuIsUnidirectional(const USB4_PORT* adapter) {
  AdapterTmuCs3::Value cs3;
  if (ReadRegister<AdapterTmuCs3>(adapter, adapter->TmuCapability, cs3) != kKivOk) return false;
  return cs3.IsSet<AdapterTmuCs3::Unidirectional>();
}

KIV_RESULT KivUsb4PortTmuWrite(const USB4_PORT* adapter, const ADAPTER_TMU_CHANGE& change) {
  const USB4_REGISTER_RANGE range = {USB4_CFG_SPACE_ADAPTER, std::uint64_t{adapter->TmuCapability} + change.Offset, 1};
  std::uint32_t word = 0;
  const KIV_RESULT result = KivUsb4PortRead(adapter, &word, range);
  if (result != kKivOk) return result;
  word = (word & ~change.Mask) | change.Value;
  return KivUsb4PortWrite(adapter, &word, range);
}

KIV_RESULT KivUsb4PortTmuSetUnidirectional(const USB4_PORT* adapter, bool on) {
  if (adapter->Router->TmuUniCapable == 0) return kKivOk;
  constexpr std::uint32_t mask = AdapterTmuCs3::Unidirectional::kMask;
  return KivUsb4PortTmuWrite(adapter, {AdapterTmuCs3::kOffset, mask, on ? mask : 0});
}

KIV_RESULT KivUsb4PortTmuSetBidirectional(const USB4_PORT* adapter) {
  return KivUsb4PortTmuSetUnidirectional(adapter, false);
}

bool KivUsb4SwitchTmuIsHiFiBidirectional(const USB4_SWITCH* router) {
  return router->TmuRate == kTmuHiFi && router->TmuUniMode == 0;
}

const char* KivUsb4SwitchTmuModeName(const USB4_SWITCH* router) {
  const bool host = IsHostRouter(router);
  switch (router->TmuRate) {
    case kTmuOff:
      return "off";
    case kTmuHiFi:
      if (host) return "HiFi";
      return router->TmuUniMode != 0 ? "uni-directional, HiFi" : "bi-directional, HiFi";
    case kTmuNormal:
      return host ? "normal" : "uni-directional, normal";
    default:
      return "unknown";
  }
}

KIV_RESULT KivUsb4SwitchTmuPostTime(const USB4_SWITCH* router) {
  const USB4_SWITCH* host = router->Domain->HostRouter;
  if (!KivUsb4SwitchIsUsb4(router) || IsHostRouter(router)) return kKivOk;
  if (host == nullptr || host->TmuCapability == 0) return kKivOk;
  std::uint64_t time = 0;
  KIV_RESULT result = ReadHostTime(host, time);
  if (result != kKivOk) return result;
  result = KivUsb4SwitchTmuSetTimeDisruption(router, true);
  if (result != kKivOk) return result;
  result = Post(router, time);
  // Also after a failure; what counts is whether the time was taken.
  IgnoreResult(KivUsb4SwitchTmuSetTimeDisruption(router, false));
  return result;
}
