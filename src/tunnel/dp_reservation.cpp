// Who may use a DP IN adapter.
#include "tunnel/dp_reservation.h"

#include "include/domain_record.h"
#include "include/trace.h"
#include "topology/router_access.h"
#include "topology/router_operation.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint16_t kQueryDpResource = 16;
constexpr std::uint16_t kAllocateDpResource = 17;
constexpr std::uint16_t kDeallocateDpResource = 18;

constexpr std::uint32_t kFirstGenerationWithSinks = 3;
constexpr std::uint32_t kSinkFree = 0;
constexpr std::uint32_t kSinkOurs = 1;

bool HasSinks(const USB4_SWITCH* router) {
  return router->Generation >= kFirstGenerationWithSinks;
}

KIV_RESULT NameAdapter(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  const KIV_RESULT result = Usb4SwitchOpSetMetadata(router, dpIn->Number);
  if (result != kKivOk) {
    TraceErrorBy(NAME_OF(Usb4SwitchOpSetMetadata), "adapter not named", "adapter", AsAdapter(dpIn), "result",
                 AsResult(result));
  }
  return result;
}

KIV_RESULT ChangeReservation(const USB4_SWITCH* router, const USB4_PORT* dpIn, std::uint16_t opcode) {
  // A router that cannot be asked keeps nobody from trying: the tunnel itself will show whether it works.
  if (NameAdapter(router, dpIn) != kKivOk) return kKivOk;
  std::uint8_t operationStatus = 0;
  const KIV_RESULT result = Usb4SwitchOp(router, opcode, operationStatus);
  if (result == kKivNotAvailable) return kKivOk;  // a router without such operations reserves nothing
  if (result != kKivOk) return result;
  return operationStatus == 0 ? kKivOk : kKivFailed;
}

std::uint32_t SinkState(LinkControllerSinks::Value sinks, KIV_RESULT sink) {
  return sink == 0 ? sinks.Get<LinkControllerSinks::Sink0>() : sinks.Get<LinkControllerSinks::Sink1>();
}

KIV_RESULT SetSinkState(const USB4_SWITCH* router, KIV_RESULT sink, std::uint32_t state) {
  return ModifyRegister<LinkControllerSinks>(router, router->LinkControllerCapability,
                                             [sink, state](LinkControllerSinks::Value& sinks) {
                                               if (sink == 0) {
                                                 sinks.Set<LinkControllerSinks::Sink0>(state);
                                               } else {
                                                 sinks.Set<LinkControllerSinks::Sink1>(state);
                                               }
                                             });
}

}  // namespace

bool KivUsb4SwitchQueryDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  _Analysis_assume_lock_held_(router->Domain->PathLock);
  return KivUsb4SwitchIsUsb4(router) ? Usb4SwitchQueryDpResource(router, dpIn) : KivUsb4LcDpSinkQuery(router, dpIn);
}

KIV_RESULT KivUsb4SwitchAllocDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  _Analysis_assume_lock_held_(router->Domain->PathLock);
  return KivUsb4SwitchIsUsb4(router) ? Usb4SwitchAllocDpResource(router, dpIn) : KivUsb4LcDpSinkAlloc(router, dpIn);
}

KIV_RESULT KivUsb4SwitchDeallocDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  _Analysis_assume_lock_held_(router->Domain->PathLock);
  return KivUsb4SwitchIsUsb4(router) ? Usb4SwitchDeallocDpResource(router, dpIn) : KivUsb4LcDpSinkDealloc(router, dpIn);
}

bool Usb4SwitchQueryDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  if (NameAdapter(router, dpIn) != kKivOk) return false;
  std::uint8_t operationStatus = 0;
  const KIV_RESULT result = Usb4SwitchOp(router, kQueryDpResource, operationStatus);
  if (result == kKivFailed) return true;
  return result == kKivOk && operationStatus == 0;
}

KIV_RESULT Usb4SwitchAllocDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  return ChangeReservation(router, dpIn, kAllocateDpResource);
}

KIV_RESULT Usb4SwitchDeallocDpResource(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  return ChangeReservation(router, dpIn, kDeallocateDpResource);
}

KIV_RESULT KivUsb4LcDpSinkFromPort(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  const USB4_PORT* first = KivUsb4SwitchFindPortByType(router, USB4_ADAPTER_DP_IN);
  if (first == nullptr) return kKivFailed;
  return first == dpIn ? 0 : 1;
}

KIV_RESULT KivUsb4LcDpSinkAvailable(const USB4_SWITCH* router, KIV_RESULT sink) {
  if (!HasSinks(router)) return kKivOk;
  LinkControllerSinks::Value sinks;
  const KIV_RESULT result = ReadRegister<LinkControllerSinks>(router, router->LinkControllerCapability, sinks);
  if (result != kKivOk) return result;
  const std::uint32_t state = SinkState(sinks, sink);
  return state == kSinkFree || state == kSinkOurs ? kKivOk : kKivFailed;
}

bool KivUsb4LcDpSinkQuery(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  if (!HasSinks(router)) return true;
  const KIV_RESULT sink = KivUsb4LcDpSinkFromPort(router, dpIn);
  return sink >= 0 && KivUsb4LcDpSinkAvailable(router, sink) == kKivOk;
}

KIV_RESULT KivUsb4LcDpSinkAlloc(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  if (!HasSinks(router)) return kKivOk;
  const KIV_RESULT sink = KivUsb4LcDpSinkFromPort(router, dpIn);
  if (sink < 0) return sink;
  if (KivUsb4LcDpSinkAvailable(router, sink) != kKivOk) return kKivFailed;
  return SetSinkState(router, sink, kSinkOurs);
}

KIV_RESULT KivUsb4LcDpSinkDealloc(const USB4_SWITCH* router, const USB4_PORT* dpIn) {
  if (!HasSinks(router)) return kKivOk;
  const KIV_RESULT sink = KivUsb4LcDpSinkFromPort(router, dpIn);
  return sink < 0 ? sink : SetSinkState(router, sink, kSinkFree);
}
