// Router operations by opcode, and the polls for register conditions.
#include "topology/router_operation.h"

#include "hostif/abort.h"
#include "include/trace.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kConditionPolls = 11;
constexpr ULONG kConditionPollMs = 100;

}  // namespace

KIV_RESULT Usb4SwitchOpSetMetadata(const USB4_SWITCH* router, std::uint32_t value) {
  return WriteArray<RouterOperationMetadata>(router, 0, {value});
}

KIV_RESULT Usb4SwitchOp(const USB4_SWITCH* router, std::uint16_t opcode, std::uint8_t& operationStatus) {
  RouterCs26::Value start;
  start.Set<RouterCs26::Opcode>(opcode);
  start.Set<RouterCs26::OperationValid>(1);
  KIV_RESULT result = WriteRegister<RouterCs26>(router, 0, start);
  if (result != kKivOk) return result;
  result = Usb4SwitchWaitForBit(router, {RouterCs26::kOffset, RouterCs26::OperationValid::kMask, 0});
  if (result != kKivOk) return result;
  RouterCs26::Value done;
  result = ReadRegister<RouterCs26>(router, 0, done);
  if (result != kKivOk) return result;
  if (done.IsSet<RouterCs26::NotSupported>()) {
    TraceWarning("operation not supported", "route", AsRoute(KivUsb4SwitchRoute(router)), "opcode", opcode);
    return kKivFailed;
  }
  operationStatus = static_cast<std::uint8_t>(done.Get<RouterCs26::Status>());
  return kKivOk;
}

KIV_RESULT Usb4SwitchWaitForBit(const USB4_SWITCH* router, const REGISTER_CONDITION& condition, std::uint32_t) {
  for (std::uint32_t poll = 0; poll < kConditionPolls; ++poll) {
    std::uint32_t word = 0;
    const KIV_RESULT result = KivUsb4SwRead(router, &word, {USB4_CFG_SPACE_ROUTER, condition.Offset, 1});
    if (result != kKivOk) return result;
    if ((word & condition.Mask) == condition.Value) return kKivOk;
    SleepMs(router->Domain, kConditionPollMs);
  }
  TraceError("router did not answer", "route", AsRoute(KivUsb4SwitchRoute(router)), "offset", AsHex(condition.Offset),
             "mask", AsHex(condition.Mask));
  return kKivFailed;
}

KIV_RESULT Usb4PortWaitForBit(const USB4_PORT* adapter, const REGISTER_CONDITION& condition, std::uint32_t) {
  for (std::uint32_t poll = 1;; ++poll) {
    std::uint32_t word = 0;
    const KIV_RESULT result = KivUsb4PortRead(adapter, &word, {USB4_CFG_SPACE_ADAPTER, condition.Offset, 1});
    if (result != kKivOk) return result;
    if ((word & condition.Mask) == condition.Value) return kKivOk;
    if (poll == kConditionPolls) break;
    SleepMs(adapter->Router->Domain, kConditionPollMs);
  }
  TraceError("adapter did not answer", "adapter", AsAdapter(adapter), "offset", AsHex(condition.Offset), "mask",
             AsHex(condition.Mask));
  return kKivFailed;
}
