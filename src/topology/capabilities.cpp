// Capability walks: each list as its own rules say, each bounded.
#include "topology/capabilities.h"

#include "include/trace.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"

namespace {

// Steps of one walk. No real list has that many capabilities; one that goes on leads back into itself.
constexpr std::uint32_t kMostSteps = 256;
constexpr std::uint32_t kShortListEnd = 255;
constexpr std::uint32_t kLongListEnd = 0xFFFF;

// Where a lock of the adapter will stand if one is ever needed: today the run lock serialises all searches.
class AdapterLockHook {
 public:
  explicit AdapterLockHook(const USB4_PORT*) {}
  bool IsHeld() const { return true; }
};

CAPABILITY_OFFSET _KivUsb4PortFindCap(const USB4_PORT* adapter, std::uint32_t id) {
  std::uint32_t offset = 0;
  for (std::uint32_t step = 0; step < kMostSteps; ++step) {
    const CAPABILITY_OFFSET next = KivUsb4PortNextCap(adapter, offset);
    if (next < 0) return next;
    offset = static_cast<std::uint32_t>(next);
    AdapterCapability::Value header;
    const KIV_RESULT result = ReadRegister<AdapterCapability>(adapter, offset, header);
    if (result != kKivOk) return result;
    if (header.Get<AdapterCapability::Id>() == id) return next;
    // Tested last: the list's end points to offset 0, whose word is read and compared like a capability's.
    if (offset < 1) return kKivFailed;
  }
  TraceErrorBy(NAME_OF(KivUsb4PortFindCap), "adapter capability list does not end", "adapter", AsAdapter(adapter));
  return kKivFailed;
}

}  // namespace

CAPABILITY_OFFSET KivUsb4SwitchFindCap(const USB4_SWITCH* router, std::uint32_t id) {
  const RouterCs1::Value cs1(router->Header[RouterCs1::kOffset]);
  std::uint32_t offset = cs1.Get<RouterCs1::FirstCapability>();
  for (std::uint32_t step = 0; step < kMostSteps && offset >= 1 && offset < kShortListEnd; ++step) {
    RouterCapability::Value header;
    const KIV_RESULT result = ReadRegister<RouterCapability>(router, offset, header);
    if (result != kKivOk) return result;
    if (header.Get<RouterCapability::Id>() == id) return static_cast<CAPABILITY_OFFSET>(offset);
    offset = header.Get<RouterCapability::Next>();
  }
  return kKivFailed;
}

CAPABILITY_OFFSET KivUsb4SwitchNextCap(const USB4_SWITCH* router, std::uint32_t offset) {
  if (offset == 0) {
    const RouterCs1::Value cs1(router->Header[RouterCs1::kOffset]);
    return static_cast<CAPABILITY_OFFSET>(cs1.Get<RouterCs1::FirstCapability>());
  }
  std::uint32_t words[2] = {};
  const KIV_RESULT result = KivUsb4SwRead(router, words, {USB4_CFG_SPACE_ROUTER, offset, 2});
  if (result != kKivOk) return result;
  const RouterCapability::Value header(words[0]);
  std::uint32_t next = header.Get<RouterCapability::Next>();
  switch (header.Get<RouterCapability::Id>()) {
    case kRouterCapabilityTmu:
      break;
    case kRouterCapabilityVendorSpecific:
      if (header.Get<RouterCapability::ShortLength>() == 0) {
        next = RouterCapabilityLong::Value(words[1]).Get<RouterCapabilityLong::Next>();
      }
      break;
    default:
      return kKivFailed;
  }
  return next >= kLongListEnd ? 0 : static_cast<CAPABILITY_OFFSET>(next);
}

CAPABILITY_OFFSET KivUsb4SwitchFindVseCap(const USB4_SWITCH* router, std::uint32_t vendorSpecificId) {
  CAPABILITY_OFFSET offset = KivUsb4SwitchNextCap(router, 0);
  for (std::uint32_t step = 0; step < kMostSteps; ++step) {
    if (offset < 0) return offset;
    RouterCapability::Value header;
    const KIV_RESULT result = ReadRegister<RouterCapability>(router, static_cast<std::uint32_t>(offset), header);
    if (result != kKivOk) return result;
    if (header.Get<RouterCapability::Id>() == kRouterCapabilityVendorSpecific &&
        header.Get<RouterCapability::VendorSpecificId>() == vendorSpecificId) {
      return offset;
    }
    if (offset == 0) return kKivFailed;
    offset = KivUsb4SwitchNextCap(router, static_cast<std::uint32_t>(offset));
  }
  TraceError("router capability list does not end", "route", AsRoute(KivUsb4SwitchRoute(router)));
  return kKivFailed;
}

CAPABILITY_OFFSET KivUsb4PortNextCap(const USB4_PORT* adapter, std::uint32_t offset) {
  if (offset == 0) {
    const AdpCs1::Value cs1(adapter->Header[AdpCs1::kOffset]);
    return static_cast<CAPABILITY_OFFSET>(cs1.Get<AdpCs1::FirstCapability>());
  }
  AdapterCapability::Value header;
  const KIV_RESULT result = ReadRegister<AdapterCapability>(adapter, offset, header);
  if (result != kKivOk) return result;
  return static_cast<CAPABILITY_OFFSET>(header.Get<AdapterCapability::Next>());
}

CAPABILITY_OFFSET KivUsb4PortFindCap(const USB4_PORT* adapter, std::uint32_t id) {
  const AdapterLockHook hook(adapter);
  return hook.IsHeld() ? _KivUsb4PortFindCap(adapter, id) : kKivFailed;
}
