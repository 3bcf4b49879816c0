// The state machine of a peer's discovery.
#include "xdomain/peer_state.h"

#include <array>
#include <cstring>

#include "hostif/abort.h"
#include "hostif/work_items.h"
#include "include/domain_record.h"
#include "include/locks.h"
#include "include/trace.h"
#include "xdomain/peer.h"
#include "xdomain/peer_bonding.h"
#include "xdomain/peer_enumeration.h"
#include "xdomain/peer_request.h"
#include "xdomain/request_handler.h"

namespace {

constexpr LONG kStateRetries = 10;
constexpr ULONG kStepMs = 100;
constexpr ULONG kLongStepMs = 1000;
constexpr ULONG kRepeatMs = 1000;

// What follows a step, by its result.
enum class Next : std::uint8_t {
  Undecided,
  Nothing,
  Repeat,                 // once more after a wait, in the same state and with the attempts that are left
  Greet,                  // asks for the UUID, or for the properties when the UUID was given
  QueueLinkOrProperties,  // tells of its own properties, then goes for the link if lanes are to be bonded
  QueueBonding,
  QueueLinkStatus2,
  QueueBondingUuidLow,
  QueueProperties,
  GiveUpUuid,
  Enumerated,
  Failed,        // the error state, but enumerated when there is no more than no network device
  FailedRepeat,  // the error state, and one run more, which finds it and does nothing
};

struct StateRow {
  const char* Name;
  Next Done;
  Next TryAgain;  // of states without a request: never
  Next Otherwise;
};

constexpr std::array kStates = {
    StateRow{"INIT", Next::Greet, Next::Nothing, Next::Nothing},
    StateRow{"LINK_STATUS", Next::QueueBonding, Next::Repeat, Next::QueueProperties},
    StateRow{"UUID", Next::QueueLinkOrProperties, Next::Repeat, Next::GiveUpUuid},
    StateRow{"LINK_STATE_CHANGE", Next::QueueLinkStatus2, Next::Repeat, Next::QueueProperties},
    StateRow{"LINK_STATUS2", Next::QueueBondingUuidLow, Next::Repeat, Next::QueueProperties},
    StateRow{"BONDING_UUID_LOW", Next::QueueProperties, Next::QueueProperties, Next::QueueProperties},
    StateRow{"BONDING_UUID_HIGH", Next::QueueProperties, Next::Repeat, Next::QueueProperties},
    // A transfer that fails is not tried again: whatever made it fail, the peer says so when its properties change.
    StateRow{"PROPERTIES", Next::Enumerated, Next::FailedRepeat, Next::Failed},
    StateRow{"ENUMERATED", Next::QueueProperties, Next::Nothing, Next::Nothing},
    // Only a request of the peer leads out of it.
    StateRow{"ERROR", Next::Nothing, Next::Nothing, Next::Nothing},
};
static_assert(kStates.size() == USB4_XDOMAIN_ERROR + 1);

constexpr bool EveryCellIsDecided() {
  for (const StateRow& row : kStates) {
    if (row.Done == Next::Undecided || row.TryAgain == Next::Undecided || row.Otherwise == Next::Undecided) {
      return false;
    }
  }
  return true;
}
static_assert(EveryCellIsDecided());

bool IsState(LONG state) {
  return state >= USB4_XDOMAIN_INIT && state <= USB4_XDOMAIN_ERROR;
}

// Refused once the peer is closed: decided together with the queueing, so that what is queued is flushed.
void QueueWork(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context, WDFWORKITEM item, KIV_WORK_KIND kind) {
  const SpinLockGuard guard(context->Domain->TopologyLock);
  if (xdomain->Closing.IsSet()) return;
  context->XDomainPending[kind].Store(1);
  // Refused while the channel is stopped: a device that powers down has ended its peer, or is about to.
  IgnoreResult(KivUsb4QueueXDomainGenericWorkItemData(item, context, xdomain, kind));
}

void Enter(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context, USB4_XDOMAIN_STATE state, ULONG waitMs) {
  SetPeerState(xdomain, state);
  xdomain->RetryCount.Store(kStateRetries);
  SleepMs(xdomain->Domain, waitMs);
  QueueStateWork(xdomain, context);
}

void Repeat(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  SleepMs(context->Domain, kRepeatMs);
  QueueStateWork(xdomain, context);
}

KIV_RESULT RunStep(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context, LONG state) {
  switch (state) {
    case USB4_XDOMAIN_LINK_STATUS:
    case USB4_XDOMAIN_LINK_STATUS2:
      return KivUsb4XdomainGetLinkStatus(xdomain);
    case USB4_XDOMAIN_UUID:
      return KivUsb4XdomainGetUuid(xdomain, context);
    case USB4_XDOMAIN_LINK_STATE_CHANGE:
      return KivUsb4XdomainLinkStateChange(xdomain, 2);
    case USB4_XDOMAIN_BONDING_UUID_LOW:
      return KivUsb4XdomainLaneBondingEnable(xdomain);
    case USB4_XDOMAIN_BONDING_UUID_HIGH:
      return KivUsb4XdomainBondLanesUuidHigh(xdomain);
    case USB4_XDOMAIN_PROPERTIES:
      return KivUsb4XDomainGetProperties(xdomain);
    default:
      return kKivOk;
  }
}

Next NextAfter(LONG state, KIV_RESULT result) {
  const StateRow& row = kStates[static_cast<std::size_t>(state)];
  if (result == kKivOk) return row.Done;
  return result == kKivTryAgain ? row.TryAgain : row.Otherwise;
}

void Greet(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  if (xdomain->UuidUnknown.IsSet()) {
    KivUsb4XdomainQueueUuid(xdomain, context);
    return;
  }
  KivUsb4XdomainQueuePropertiesChanged(xdomain, context);
  KivUsb4XdomainQueueProperties(xdomain, context);
}

void QueueLinkOrProperties(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  KivUsb4XdomainQueuePropertiesChanged(xdomain, context);
  if (xdomain->BondLanes.IsSet()) {
    KivUsb4XdomainQueueLinkStatus(xdomain, context);
  } else {
    KivUsb4XdomainQueueProperties(xdomain, context);
  }
}

void Go(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context, Next next, KIV_RESULT result) {
  switch (next) {
    case Next::Undecided:
    case Next::Nothing:
      return;
    case Next::Repeat:
      return Repeat(xdomain, context);
    case Next::Greet:
      return Greet(xdomain, context);
    case Next::QueueLinkOrProperties:
      return QueueLinkOrProperties(xdomain, context);
    case Next::QueueBonding:
      return KivUsb4XdomainQueueBonding(xdomain, context);
    case Next::QueueLinkStatus2:
      return KivUsb4XdomainQueueLinkStatus2(xdomain, context);
    case Next::QueueBondingUuidLow:
      return KivUsb4XdomainQueueBondingUuidLow(xdomain, context);
    case Next::QueueProperties:
      return KivUsb4XdomainQueueProperties(xdomain, context);
    case Next::GiveUpUuid:
      xdomain->UuidFailed.Set(true);
      return SetPeerState(xdomain, USB4_XDOMAIN_ERROR);
    case Next::Enumerated:
      return SetPeerState(xdomain, USB4_XDOMAIN_ENUMERATED);
    case Next::Failed:
      return SetPeerState(xdomain, result == kKivNoNetDevice ? USB4_XDOMAIN_ENUMERATED : USB4_XDOMAIN_ERROR);
    case Next::FailedRepeat:
      SetPeerState(xdomain, USB4_XDOMAIN_ERROR);
      return Repeat(xdomain, context);
  }
}

// Null when there is none; then its time is spent all the same.
USB4_XDOMAIN* PeerOfWork(WDFWORKITEM workItem, DEVICE_EXTENSION** context) {
  const KIV_USB4_WORKER_ITEM_CONTEXT* itemContext = WorkItemContextOf(workItem);
  *context = itemContext == nullptr ? nullptr : static_cast<DEVICE_EXTENSION*>(itemContext->Owner);
  return itemContext == nullptr ? nullptr : static_cast<USB4_XDOMAIN*>(itemContext->Data);
}

}  // namespace

