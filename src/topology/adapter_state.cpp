// Lane adapter states, link mode, lock bit.
#include "topology/adapter_state.h"

#include "hostif/abort.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kStatePolls = 10;
constexpr ULONG kStatePollMs = 100;

}  // namespace

KIV_RESULT KivUsb4PortState(const USB4_PORT* adapter) {
  if (adapter->LaneCapability == 0) return kKivFailed;
  // Both lane registers in one access.
  std::uint32_t words[2] = {};
  const KIV_RESULT result = KivUsb4PortRead(adapter, words, {USB4_CFG_SPACE_ADAPTER, adapter->LaneCapability, 2});
  if (result != kKivOk) return result;
  return static_cast<KIV_RESULT>(LaneAdpCs1::Value(words[LaneAdpCs1::kOffset]).Get<LaneAdpCs1::State>());
}

bool KivUsb4LinkIsUsb4(const USB4_PORT* adapter) {
  if (adapter->Usb4PortCapability == 0) return false;
  PortCs18::Value cs18;
  if (ReadRegister<PortCs18>(adapter, adapter->Usb4PortCapability, cs18) != kKivOk) return false;
  return !cs18.IsSet<PortCs18::Tbt3Compatible>();
}

KIV_RESULT KivUsb4WaitForPort(const USB4_PORT* adapter, bool whileDisconnected) {
  if (adapter->LaneCapability == 0) return kKivFailed;
  if (KivUsb4PortIsUpstream(adapter)) return kKivFailed;
  for (std::uint32_t poll = 0; poll < kStatePolls; ++poll) {
    const KIV_RESULT state = KivUsb4PortState(adapter);
    if (state < 0) return state;
    if (state == kLaneDisabled) return 0;
    if (state == kLaneUp) return 1;
    if (state == kLaneDisconnected && !whileDisconnected) return 0;
    SleepMs(adapter->Router->Domain, kStatePollMs);
  }
  return 0;
}

KIV_RESULT KivUsb4PortUnlock(const USB4_PORT* adapter) {
  if (!KivUsb4PortIsLane(adapter)) return kKivFailed;
  if (!KivUsb4SwitchIsUsb4(adapter->Router)) return kKivOk;
  return ModifyRegister<AdpCs4>(adapter, 0, [](AdpCs4::Value& cs4) { cs4.Set<AdpCs4::Lock>(0); });
}
