// USB3 adapters as such.
#include "tunnel/usb3_adapter.h"

#include "tunnel/protocol_adapter.h"
#include "tunnel/protocol_registers.h"

namespace {

constexpr std::uint32_t kRate20Code = 1;  // every other code: 10 Gb/s
constexpr KIV_RESULT kRate20Mbps = 20000;
constexpr KIV_RESULT kRate10Mbps = 10000;

KIV_RESULT RateOf(std::uint32_t code) {
  return code == kRate20Code ? kRate20Mbps : kRate10Mbps;
}

KIV_RESULT ReadRates(const USB4_PORT* adapter, Usb3AdpCs4::Value& cs4) {
  const bool isUsb3 = PortIs(adapter, USB4_ADAPTER_USB3_DOWNSTREAM) || PortIs(adapter, USB4_ADAPTER_USB3_UPSTREAM);
  return isUsb3 ? ReadProtocolRegister<Usb3AdpCs4>(adapter, cs4) : kKivFailed;
}

}  // namespace

KIV_RESULT KivUsb4Usb3PortEnable(const USB4_PORT* adapter, bool enable) {
  // The whole word, not a read-modify-write; it counts, on and off, only with the valid bit.
  Usb3AdpCs0::Value cs0;
  cs0.Set<Usb3AdpCs0::Valid>(1);
  cs0.Set<Usb3AdpCs0::PathEnable>(enable);
  return WriteProtocolRegister<Usb3AdpCs0>(adapter, cs0);
}

bool KivUsb4Usb3PortIsEnabled(const USB4_PORT* adapter) {
  Usb3AdpCs0::Value cs0;
  return ReadProtocolRegister<Usb3AdpCs0>(adapter, cs0) == kKivOk && cs0.IsSet<Usb3AdpCs0::PathEnable>();
}

KIV_RESULT KivUsb4Usb3PortMaxLinkRate(const USB4_PORT* adapter) {
  Usb3AdpCs4::Value cs4;
  const KIV_RESULT result = ReadRates(adapter, cs4);
  return result != kKivOk ? result : RateOf(cs4.Get<Usb3AdpCs4::MaximumRate>());
}

KIV_RESULT KivUsb4Usb3PortActualLinkRate(const USB4_PORT* adapter) {
  Usb3AdpCs4::Value cs4;
  const KIV_RESULT result = ReadRates(adapter, cs4);
  if (result != kKivOk) return result;
  return cs4.IsSet<Usb3AdpCs4::ActualRateValid>() ? RateOf(cs4.Get<Usb3AdpCs4::ActualRate>()) : 0;
}

KIV_RESULT KivUsb4Usb3MaxLinkRate(const USB4_ENDS& ends) {
  const KIV_RESULT source = KivUsb4Usb3PortMaxLinkRate(ends.Source);
  if (source < 0) return source;
  const KIV_RESULT destination = KivUsb4Usb3PortMaxLinkRate(ends.Destination);
  return destination < source ? destination : source;
}
