// Link controller operations: each a read-modify-write of one link block's control word.
#include "topology/link_controller.h"

#include "topology/router_access.h"
#include "topology/router_queries.h"
#include "topology/sleep.h"

namespace {

using PortControl = LinkControllerPortControl;

constexpr std::uint32_t kFirstGeneration = 2;

bool HasLinkController(const USB4_SWITCH* router) {
  return router->Generation >= kFirstGeneration;
}

bool IsOdd(const USB4_PORT* adapter) {
  return adapter->Number % 2 == 1;
}

// Not cut to 32 bits: an offset of all ones must not come around to a register that exists.
std::uint64_t BlockOffset(const USB4_SWITCH* router, LinkControllerDescriptor::Value descriptor, std::uint32_t index) {
  return std::uint64_t{router->LinkControllerCapability} + descriptor.Get<LinkControllerDescriptor::FirstPort>() +
         std::uint64_t{index} * descriptor.Get<LinkControllerDescriptor::PortSize>();
}

// Runs `step` on each link block in order; the first error ends it.
template <class Step>
KIV_RESULT ForEachBlock(const USB4_SWITCH* router, Step step) {
  LinkControllerDescriptor::Value descriptor;
  KIV_RESULT result = ReadLcDesc(router, descriptor);
  const std::uint32_t count = descriptor.Get<LinkControllerDescriptor::PortCount>();
  for (std::uint32_t index = 0; result == kKivOk && index < count; ++index) {
    result = step(BlockOffset(router, descriptor, index));
  }
  return result;
}

// Changes the control word of the adapter's link block; routers without a link controller have nothing to change.
template <class Change>
KIV_RESULT ModifyPortControl(const USB4_PORT* adapter, Change change) {
  if (!HasLinkController(adapter->Router)) return kKivOk;
  std::uint64_t block = 0;
  const KIV_RESULT result = FindPortLcCap(adapter, block);
  if (result != kKivOk) return result;
  return ModifyRegister<PortControl>(adapter->Router, block, change);
}

}  // namespace

KIV_RESULT ReadLcDesc(const USB4_SWITCH* router, LinkControllerDescriptor::Value& descriptor) {
  if (router->LinkControllerCapability == 0) return kKivFailed;
  return ReadRegister<LinkControllerDescriptor>(router, router->LinkControllerCapability, descriptor);
}

KIV_RESULT FindPortLcCap(const USB4_PORT* adapter, std::uint64_t& block) {
  LinkControllerDescriptor::Value descriptor;
  const KIV_RESULT result = ReadLcDesc(adapter->Router, descriptor);
  if (result != kKivOk) return result;
  const std::uint32_t index = adapter->Number == 0 ? 0 : (adapter->Number - 1u) / 2;
  block = BlockOffset(adapter->Router, descriptor, index);
  return kKivOk;
}

KIV_RESULT KivUsb4LcReadUuid(const USB4_SWITCH* router, std::uint32_t (&uuid)[4]) {
  if (router->LinkControllerCapability == 0) return kKivFailed;
  return ReadArray<LinkControllerUuid>(router, router->LinkControllerCapability, uuid);
}

bool KivUsb4LcLaneBondingPossible(const USB4_SWITCH* router) {
  if (!HasLinkController(router)) return false;
  std::uint64_t block = 0;
  if (FindPortLcCap(KivUsb4SwitchUpstreamPort(router), block) != kKivOk) return false;
  LinkControllerPortAttributes::Value attributes;
  if (ReadRegister<LinkControllerPortAttributes>(router, block, attributes) != kKivOk) return false;
  return attributes.IsSet<LinkControllerPortAttributes::BondingPossible>();
}

KIV_RESULT KivUsb4LcSetConfigured(const USB4_PORT* adapter, bool on) {
  return ModifyPortControl(adapter, [adapter, on](PortControl::Value& control) {
    if (IsOdd(adapter)) {
      control.Set<PortControl::OddLaneConfigured>(on);
    } else {
      control.Set<PortControl::EvenLaneConfigured>(on);
    }
    if (KivUsb4PortIsUpstream(adapter)) control.Set<PortControl::UpstreamConfigured>(on);
  });
}

KIV_RESULT KivUsb4LcSetXdomainConfigured(const USB4_PORT* adapter, bool on) {
  return ModifyPortControl(adapter, [adapter, on](PortControl::Value& control) {
    if (IsOdd(adapter)) {
      control.Set<PortControl::OddLaneXdomain>(on);
    } else {
      control.Set<PortControl::EvenLaneXdomain>(on);
    }
  });
}

KIV_RESULT KivUsb4LcSetWakeOne(const USB4_SWITCH* router, std::uint64_t block, std::uint32_t flags) {
  return ModifyRegister<PortControl>(router, block, [flags](PortControl::Value& control) {
    const bool connect = (flags & kWakeOnConnect) != 0;
    control.Set<PortControl::WakeOnConnect>(connect);
    control.Set<PortControl::WakeOnDisconnect>(connect);
    control.Set<PortControl::WakeOnUsb4>((flags & kWakeOnUsb4) != 0);
    control.Set<PortControl::WakeOnPcie>((flags & kWakeOnPcie) != 0);
  });
}

KIV_RESULT KivUsb4LcSetWake(const USB4_SWITCH* router, std::uint32_t flags) {
  if (!HasLinkController(router) || IsHostRouter(router)) return kKivOk;
  return ForEachBlock(router,
                      [router, flags](std::uint64_t block) { return KivUsb4LcSetWakeOne(router, block, flags); });
}

KIV_RESULT KivUsb4LcSetSleep(const USB4_SWITCH* router) {
  if (!HasLinkController(router)) return kKivOk;
  return ForEachBlock(router, [router](std::uint64_t block) {
    return ModifyRegister<PortControl>(router, block,
                                       [](PortControl::Value& control) { control.Set<PortControl::EnterSleep>(1); });
  });
}