const char* PeerStateName(LONG state) {
  return IsState(state) ? kStates[static_cast<std::size_t>(state)].Name : "unknown";
}

void SetPeerState(USB4_XDOMAIN* xdomain, USB4_XDOMAIN_STATE state) {
  const LONG before = xdomain->State.Exchange(state);
  TraceInfo("peer state", "name", xdomain->Info.Name, "from", PeerStateName(before), "to", PeerStateName(state));
}

void QueueStateWork(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  QueueWork(xdomain, context, xdomain->StateWork, KIV_WORK_STATE);
}

void QueuePropertiesChangedWork(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  QueueWork(xdomain, context, xdomain->PropertiesChangedWork, KIV_WORK_PROPERTIES_CHANGED);
}

void StartInterDomainHandshake(USB4_XDOMAIN* xdomain) {
  if (xdomain == nullptr) return;
  DEVICE_EXTENSION* context = ContextOf(xdomain->Domain);
  if (context == nullptr) return;
  SetPeerState(xdomain, USB4_XDOMAIN_INIT);
  SleepMs(xdomain->Domain, kStepMs);
  QueueStateWork(xdomain, context);
}

void StopInterDomainHandshake(USB4_XDOMAIN* xdomain) {
  DEVICE_EXTENSION* context = ContextOf(xdomain->Domain);
  // A step may take 10 s, and a flush has no time-out.
  if (PowersDown(xdomain->Domain)) AbortOtherFlows(*xdomain->Domain);
  const RequestPause pause(context);
  for (WDFWORKITEM item : {xdomain->PropertiesChangedWork, xdomain->StateWork, context->GenericXDomainWorkItem}) {
    if (item != nullptr) WdfWorkItemFlush(item);
  }
  xdomain->RetryCount.Store(0);
  xdomain->PropertiesChangedRetryCount.Store(0);
}

