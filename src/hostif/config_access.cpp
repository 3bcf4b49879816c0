// Configuration access: builds requests, repeats them, checks and copies out the answers.
#include "hostif/config_access.h"

#include <cstring>

#include "hostif/abort.h"
#include "hostif/config_request.h"
#include "hostif/control_packet.h"
#include "include/device_context.h"
#include "include/locks.h"
#include "include/trace.h"

namespace {

constexpr std::uint32_t kMostAttempts = 4;
constexpr std::uint32_t kAddressDword = 2;
constexpr std::uint32_t kHeaderDwords = 3;

// One read or write in progress.
struct Access {
  USB4_CTL* Channel;
  const USB4_CFG_TARGET& Target;
  std::uint32_t Pdf;
  const char* Operation;           // the public one that runs it
  const std::uint32_t* WriteData;  // null for a read
  std::uint32_t* ReadBuffer;       // null for a write
  USB4_CFG_RESULT Result;

  std::uint32_t Dwords() const { return USB4_CFG_ADDRESS::Length::Get(AddressWord()); }
  std::uint32_t AddressWord() const {
    return USB4_CFG_ADDRESS::Offset::Of(static_cast<std::uint32_t>(Target.Range.Offset)) |
           USB4_CFG_ADDRESS::Length::Of(Target.Range.Length) | USB4_CFG_ADDRESS::Adapter::Of(Target.Adapter) |
           USB4_CFG_ADDRESS::Space::Of(Target.Range.Space);
  }
};

bool MustStop(USB4_CTL* channel) {
  DEVICE_EXTENSION* context = ContextOf(channel->HostInterface);
  return context == nullptr || context->PoweredDown.IsSet() || IsAborted(context->Domain);
}

void FillRequest(USB4_CFG_REQUEST* request, const Access& access, std::uint32_t attempt) {
  const std::uint32_t dataBytes = 4 * access.Dwords();
  const USB4_CFG_HEADER header = Usb4CfgMakeHeader(access.Target.Route);
  request->RequestWords[0] = header.RouteHigh;
  request->RequestWords[1] = header.RouteLow;
  request->RequestWords[kAddressDword] = USB4_CFG_ADDRESS::Sequence::Put(access.AddressWord(), attempt);
  request->RequestBytes = kControlHeaderBytes;
  request->ResponseBytes = kControlHeaderBytes;
  if (access.WriteData != nullptr) {
    std::memcpy(request->RequestWords + kHeaderDwords, access.WriteData, dataBytes);
    request->RequestBytes += dataBytes;
  } else {
    request->ResponseBytes += dataBytes;
  }
  request->RequestPdf = access.Pdf;
  request->ResponsePdf = access.Pdf;
  request->Match = KivUsb4CfgMatch;
  request->Copy = KivUsb4CfgRequestCopy;
}

// The answer is looked at only once it is known to be to this very question.
void TakeAnswer(Access& access, const std::uint32_t* answer) {
  const std::uint32_t addressWord = answer[kAddressDword];
  access.Result.Err = KivUsb4CheckConfigAddress(addressWord, access.Target.Range);
  access.Result.Adapter = USB4_CFG_ADDRESS::Adapter::Get(addressWord);
  if (access.Result.Err == kKivOk && access.ReadBuffer != nullptr) {
    std::memcpy(access.ReadBuffer, answer + kHeaderDwords, 4 * access.Dwords());
  }
}

_Requires_lock_held_(access.Channel->AccessLock) void Attempt(Access& access, std::uint32_t attempt, ULONG timeoutMs) {
  _Analysis_assume_lock_held_(access.Channel->AccessLock);
  USB4_CFG_REQUEST* request = AllocateRequest();
  if (request == nullptr) {
    TraceErrorBy(access.Operation, "no memory for a request");
    access.Result.Err = kKivFailed;
    return;
  }
  FillRequest(request, access, attempt);
  TraceStepBy(access.Operation, "configuration access", "controller", ControllerIndexOf(access.Channel->HostInterface),
              "access", AsWord(PacketTypeName(access.Pdf)), "route", AsRoute(access.Target.Route), "adapter",
              access.Target.Adapter, "space", access.Target.Range.Space, "offset", AsHex(access.Target.Range.Offset),
              "length", access.Dwords(), "sequence", attempt);
  access.Result = KivUsb4CfgRequestSync(access.Channel, request, timeoutMs);
  if (access.Result.Err == kKivNotSent) return;  // the request is gone already
  if (access.Result.Err == kKivOk) TakeAnswer(access, request->ResponseWords);
  KivUsb4CfgRequestDequeue(access.Channel, request);
  ReleaseRequest(request);
}

// One attempt at a time: answers are told apart by route, size and sequence number alone, so two requests that agree in
// these would swap their answers. False when the flow must stop; no attempt was made then.
bool AttemptInTurn(Access& access, std::uint32_t attempt, ULONG timeoutMs) {
  if (MustStop(access.Channel)) return false;
  MutexGuard guard(access.Channel->AccessLock);
  if (MustStop(access.Channel)) return false;  // a power-down may have begun while this flow waited for its turn
  Attempt(access, attempt, timeoutMs);
  return true;
}

USB4_CFG_RESULT Run(Access access, ULONG timeoutMs) {
  std::uint32_t attempts = 0;
  while (attempts < kMostAttempts && AttemptInTurn(access, attempts, timeoutMs)) {
    ++attempts;
    if (access.Result.Err != kKivNoAnswer) break;
  }
  if (attempts == kMostAttempts) {
    TraceWarningBy(access.Operation, "last attempt used", "route", AsRoute(access.Target.Route), "adapter",
                   access.Target.Adapter, "result", AsResult(access.Result.Err));
  }
  if (attempts == 0) {
    // A device that is powered down has answered nothing; an answer of zeros is what is then judged.
    constexpr std::uint32_t kNothing[kHeaderDwords + kMostRegisterDwords] = {};
    TakeAnswer(access, kNothing);
  }
  return access.Result;
}

// What an error packet says makes no difference to the caller; the trace keeps what was refused.
KIV_RESULT TraceFailure(const char* operation, const USB4_CFG_TARGET& target, const USB4_CFG_RESULT& result) {
  if (result.Err == kKivOk) return kKivOk;
  if (result.Err == kKivErrorPacket) {
    TraceErrorBy(operation, "refused by an error packet", "route", AsRoute(target.Route), "adapter", target.Adapter,
                 "space", target.Range.Space, "offset", AsHex(target.Range.Offset), "length", target.Range.Length,
                 "code", result.Code);
  } else {
    TraceErrorBy(operation, "access failed", "route", AsRoute(target.Route), "adapter", target.Adapter, "space",
                 target.Range.Space, "offset", AsHex(target.Range.Offset), "length", target.Range.Length, "result",
                 AsResult(result.Err));
  }
  return kKivFailed;
}

}  // namespace

