// USB3 adapters: their switch and link rates; the units of bandwidth, and the handshake under which a grant changes.
#include "tunnel/usb3_adapter.h"

#include "include/trace.h"
#include "topology/router_operation.h"
#include "topology/router_queries.h"
#include "tunnel/protocol_adapter.h"

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

constexpr std::uint32_t kUnitShift = 9;  // 512 bits
constexpr std::uint32_t kWordBits = 32;
constexpr std::uint32_t kPeriodsPerSecond = 8000;  // of 125 us
constexpr std::int32_t kBitsPerMegabit = 1000000;
constexpr std::uint32_t kKilobitsPerMegabit = 1000;
constexpr std::int32_t kLeastMbps = 1000;
constexpr std::uint32_t kRequestMs = 1500;  // named for the reader; the wait has its own bound

// Bits shifted out are gone; the adapter's scale may ask for more shifting than a word has bits.
std::uint32_t ShiftLeft(std::uint32_t word, std::uint32_t by) {
  return by < kWordBits ? word << by : 0;
}

std::int32_t Larger(std::int32_t a, std::int32_t b) {
  return a > b ? a : b;
}

// R holds two counts of units at the same place: what is consumed, or what is allocated.
template <class R, class Up, class Down>
KIV_RESULT ReadBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& bandwidth) {
  typename R::Value counts;
  KIV_RESULT result = ReadProtocolRegister<R>(adapter, counts);
  if (result != kKivOk) return result;
  Usb3AdpCs3::Value cs3;
  result = ReadProtocolRegister<Usb3AdpCs3>(adapter, cs3);
  if (result != kKivOk) return result;
  const std::uint32_t scale = cs3.Get<Usb3AdpCs3::Scale>();
  bandwidth.Upstream = Usb3BwToMbps(counts.template Get<Up>(), scale);
  bandwidth.Downstream = Usb3BwToMbps(counts.template Get<Down>(), scale);
  return kKivOk;
}

// Runs `step` while the adapter holds still.
template <class Step>
KIV_RESULT WithinRequest(const USB4_PORT* adapter, Step step) {
  TraceStepBy(NAME_OF(Usb4Usb3PortCmRequest), "hold USB3 adapter", "adapter", AsAdapter(adapter));
  KIV_RESULT result = Usb4Usb3PortCmRequest(adapter, true);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(Usb4Usb3PortCmRequest), "request not acknowledged", "adapter", AsAdapter(adapter), "result",
                 AsResult(result));
    return result;
  }
  result = step();
  const KIV_RESULT ended = Usb4Usb3PortCmRequest(adapter, false);
  if (ended != kKivOk) {
    TraceErrorBy(NAME_OF(Usb4Usb3PortCmRequest), "request not ended", "adapter", AsAdapter(adapter), "result",
                 AsResult(ended));
  }
  return result;
}

