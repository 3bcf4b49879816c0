// DP adapters as such.
#include "tunnel/dp_adapter.h"

#include "topology/router_queries.h"
#include "tunnel/protocol_adapter.h"

namespace {

struct DpControl {
  DpAdpCs0::Value Cs0;
  DpAdpCs1::Value Cs1;
};

KIV_RESULT ReadDpControl(const USB4_PORT* adapter, DpControl& control) {
  if (adapter->ProtocolCapability == 0) return kKivFailed;
  std::uint32_t words[DpAdpControl::kCount] = {};
  const KIV_RESULT result = ReadArray<DpAdpControl>(adapter, adapter->ProtocolCapability, words);
  if (result == kKivOk) control = {DpAdpCs0::Value(words[0]), DpAdpCs1::Value(words[1])};
  return result;
}

// Both words in one access, like the read: switching on is atomic with the hop IDs.
template <class Change>
KIV_RESULT ModifyDpControl(const USB4_PORT* adapter, Change change) {
  DpControl control;
  const KIV_RESULT result = ReadDpControl(adapter, control);
  if (result != kKivOk) return result;
  change(control);
  return WriteArray<DpAdpControl>(adapter, adapter->ProtocolCapability, {control.Cs0.Word(), control.Cs1.Word()});
}

}  // namespace

KIV_RESULT KivUsb4DpPortEnable(const USB4_PORT* adapter, bool enable) {
  return ModifyDpControl(adapter, [enable](DpControl& control) {
    control.Cs0.Set<DpAdpCs0::VideoEnable>(enable);
    control.Cs0.Set<DpAdpCs0::AuxEnable>(enable);
  });
}

bool KivUsb4DpPortIsEnabled(const USB4_PORT* adapter) {
  DpControl control;
  if (ReadDpControl(adapter, control) != kKivOk) return false;
  return control.Cs0.IsSet<DpAdpCs0::VideoEnable>() || control.Cs0.IsSet<DpAdpCs0::AuxEnable>();
}

KIV_RESULT KivUsb4DpPortHpdClear(const USB4_PORT* adapter) {
  return ModifyProtocolRegister<DpAdpCs3>(adapter,
                                          [](DpAdpCs3::Value& cs3) { cs3.Set<DpAdpCs3::HotPlugDetectClear>(1); });
}

KIV_RESULT KivUsb4DpPortHpdIsActive(const USB4_PORT* adapter) {
  DpAdpCs2::Value cs2;
  const KIV_RESULT result = ReadProtocolRegister<DpAdpCs2>(adapter, cs2);
  if (result != kKivOk) return result;
  return cs2.IsSet<DpAdpCs2::HotPlugDetect>() ? 1 : 0;
}

KIV_RESULT KivUsb4DpPortSetHops(const USB4_PORT* adapter, const DP_HOP_IDS& hops) {
  if (KivUsb4SwitchIsUsb4(adapter->Router)) return kKivOk;
  return ModifyDpControl(adapter, [&hops](DpControl& control) {
    control.Cs0.Set<DpAdpCs0::VideoHop>(hops.Video);
    control.Cs1.Set<DpAdpCs1::AuxReceiveHop>(hops.AuxReceive);
    // The transmit field is not cleared first: the ID is added to what stands there. These adapters come with their
    // own ID in it, which is the one that every tunnel uses, and are to keep it while they are off.
    control.Cs1 = DpAdpCs1::Value(control.Cs1.Word() | DpAdpCs1::AuxTransmitHop::Of(hops.AuxTransmit));
  });
}
