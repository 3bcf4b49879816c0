// Answering peers. The receive path only sorts and copies; whatever waits or reads a register happens in the work item.
#include "xdomain/request_handler.h"

#include <cstring>

#include "hostif/abort.h"
#include "hostif/upcalls.h"
#include "hostif/work_items.h"
#include "include/locks.h"
#include "include/trace.h"
#include "topology/device_list.h"
#include "topology/upcalls.h"
#include "xdomain/peer.h"
#include "xdomain/peer_answers.h"
#include "xdomain/peer_properties.h"
#include "xdomain/peer_state.h"
#include "xdomain/upcalls.h"

namespace {

constexpr std::uint32_t kMostWaiting = 256;
constexpr ULONG kReviveMs = 1000;
constexpr ULONG kChangeMs = 100;

HolderList WaitingOf(DEVICE_EXTENSION* context) {
  return HolderList(context->XDomainRequestListHead);
}

bool Keep(DEVICE_EXTENSION* context, USB4_XDP_HOLDER* holder) {
  const SpinLockGuard guard(context->XDomainRequestLock);
  if (context->XDomainRequestCount >= kMostWaiting) return false;
  ++context->XDomainRequestCount;
  WaitingOf(context).Append(*holder);
  return true;
}

// Unless the answering pauses. One run empties the list; a request that comes during it queues another run.
void QueueAnswering(DEVICE_EXTENSION* context) {
  {
    const SpinLockGuard guard(context->XDomainRequestLock);
    if (context->XDomainRequestPauses != 0 || context->XDomainRequestCount == 0) return;
  }
  // Never refused: this kind may be queued at any time.
  IgnoreResult(KivUsb4QueueXDomainGenericWorkItemData(context->GenericXDomainWorkItem, context, nullptr,
                                                      KIV_WORK_UNCONDITIONAL));
}

// Null when none waits, or none is to be answered now.
USB4_XDP_HOLDER* TakeHolder(DEVICE_EXTENSION* context) {
  const SpinLockGuard guard(context->XDomainRequestLock);
  if (context->XDomainRequestPauses != 0) return nullptr;
  USB4_XDP_HOLDER* holder = WaitingOf(context).TakeFirst();
  if (holder != nullptr) --context->XDomainRequestCount;
  return holder;
}

// False while the host router is not known, or has no UUID yet.
bool CopyHostUuid(USB4_DOMAIN* domain, std::uint8_t (&uuid)[kUuidBytes]) {
  const SpinLockGuard guard(domain->TopologyLock);
  if (domain->HostRouter == nullptr || domain->HostRouter->Uuid == nullptr) return false;
  std::memcpy(uuid, domain->HostRouter->Uuid, kUuidBytes);
  return true;
}

void TraceUnlessSent(const USB4_XDP_REPLY& reply, KIV_RESULT result) {
  if (result != kKivOk) {
    TraceWarningBy(NAME_OF(KivUsb4XdpHandleRequest), "peer not answered", "route", AsRoute(reply.Route), "result",
                   AsResult(result));
  }
}

// A peer that asks who this host is has come to life: a discovery that gave up before it begins anew.
void Revive(DEVICE_EXTENSION* context, USB4_XDOMAIN* xdomain) {
  if (xdomain == nullptr || !xdomain->UuidFailed.IsSet() || xdomain->State.Load() != USB4_XDOMAIN_ERROR) return;
  xdomain->UuidFailed.Set(false);
  SetPeerState(xdomain, USB4_XDOMAIN_INIT);
  SleepMs(xdomain->Domain, kReviveMs);
  QueueStateWork(xdomain, context);
}

KIV_RESULT ChangeLink(DEVICE_EXTENSION* context, const USB4_XDP_REPLY& reply, USB4_XDOMAIN* xdomain,
                      const std::uint32_t* packet) {
  if (xdomain == nullptr || xdomain->State.Load() != USB4_XDOMAIN_BONDING_UUID_HIGH) {
    return KivUsb4XdpErrorResponse(reply, USB4_XDP_ERROR_NOT_READY);
  }
  const KIV_RESULT result = KivUsb4XdpLinkStateChangeResponse(reply, 0);
  xdomain->RequestedLinkWidth.Store(static_cast<LONG>(XdpChangeWord::TargetWidth::Get(packet[kXdpPayloadWord])));
  SleepMs(xdomain->Domain, kChangeMs);
  QueueStateWork(xdomain, context);
  return result;
}

KIV_RESULT AnswerByType(DEVICE_EXTENSION* context, const USB4_XDP_REPLY& reply, USB4_XDOMAIN* xdomain,
                        const std::uint8_t (&ownUuid)[kUuidBytes], const std::uint32_t* packet) {
  switch (packet[kXdpTypeWord]) {
    case USB4_XDP_UUID_REQUEST_OLD:
    case USB4_XDP_UUID_REQUEST: {
      const KIV_RESULT result = KivUsb4XdpUuidResponse(reply, ownUuid);
      Revive(context, xdomain);
      return result;
    }
    case USB4_XDP_PROPERTIES_REQUEST:
      return xdomain == nullptr ? kKivOk : KivUsb4XdpPropertiesResponse(reply, xdomain, packet);
    case USB4_XDP_PROPERTIES_CHANGED_REQUEST:
      return KivUsb4XdpPropertiesChangedResponse(reply);
    case USB4_XDP_LINK_STATE_STATUS_REQUEST:
      return xdomain == nullptr ? KivUsb4XdpErrorResponse(reply, USB4_XDP_ERROR_NOT_READY)
                                : KivUsb4XdpLinkStatusResponse(reply, xdomain);
    case USB4_XDP_LINK_STATE_CHANGE_REQUEST:
      return ChangeLink(context, reply, xdomain, packet);
    default:
      return KivUsb4XdpErrorResponse(reply, USB4_XDP_ERROR_NOT_SUPPORTED);
  }
}

bool IsHandledByNetwork(USB4_DOMAIN* domain, const std::uint32_t* packet, std::uint32_t bytes) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  USB4_XDOMAIN* xdomain = context == nullptr ? nullptr : ReferenceDevicePeer(context);
  if (xdomain == nullptr) return false;
  const bool handled = KivUsb4NetHandlePacket(packet, bytes, xdomain->Network) > 0;
  ReleasePeer(xdomain);
  return handled;
}

