// Outstanding requests. The list is guarded by the channel's request lock; copying and waking run outside it.
#include "hostif/config_request.h"

#include <cstring>

#include "hostif/abort.h"
#include "hostif/control_channel.h"
#include "hostif/control_packet.h"
#include "include/device_context.h"
#include "include/locks.h"
#include "include/trace.h"
#include "include/wait.h"

namespace {

constexpr std::uint32_t kQueuedOnce = 1;
constexpr ULONG kCopyEndMs = 10;  // a copy in progress ends by itself; this is only how often the waiter looks

USB4_ROUTE RouteOfRequest(const USB4_CFG_REQUEST* request) {
  return PacketRoute(request->Request);
}

bool SequenceMatters(std::uint32_t pdf) {
  return pdf == USB4_PDF_READ || pdf == USB4_PDF_WRITE;
}

// Decides between the clock and an answer that is coming in right now. True when the clock won; an answer that won has
// been copied completely when this returns.
bool GiveUp(USB4_CFG_REQUEST* request) {
  for (;;) {
    if (request->Progress.ChangeFrom(kRequestWaiting, kRequestTimedOut)) return true;
    if (request->Progress.Load() == kRequestAnswered) return false;
    IgnoreResult(WaitForEventMs(request->Done, kCopyEndMs));  // the progress word is what counts
  }
}

USB4_DOMAIN* DomainOf(const USB4_CTL* channel) {
  const DEVICE_EXTENSION* context = ContextOf(channel->HostInterface);
  return context == nullptr ? nullptr : context->Domain;
}

// A wait that the platform ends in any other way leaves the result as it stands.
void WaitForAnswer(USB4_CFG_REQUEST* request, ULONG timeoutMs) {
  const NTSTATUS status = WaitForEventOrAbort(DomainOf(request->Channel), request->Done, timeoutMs);
  if (status == kStatusOk || !GiveUp(request)) return;
  if (status == kStatusWaitTimedOut) {
    TraceErrorBy(NAME_OF(KivUsb4CfgRequestSync), "CMD_TIMEOUT", "route", AsRoute(RouteOfRequest(request)), "type",
                 AsWord(PacketTypeName(request->RequestPdf)), "timeout", AsMs(timeoutMs));
    request->Result.Err = kKivNoAnswer;
  } else if (status == kStatusAborted) {
    TraceWarningBy(NAME_OF(KivUsb4CfgRequestSync), "answer not waited for", "route", AsRoute(RouteOfRequest(request)),
                   "type", AsWord(PacketTypeName(request->RequestPdf)));
    request->Result.Err = kKivFailed;
  } else {
    TraceErrorBy(NAME_OF(KivUsb4CfgRequestSync), "OTHER ERROR", "route", AsRoute(RouteOfRequest(request)), "type",
                 AsWord(PacketTypeName(request->RequestPdf)), "status", AsStatus(status));
  }
}

}  // namespace

USB4_CFG_REQUEST* AllocateRequest() {
  USB4_CFG_REQUEST* request = PoolNew<USB4_CFG_REQUEST>();
  if (request == nullptr) return nullptr;
  request->References.Store(1);
  request->Request = request->RequestWords;
  request->Response = request->ResponseWords;
  return request;
}

void ReleaseRequest(USB4_CFG_REQUEST* request) {
  if (request->References.Decrement() == 0) PoolDelete(request);
}

KIV_RESULT KivUsb4CfgRequestEnqueue(USB4_CTL* channel, USB4_CFG_REQUEST* request) {
  {
    // Looked at under the lock: a request that gets onto the list before the channel stops is dropped by the stop.
    SpinLockGuard guard(channel->RequestLock);
    if (channel->Running.IsSet()) {
      request->Flags |= kQueuedOnce;
      request->Channel = channel;
      request->References.Increment();
      request->OnList = 1;
      channel->Requests().Append(*request);
      return kKivOk;
    }
  }
  TraceError("control channel does not run", "type", AsWord(PacketTypeName(request->RequestPdf)));
  return kKivFailed;
}

void KivUsb4CfgRequestDequeue(USB4_CTL* channel, USB4_CFG_REQUEST* request) {
  {
    SpinLockGuard guard(channel->RequestLock);
    if (!channel->Running.IsSet() || !request->OnList) return;
    RequestList::Remove(*request);
    request->OnList = 0;
  }
  ReleaseRequest(request);
}