USB4_CFG_RESULT Usb4CfgReadRaw(USB4_CTL* channel, std::uint32_t* buffer, const USB4_CFG_TARGET& target,
                               ULONG timeoutMs) {
  return Run({channel, target, USB4_PDF_READ, __func__, nullptr, buffer, {}}, timeoutMs);
}

USB4_CFG_RESULT KivUsb4CfgWriteRaw(USB4_CTL* channel, const std::uint32_t* buffer, const USB4_CFG_TARGET& target,
                                   ULONG timeoutMs) {
  return Run({channel, target, USB4_PDF_WRITE, __func__, buffer, nullptr, {}}, timeoutMs);
}

KIV_RESULT KivUsb4CfgRead(USB4_CTL* channel, std::uint32_t* buffer, const USB4_CFG_TARGET& target) {
  if (channel == nullptr) {
    TraceError("no control channel", "route", AsRoute(target.Route));
    return kKivOk;
  }
  return TraceFailure(__func__, target, Usb4CfgReadRaw(channel, buffer, target, kControlReplyMs));
}

KIV_RESULT KivUsb4CfgWrite(USB4_CTL* channel, const std::uint32_t* buffer, const USB4_CFG_TARGET& target) {
  if (channel == nullptr) {
    TraceError("no control channel", "route", AsRoute(target.Route));
    return kKivFailed;
  }
  return TraceFailure(__func__, target, KivUsb4CfgWriteRaw(channel, buffer, target, kControlReplyMs));
}

KIV_RESULT KivUsb4CfgGetUpstreamPort(USB4_CTL* channel, USB4_ROUTE route) {
  if (channel == nullptr) return kKivFailed;
  std::uint32_t word = 0;
  const USB4_CFG_TARGET target = {route, 0, {USB4_CFG_SPACE_ROUTER, 0, 1}};
  const USB4_CFG_RESULT result = Usb4CfgReadRaw(channel, &word, target, kControlReplyMs);
  if (result.Err == kKivErrorPacket) return kKivIoError;
  return result.Err != kKivOk ? result.Err : static_cast<KIV_RESULT>(result.Adapter);
}