void AnswerHolder(DEVICE_EXTENSION* context, const USB4_XDP_HOLDER& holder) {
  USB4_DOMAIN* domain = holder.Domain;
  const std::uint32_t* packet = holder.Packet;
  const USB4_XDP_REPLY reply = {domain->ControlChannel, XdpRoute(packet), XdpSequence(packet)};
  TraceStepBy(NAME_OF(KivUsb4XdpHandleRequest), "answer peer", "route", AsRoute(reply.Route), "type",
              AsWord(XdpTypeName(packet[kXdpTypeWord])));
  std::uint8_t ownUuid[kUuidBytes];
  if (!CopyHostUuid(domain, ownUuid)) {
    TraceUnlessSent(reply, KivUsb4XdpErrorResponse(reply, USB4_XDP_ERROR_NOT_READY));
    return;
  }
  USB4_XDOMAIN* xdomain = KivUsb4XdomainFind(domain, reply.Route);
  if (xdomain != nullptr) UpdatePropertyBlock(xdomain);
  TraceUnlessSent(reply, AnswerByType(context, reply, xdomain, ownUuid, packet));
  if (xdomain != nullptr) ReleasePeer(xdomain);
}

}  // namespace

bool KivUsb4XdomainHandleRequest(USB4_DOMAIN* domain, std::uint32_t pdf, const std::uint32_t* packet,
                                 std::uint32_t bytes) {
  if (!XdpLengthIsRight(packet, bytes)) {
    TraceWarning("inter-domain packet of impossible length", "bytes", bytes);
    return true;
  }
  const USB4_CTL* channel = domain->ControlChannel;
  if (XdpProtocolIs(packet, channel->XdomainUuid)) {
    return pdf == USB4_PDF_XDOMAIN_REQUEST && KivUsb4XdpScheduleRequest(domain, packet, bytes);
  }
  if (XdpProtocolIs(packet, channel->SecondUuid)) return IsHandledByNetwork(domain, packet, bytes);
  return true;
}

bool KivUsb4XdpScheduleRequest(USB4_DOMAIN* domain, const std::uint32_t* packet, std::uint32_t bytes) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context == nullptr || bytes == 0 || bytes > kControlBufferBytes) return false;
  PoolPtr<USB4_XDP_HOLDER> holder = PoolPtr<USB4_XDP_HOLDER>::New();
  if (!holder) {
    TraceError("no memory for a request of a peer");
    return false;
  }
  holder->Domain = domain;
  std::memcpy(holder->Packet, packet, bytes);
  if (!Keep(context, holder.Get())) {
    TraceWarning("too many requests of peers wait");
    return false;
  }
  IgnoreResult(holder.Release());  // the list owns it now
  QueueAnswering(context);
  return true;
}

void KivUsb4XdpHandleRequest(WDFWORKITEM workItem) {
  const KIV_USB4_WORKER_ITEM_CONTEXT* itemContext = WorkItemContextOf(workItem);
  auto* context = itemContext == nullptr ? nullptr : static_cast<DEVICE_EXTENSION*>(itemContext->Owner);
  if (context == nullptr) return;
  while (USB4_XDP_HOLDER* holder = TakeHolder(context)) {
    AnswerHolder(context, *holder);
    PoolDelete(holder);
  }
}

RequestPause::RequestPause(DEVICE_EXTENSION* context) : context_(context) {
  const SpinLockGuard guard(context_->XDomainRequestLock);
  ++context_->XDomainRequestPauses;
}

RequestPause::~RequestPause() {
  {
    const SpinLockGuard guard(context_->XDomainRequestLock);
    --context_->XDomainRequestPauses;
  }
  QueueAnswering(context_);
}

void InitialisePeerRequests(DEVICE_EXTENSION* context) {
  WaitingOf(context).Initialise();
  context->XDomainRequestLock.Initialise();
}

void DropPeerRequests(DEVICE_EXTENSION* context) {
  while (USB4_XDP_HOLDER* holder = TakeHolder(context)) PoolDelete(holder);
}