void KivUsb4XdomainQueueUuid(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  Enter(xdomain, context, USB4_XDOMAIN_UUID, kStepMs);
}

void KivUsb4XdomainQueueLinkStatus(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  Enter(xdomain, context, USB4_XDOMAIN_LINK_STATUS, kLongStepMs);
}

void KivUsb4XdomainQueueLinkStatus2(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  Enter(xdomain, context, USB4_XDOMAIN_LINK_STATUS2, kStepMs);
}

void KivUsb4XdomainQueueBonding(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  const bool asks = std::memcmp(xdomain->OwnUuid, xdomain->PeerUuid, kUuidBytes) <= 0;
  Enter(xdomain, context, asks ? USB4_XDOMAIN_LINK_STATE_CHANGE : USB4_XDOMAIN_BONDING_UUID_HIGH, kLongStepMs);
}

void KivUsb4XdomainQueueBondingUuidLow(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  Enter(xdomain, context, USB4_XDOMAIN_BONDING_UUID_LOW, kLongStepMs);
}

void KivUsb4XdomainQueueProperties(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  Enter(xdomain, context, USB4_XDOMAIN_PROPERTIES, kLongStepMs);
}

void KivUsb4XdomainQueuePropertiesChanged(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  xdomain->PropertiesChangedRetryCount.Store(kStateRetries);
  SleepMs(xdomain->Domain, kStepMs);
  QueuePropertiesChangedWork(xdomain, context);
}

void KivUsb4XdomainStateWork(WDFWORKITEM workItem) {
  DEVICE_EXTENSION* context = nullptr;
  USB4_XDOMAIN* xdomain = PeerOfWork(workItem, &context);
  if (context == nullptr || xdomain == nullptr) {
    SleepMs(nullptr, kRepeatMs);
    return;
  }
  context->XDomainPending[KIV_WORK_STATE].Store(0);
  const LONG state = xdomain->State.Load();
  if (xdomain->Removed.IsSet() || !IsState(state)) return;
  if (xdomain->Domain == nullptr) return Repeat(xdomain, context);
  KIV_RESULT result = kKivOk;
  {
    TraceStep("peer step", "name", xdomain->Info.Name, "state", PeerStateName(state));
    result = RunStep(xdomain, context, state);
  }
  if (result != kKivOk) {
    TraceWarning("peer step failed", "name", xdomain->Info.Name, "state", PeerStateName(state), "result",
                 AsResult(result));
  }
  Go(xdomain, context, NextAfter(state, result), result);
}

void KivUsb4XdomainPropertiesChanged(WDFWORKITEM workItem) {
  DEVICE_EXTENSION* context = nullptr;
  USB4_XDOMAIN* xdomain = PeerOfWork(workItem, &context);
  if (context == nullptr || xdomain == nullptr) return;
  if (xdomain->Removed.IsSet()) {
    xdomain->PropertiesChangedRetryCount.Store(0);
    return;
  }
  context->XDomainPending[KIV_WORK_PROPERTIES_CHANGED].Store(0);
  AtomicLong& retries = xdomain->PropertiesChangedRetryCount;
  const KIV_RESULT result = KivUsb4XdpPropertiesChangedRequest(xdomain->Domain->ControlChannel, xdomain->Route,
                                                               retries.Load(), xdomain->OwnUuid);
  if (result == kKivOk) {
    retries.Store(kStateRetries);
    return;
  }
  TraceWarning("peer not told of changed properties", "name", xdomain->Info.Name, "result", AsResult(result));
  if (retries.Decrement() + 1 < 1) return;
  SleepMs(xdomain->Domain, kRepeatMs);
  QueuePropertiesChangedWork(xdomain, context);
}
