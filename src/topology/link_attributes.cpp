// Speed and width of links, and the marks of their ends.
#include "hostif/abort.h"
#include "include/trace.h"
#include "topology/link.h"
#include "topology/link_controller.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kSpeedCode20 = 4;
constexpr std::uint32_t kTargetSingle = 1;
constexpr std::uint32_t kTargetDual = 3;
constexpr ULONG kWidthPollMs = 1000;

KIV_RESULT ReadLane(const USB4_PORT* adapter, LaneAdpCs1::Value& cs1) {
  if (adapter->LaneCapability == 0) return kKivFailed;
  return ReadRegister<LaneAdpCs1>(adapter, adapter->LaneCapability, cs1);
}

KIV_RESULT MarkConfigured(const USB4_PORT* adapter, bool on) {
  return KivUsb4SwitchIsUsb4(adapter->Router) ? KivUsb4SetPortConfigured(adapter, on)
                                              : KivUsb4LcSetConfigured(adapter, on);
}

}  // namespace

KIV_RESULT KivUsb4PortGetLinkSpeed(const USB4_PORT* adapter) {
  LaneAdpCs1::Value cs1;
  const KIV_RESULT result = ReadLane(adapter, cs1);
  if (result != kKivOk) return result;
  return cs1.Get<LaneAdpCs1::CurrentSpeed>() == kSpeedCode20 ? 20 : 10;
}

KIV_RESULT KivUsb4PortGetLinkWidth(const USB4_PORT* adapter) {
  LaneAdpCs1::Value cs1;
  const KIV_RESULT result = ReadLane(adapter, cs1);
  if (result != kKivOk) return result;
  return static_cast<KIV_RESULT>(cs1.Get<LaneAdpCs1::NegotiatedWidth>());
}

bool KivUsb4PortIsWidthSupported(const USB4_PORT* adapter, std::uint32_t width) {
  if (adapter->LaneCapability == 0) return false;
  LaneAdpCs0::Value cs0;
  if (ReadRegister<LaneAdpCs0>(adapter, adapter->LaneCapability, cs0) != kKivOk) return false;
  return (cs0.Get<LaneAdpCs0::SupportedWidths>() & width) != 0;
}

KIV_RESULT KivUsb4PortSetLinkWidth(const USB4_PORT* adapter, std::uint32_t width) {
  if (adapter->LaneCapability == 0) return kKivFailed;
  if (width != 1 && width != 2) return kKivFailed;
  return ModifyRegister<LaneAdpCs1>(adapter, adapter->LaneCapability, [width](LaneAdpCs1::Value& cs1) {
    cs1.Set<LaneAdpCs1::TargetWidth>(width == 1 ? kTargetSingle : kTargetDual);
    cs1.Set<LaneAdpCs1::LaneBonding>(1);
  });
}

KIV_RESULT KivUsb4PortWaitForLinkWidth(const USB4_PORT* adapter, std::uint32_t width, std::uint32_t timeoutMs) {
  for (std::uint32_t remaining = timeoutMs / 1000;; --remaining) {
    const KIV_RESULT found = KivUsb4PortGetLinkWidth(adapter);
    if (found >= 0 && static_cast<std::uint32_t>(found) == width) return kKivOk;
    if (found < 0 && found != kKivKeepWaiting) return found;
    SleepMs(adapter->Router->Domain, kWidthPollMs);
    if (remaining == 0) return kKivTimedOut;
  }
}

KIV_RESULT KivUsb4PortSetLaneEnabled(const USB4_PORT* adapter, bool enable) {
  if (!KivUsb4PortIsLane(adapter)) return kKivInvalid;
  return ModifyRegister<LaneAdpCs1>(adapter, adapter->LaneCapability, [enable](LaneAdpCs1::Value& cs1) {
    cs1.Set<LaneAdpCs1::LaneDisable>(enable ? 0 : 1);
  });
}

KIV_RESULT KivUsb4PortLaneEnable(const USB4_PORT* adapter) {
  return KivUsb4PortSetLaneEnabled(adapter, true);
}

KIV_RESULT KivUsb4PortLaneDisable(const USB4_PORT* adapter) {
  return KivUsb4PortSetLaneEnabled(adapter, false);
}

KIV_RESULT KivUsb4SetPortConfigured(const USB4_PORT* adapter, bool on) {
  return ModifyRegister<PortCs19>(adapter, adapter->Usb4PortCapability,
                                  [on](PortCs19::Value& cs19) { cs19.Set<PortCs19::PortConfigured>(on); });
}

KIV_RESULT Usb4SetXdomainConfigured(const USB4_PORT* adapter, bool on) {
  if (adapter->Usb4PortCapability == 0) return kKivInvalid;
  return ModifyRegister<PortCs19>(adapter, adapter->Usb4PortCapability,
                                  [on](PortCs19::Value& cs19) { cs19.Set<PortCs19::XdomainConfigured>(on); });
}

KIV_RESULT KivUsb4SetXdomainConfiguredAny(const USB4_PORT* adapter, bool set) {
  return KivUsb4SwitchIsUsb4(adapter->Router) ? Usb4SetXdomainConfigured(adapter, set)
                                              : KivUsb4LcSetXdomainConfigured(adapter, set);
}

KIV_RESULT KivUsb4SwitchUpdateLinkAttributes(USB4_SWITCH* router) {
  if (IsHostRouter(router)) return kKivOk;
  const USB4_PORT* upstream = KivUsb4SwitchUpstreamPort(router);
  const KIV_RESULT speed = KivUsb4PortGetLinkSpeed(upstream);
  if (speed < 0) return speed;
  if (router->LinkSpeed != static_cast<std::uint32_t>(speed)) {
    TraceInfo("link speed", "name", router->Info.Name, "gbps", speed);
  }
  router->LinkSpeed = static_cast<std::uint32_t>(speed);
  const KIV_RESULT width = KivUsb4PortGetLinkWidth(upstream);
  if (width < 0) return width;
  if (router->LinkWidth != static_cast<std::uint32_t>(width)) {
    TraceInfo("link width", "name", router->Info.Name, "lanes", width);
  }
  router->LinkWidth = static_cast<std::uint32_t>(width);
  return kKivOk;
}

KIV_RESULT KivUsb4SwitchConfigureLink(const USB4_SWITCH* router) {
  if (IsHostRouter(router)) return kKivOk;
  const USB4_PORT* upstream = KivUsb4SwitchUpstreamPort(router);
  const KIV_RESULT result = MarkConfigured(upstream, true);
  if (result != kKivOk || upstream->Remote == nullptr) return result;
  return MarkConfigured(upstream->Remote, true);
}

KIV_RESULT KivUsb4SwitchUnconfigureLink(const USB4_SWITCH* router) {
  if (IsHostRouter(router) || router->Unplugged.IsSet()) return kKivOk;
  const USB4_PORT* upstream = KivUsb4SwitchUpstreamPort(router);
  // The link is going away; an end that cannot be reached loses its mark with it.
  IgnoreResult(MarkConfigured(upstream, false));
  if (upstream->Remote != nullptr) IgnoreResult(MarkConfigured(upstream->Remote, false));
  return kKivOk;
}