// Writes a grant of at least `floor` and at least what is consumed; on success it is stored there.
KIV_RESULT GrantAtLeast(const USB4_PORT* adapter, USB4_BANDWIDTH& floor) {
  USB4_BANDWIDTH consumed = {};
  KIV_RESULT result = Usb4Usb3PortReadConsumedBandwidth(adapter, consumed);
  if (result != kKivOk) return result;
  const USB4_BANDWIDTH grant = {Larger(floor.Upstream, consumed.Upstream),
                                Larger(floor.Downstream, consumed.Downstream)};
  result = Usb4Usb3PortWriteAllocatedBandwidth(adapter, grant);
  if (result != kKivOk) return result;
  floor = grant;
  TraceInfoBy(NAME_OF(Usb4Usb3PortWriteAllocatedBandwidth), "USB3 granted", "source", AsAdapter(adapter), "up",
              grant.Upstream, "down", grant.Downstream);
  return kKivOk;
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

std::int32_t Usb3BwToMbps(std::uint32_t units, std::uint32_t scale) {
  const std::uint32_t bits = ShiftLeft(units << kUnitShift, scale) * kPeriodsPerSecond;
  const bool negative = static_cast<std::int32_t>(bits) < 0;
  constexpr std::uint32_t kHalf = kBitsPerMegabit / 2;
  const auto rounded = static_cast<std::int32_t>(negative ? bits - kHalf : bits + kHalf);
  return rounded / kBitsPerMegabit;
}

std::uint32_t KivUsb4Usb3MbpsToBw(std::int32_t mbps, std::uint32_t scale) {
  const std::uint32_t kilobits = static_cast<std::uint32_t>(mbps) * kKilobitsPerMegabit;
  const std::uint32_t bitsPerPeriod = kilobits / (kPeriodsPerSecond / kKilobitsPerMegabit);
  // Beyond the width of a word one unit holds everything.
  const std::uint32_t unit = ShiftLeft(1, kUnitShift + scale);
  if (unit == 0) return bitsPerPeriod == 0 ? 0 : 1;
  return bitsPerPeriod / unit + (bitsPerPeriod % unit == 0 ? 0 : 1);
}

KIV_RESULT Usb4Usb3PortCmRequest(const USB4_PORT* adapter, bool request) {
  if (!PortIs(adapter, USB4_ADAPTER_USB3_DOWNSTREAM) || !IsHostRouter(adapter->Router)) return kKivFailed;
  const KIV_RESULT result = ModifyProtocolRegister<Usb3AdpCs2>(
      adapter, [request](Usb3AdpCs2::Value& cs2) { cs2.Set<Usb3AdpCs2::ManagerRequest>(request); });
  if (result != kKivOk) return result;
  const std::uint64_t offset = std::uint64_t{adapter->ProtocolCapability} + Usb3AdpCs1::kOffset;
  constexpr std::uint32_t kMask = Usb3AdpCs1::RequestAcknowledged::kMask;
  return Usb4PortWaitForBit(adapter, {offset, kMask, request ? kMask : 0}, kRequestMs);
}

KIV_RESULT Usb4Usb3PortReadAllocatedBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& allocated) {
  return ReadBandwidth<Usb3AdpCs2, Usb3AdpCs2::AllocatedUpstream, Usb3AdpCs2::AllocatedDownstream>(adapter, allocated);
}

KIV_RESULT Usb4Usb3PortReadConsumedBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& consumed) {
  return ReadBandwidth<Usb3AdpCs1, Usb3AdpCs1::ConsumedUpstream, Usb3AdpCs1::ConsumedDownstream>(adapter, consumed);
}

KIV_RESULT Usb4Usb3PortWriteAllocatedBandwidth(const USB4_PORT* adapter, const USB4_BANDWIDTH& allocated) {
  using Up = Usb3AdpCs2::AllocatedUpstream;
  using Down = Usb3AdpCs2::AllocatedDownstream;
  Usb3AdpCs3::Value cs3;
  const KIV_RESULT result = ReadProtocolRegister<Usb3AdpCs3>(adapter, cs3);
  if (result != kKivOk) return result;
  const std::uint32_t scale = cs3.Get<Usb3AdpCs3::Scale>();
  const std::uint32_t up = KivUsb4Usb3MbpsToBw(allocated.Upstream, scale);
  const std::uint32_t down = KivUsb4Usb3MbpsToBw(allocated.Downstream, scale);
  return ModifyProtocolRegister<Usb3AdpCs2>(adapter, [up, down](Usb3AdpCs2::Value& cs2) {
    cs2.Set<Up>(0);
    cs2.Set<Down>(0);
    // Counts are not cut to their fields: the adapter's scale is chosen so that its link rate fits.
    cs2 = Usb3AdpCs2::Value(cs2.Word() | Down::Spill(down) | Up::Spill(up));
  });
}

KIV_RESULT Usb4Usb3PortAllocatedBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& allocated) {
  return WithinRequest(adapter, [&] { return Usb4Usb3PortReadAllocatedBandwidth(adapter, allocated); });
}

KIV_RESULT Usb4Usb3PortAllocateBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& bandwidth) {
  return WithinRequest(adapter, [&] { return GrantAtLeast(adapter, bandwidth); });
}

KIV_RESULT Usb4Usb3PortReleaseBandwidth(const USB4_PORT* adapter, USB4_BANDWIDTH& left) {
  USB4_BANDWIDTH least = {kLeastMbps, kLeastMbps};
  const KIV_RESULT result = WithinRequest(adapter, [&] { return GrantAtLeast(adapter, least); });
  if (result == kKivOk) left = least;
  return result;
}
