// Links: speed and width, the marks of their ends, and bonding of their two lanes.
#include "topology/link.h"

#include "hostif/abort.h"
#include "include/trace.h"
#include "topology/adapter_state.h"
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

constexpr std::uint32_t kSingle = 1;
constexpr std::uint32_t kDual = 2;

void MarkBonded(USB4_PORT* adapter, bool bonded) {
  adapter->DualLinkPartner->Bonded = bonded;
  adapter->Bonded = bonded;
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

KIV_RESULT KivUsb4PortLaneBondingEnable(USB4_PORT* adapter) {
  USB4_PORT* partner = adapter->DualLinkPartner;
  if (partner == nullptr) return kKivInvalid;
  // A width other than 1, or one that cannot be read, is left alone.
  if (KivUsb4PortGetLinkWidth(adapter) == static_cast<KIV_RESULT>(kSingle)) {
    const KIV_RESULT result = KivUsb4PortSetLinkWidth(adapter, kDual);
    if (result != kKivOk) return result;
  }
  if (KivUsb4PortGetLinkWidth(partner) == static_cast<KIV_RESULT>(kSingle)) {
    const KIV_RESULT result = KivUsb4PortSetLinkWidth(partner, kDual);
    if (result != kKivOk) {
      // Best effort: the failure that counts is the one above.
      IgnoreResult(KivUsb4PortSetLinkWidth(adapter, kSingle));
      return result;
    }
  }
  MarkBonded(adapter, true);
  return kKivOk;
}

void KivUsb4PortLaneBondingDisable(USB4_PORT* adapter) {
  USB4_PORT* partner = adapter->DualLinkPartner;
  if (partner == nullptr) return;
  MarkBonded(adapter, false);
  // The link may be gone already.
  IgnoreResult(KivUsb4PortSetLinkWidth(partner, kSingle));
  IgnoreResult(KivUsb4PortSetLinkWidth(adapter, kSingle));
}

bool Usb4SwitchLaneBondingPossible(const USB4_SWITCH* router) {
  const USB4_PORT* upstream = KivUsb4SwitchUpstreamPort(router);
  PortCs18::Value cs18;
  if (ReadRegister<PortCs18>(upstream, upstream->Usb4PortCapability, cs18) != kKivOk) return false;
  return cs18.IsSet<PortCs18::BondingEnabled>();
}

bool KivUsb4SwitchLaneBondingPossible(const USB4_SWITCH* router) {
  const USB4_PORT* partner = KivUsb4SwitchUpstreamPort(router)->DualLinkPartner;
  if (partner == nullptr || partner->Remote == nullptr) return false;
  return KivUsb4SwitchIsUsb4(router) ? Usb4SwitchLaneBondingPossible(router) : KivUsb4LcLaneBondingPossible(router);
}

KIV_RESULT KivUsb4SwitchLaneBondingEnable(USB4_SWITCH* router) {
  if (IsHostRouter(router)) return kKivOk;
  if (!KivUsb4SwitchLaneBondingPossible(router)) return kKivOk;
  USB4_PORT* up = KivUsb4SwitchUpstreamPort(router);
  USB4_PORT* down = ParentAdapterOf(router);
  if (down == nullptr || down->DualLinkPartner == nullptr) return kKivOk;
  if (!KivUsb4PortIsWidthSupported(up, kDual) || !KivUsb4PortIsWidthSupported(down, kDual)) return kKivOk;
  // Lane 1 comes up after lane 0. That it has not is no reason to stop: the hardware bonds when it can.
  KIV_RESULT result = KivUsb4WaitForPort(down->DualLinkPartner, true);
  if (result < 0) return result;
  result = KivUsb4PortLaneBondingEnable(up);
  if (result != kKivOk) return result;
  result = KivUsb4PortLaneBondingEnable(down);
  if (result != kKivOk) {
    KivUsb4PortLaneBondingDisable(up);
    return result;
  }
  // A width that can't be read keeps the older value; the bonding itself has succeeded.
  IgnoreResult(KivUsb4SwitchUpdateLinkAttributes(router));
  return kKivOk;
}

void KivUsb4SwitchLaneBondingDisable(USB4_SWITCH* router) {
  if (IsHostRouter(router)) return;
  USB4_PORT* up = KivUsb4SwitchUpstreamPort(router);
  if (up->Bonded == 0) return;
  KivUsb4PortLaneBondingDisable(up);
  USB4_PORT* down = ParentAdapterOf(router);
  if (down != nullptr) KivUsb4PortLaneBondingDisable(down);
  IgnoreResult(KivUsb4SwitchUpdateLinkAttributes(router));  // of interest only while the link still answers
}