USB4_CFG_REQUEST* KivUsb4CfgRequestFind(USB4_CTL* channel, const USB4_CTL_PKG* packet) {
  SpinLockGuard guard(channel->RequestLock);
  for (USB4_CFG_REQUEST& request : channel->Requests()) {
    if (!request.Match(&request, packet)) continue;
    request.References.Increment();
    return &request;
  }
  return nullptr;
}

bool KivUsb4CfgMatch(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet) {
  if (packet->Pdf() == USB4_PDF_NOTIFICATION) {
    // An error packet does not say which request it refuses. Requests are nearly always one at a time, so the oldest is
    // the best guess, whatever route the packet names: a lane that is down answers for the router behind it.
    TraceWarning("error packet ends the oldest request", "route", AsRoute(RouteOfRequest(request)));
    return true;
  }
  const USB4_ROUTE route = PacketRoute(packet->Buffer);
  if (packet->Pdf() != request->ResponsePdf || route != RouteOfRequest(request) ||
      packet->Bytes() != request->ResponseBytes) {
    TraceWarning("not the answer", "type", AsWord(PacketTypeName(packet->Pdf())), "route", AsRoute(route), "bytes",
                 packet->Bytes(), "wanted type", AsWord(PacketTypeName(request->ResponsePdf)), "wanted route",
                 AsRoute(RouteOfRequest(request)), "wanted bytes", request->ResponseBytes);
    return false;
  }
  if (!SequenceMatters(packet->Pdf())) return true;
  const std::uint32_t sent = USB4_CFG_ADDRESS::Sequence::Get(request->Request[2]);
  const std::uint32_t found = USB4_CFG_ADDRESS::Sequence::Get(packet->Buffer[2]);
  if (sent == found) return true;
  TraceWarning("answer to another attempt", "route", AsRoute(route), "sent", sent, "found", found);
  return false;
}

bool KivUsb4CfgRequestCopy(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet) {
  request->Result = KivUsb4ParseHeader(packet, {request->ResponseBytes, request->ResponsePdf, RouteOfRequest(request)});
  // A header that passed has the very size that was expected, and no packet is longer than its buffer.
  if (request->Result.Err == kKivOk) std::memcpy(request->Response, packet->Buffer, request->ResponseBytes);
  return true;
}

KIV_RESULT KivUsb4CfgRequest(USB4_CTL* channel, USB4_CFG_REQUEST* request) {
  KIV_RESULT result = KivUsb4CfgRequestEnqueue(channel, request);
  if (result != kKivOk) {
    ReleaseRequest(request);
    return result;
  }
  result = KivUsb4CtlTx(channel, request->Request, request->RequestBytes, request->RequestPdf);
  if (result == kKivOk && request->Response != nullptr) return kKivOk;
  KivUsb4CfgRequestDequeue(channel, request);
  ReleaseRequest(request);
  return result;
}

USB4_CFG_RESULT KivUsb4CfgRequestSync(USB4_CTL* channel, USB4_CFG_REQUEST* request, ULONG timeoutMs) {
  InitialiseAutoResetEvent(request->Done);
  if (KivUsb4CfgRequest(channel, request) != kKivOk) return {0, 0, kKivNotSent, 0};
  WaitForAnswer(request, timeoutMs);
  return request->Result;
}

void AnswerRequest(USB4_CTL* channel, const USB4_CTL_PKG* packet) {
  USB4_CFG_REQUEST* request = KivUsb4CfgRequestFind(channel, packet);
  if (request == nullptr) return;
  if (request->Response != nullptr && request->Copy != nullptr &&
      request->Progress.ChangeFrom(kRequestWaiting, kRequestCopying)) {
    const bool wakes = request->Copy(request, packet);
    request->Progress.Store(wakes ? kRequestAnswered : kRequestWaiting);
    if (wakes) SetEvent(request->Done);
  }
  ReleaseRequest(request);
}

void DropOutstandingRequests(USB4_CTL* channel) {
  LIST_ENTRY droppedHead;
  const ListView<USB4_CFG_REQUEST, offsetof(USB4_CFG_REQUEST, Link)> dropped(droppedHead);
  dropped.Initialise();
  {
    SpinLockGuard guard(channel->RequestLock);
    while (USB4_CFG_REQUEST* request = channel->Requests().TakeFirst()) {
      request->OnList = 0;
      dropped.Append(*request);
    }
  }
  while (USB4_CFG_REQUEST* request = dropped.TakeFirst()) {
    TraceWarning("request still outstanding at the stop", "route", AsRoute(RouteOfRequest(request)));
    ReleaseRequest(request);
  }
}
