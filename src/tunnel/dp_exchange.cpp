// What DP adapters tell each other before their tunnel comes up: the handshake and the exchange of capabilities.
#include "tunnel/dp_exchange.h"

#include "include/trace.h"
#include "topology/router_operation.h"
#include "topology/router_queries.h"
#include "tunnel/dp_capabilities.h"
#include "tunnel/dp_tunnel.h"
#include "tunnel/protocol_adapter.h"

namespace {

constexpr std::uint32_t kVendor = 0x8086;
// Thunderbolt 3 routers whose DP adapters know the handshake and long training.
constexpr std::uint32_t kDevices[] = {0x15E7, 0x15EA, 0x15EF};

bool IsLateThunderbolt3(const USB4_SWITCH* router) {
  const RouterCs0::Value cs0(router->Header[RouterCs0::kOffset]);
  if (cs0.Get<RouterCs0::VendorId>() != kVendor) return false;
  for (const std::uint32_t device : kDevices) {
    if (cs0.Get<RouterCs0::DeviceId>() == device) return true;
  }
  return false;
}

bool KnowsCapabilities(const USB4_PORT* adapter) {
  return adapter->Router->Generation >= kFirstDpGeneration;
}

// The tunnel's maximum in the direction in which its video flows; 0: none.
std::uint32_t MaximumOf(const USB4_TUNNEL* tunnel) {
  return static_cast<std::uint32_t>(FlowsDownstream(tunnel) ? tunnel->Maximum.Downstream : tunnel->Maximum.Upstream);
}

// Lowers the display's mode until it fits. -1 when no mode does.
KIV_RESULT FitToMaximum(const USB4_TUNNEL* tunnel, std::uint32_t dpInCaps, std::uint32_t& dpOutCaps) {
  const std::uint32_t maximum = MaximumOf(tunnel);
  const DP_LINK_MODE wanted = DpCapMode(dpOutCaps);
  if (maximum == 0 || maximum >= KivUsb4DpBandwidth(wanted)) return kKivOk;
  DP_LINK_MODE chosen = {};
  const KIV_RESULT result = KivUsb4DpReduceBandwidth({maximum, DpCapMode(dpInCaps), wanted}, chosen);
  if (result != kKivOk) return result;
  TraceInfoBy(NAME_OF(KivUsb4DpXchgCaps), "mode reduced", "maximum", maximum, "rate", chosen.RateMbps, "lanes",
              chosen.Lanes);
  dpOutCaps = KivUsb4DpCapSetLanes(KivUsb4DpCapSetRate(dpOutCaps, chosen.RateMbps), chosen.Lanes);
  return kKivOk;
}

}  // namespace

bool KivUsb4SwitchSupportsDpHandshake(const USB4_SWITCH* router) {
  return KivUsb4SwitchIsUsb4(router) || IsLateThunderbolt3(router);
}

KIV_RESULT KivUsb4DpCmHandshake(const USB4_ENDS& ends) {
  const USB4_PORT* dpOut = ends.Destination;
  if (!KivUsb4SwitchSupportsDpHandshake(ends.Source->Router) || !KivUsb4SwitchSupportsDpHandshake(dpOut->Router)) {
    return kKivOk;
  }
  TraceStep("DP handshake", "adapter", AsAdapter(dpOut));
  const KIV_RESULT result = ModifyProtocolRegister<DpAdpCs6>(dpOut, [](DpAdpCs6::Value& cs6) {
    cs6.Set<DpAdpCs6::ManagerHandshake>(1);
    cs6.Set<DpAdpCs6::ManagerMode>(1);
  });
  if (result != kKivOk) return result;
  const std::uint64_t offset = std::uint64_t{dpOut->ProtocolCapability} + DpAdpCs6::kOffset;
  return Usb4PortWaitForBit(dpOut, {offset, DpAdpCs6::ManagerHandshake::kMask, 0});
}

KIV_RESULT KivUsb4DpXchgCaps(USB4_TUNNEL* tunnel) {
  const USB4_PORT* dpIn = tunnel->Source;
  const USB4_PORT* dpOut = tunnel->Destination;
  if (dpOut == nullptr) return kKivFailed;
  if (!KnowsCapabilities(dpIn) || !KnowsCapabilities(dpOut)) return kKivOk;
  TraceStep("exchange DP capabilities", "in", AsAdapter(dpIn), "out", AsAdapter(dpOut));
  KIV_RESULT result = KivUsb4DpCmHandshake({tunnel->Source, tunnel->Destination});
  if (result != kKivOk) return result;
  DpAdpCs4::Value dpInLocal;
  result = ReadProtocolRegister<DpAdpCs4>(dpIn, dpInLocal);
  if (result != kKivOk) return result;
  DpAdpCs4::Value dpOutLocal;
  result = ReadProtocolRegister<DpAdpCs4>(dpOut, dpOutLocal);
  if (result != kKivOk) return result;
  result = WriteProtocolRegister<DpAdpCs5>(dpOut, DpAdpCs5::Value(dpInLocal.Word()));
  if (result != kKivOk) return result;
  std::uint32_t offered = dpOutLocal.Word();
  result = FitToMaximum(tunnel, dpInLocal.Word(), offered);
  if (result != kKivOk) return result;
  DpAdpCs5::Value remote(offered);
  if (!IsHostRouter(dpOut->Router) && IsLateThunderbolt3(dpOut->Router)) {
    remote.Set<DpAdpCs5::LongTrainingSupport>(1);
  }
  return WriteProtocolRegister<DpAdpCs5>(dpIn, remote);
}
