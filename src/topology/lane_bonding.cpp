// Bonding the two lanes of a link into one, and taking it back.
#include "include/trace.h"
#include "topology/adapter_state.h"
#include "topology/link.h"
#include "topology/link_controller.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kSingle = 1;
constexpr std::uint32_t kDual = 2;

void MarkBonded(USB4_PORT* adapter, bool bonded) {
  adapter->DualLinkPartner->Bonded = bonded;
  adapter->Bonded = bonded;
}

}  // namespace

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
