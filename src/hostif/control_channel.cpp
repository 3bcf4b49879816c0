// The control channel's life, transmission, reception and acknowledgements.
#include "hostif/control_channel.h"

#include <cstring>

#include "hostif/config_request.h"
#include "hostif/control_packet.h"
#include "hostif/host_interface.h"
#include "hostif/ring.h"
#include "hostif/upcalls.h"
#include "hostif/work_items.h"
#include "include/device_context.h"
#include "include/locks.h"
#include "include/trace.h"

namespace {

constexpr std::uint8_t kXdomainUuid[16] = {0xb6, 0x38, 0xd7, 0x0e, 0x42, 0xff, 0x40, 0xbb,
                                           0x97, 0xc2, 0x90, 0xe2, 0xc0, 0xb2, 0xff, 0x07};
constexpr std::uint8_t kSecondUuid[16] = {0x79, 0x8f, 0x58, 0x9e, 0x36, 0x16, 0x8a, 0x47,
                                          0x97, 0xc6, 0x56, 0x64, 0xa9, 0x20, 0xc8, 0xdd};
constexpr std::uint32_t kPlugAckCode = 7;
constexpr std::uint32_t kPlugged = 2;
constexpr std::uint32_t kUnplugged = 3;

USB4_CTL_PKG* PacketOfFrame(USB4_RING_FRAME* frame) {
  return CONTAINING_RECORD(frame, USB4_CTL_PKG, Frame);
}

void FreeSent(USB4_RING*, USB4_RING_FRAME* frame, bool) {
  KivUsb4CtlPkgFree(PacketOfFrame(frame));
}

bool AllocateRings(USB4_CTL* channel) {
  USB4_HOST_INTERFACE* hostInterface = channel->HostInterface;
  channel->TransmitRing = Usb4TxRingAlloc(hostInterface, 0, kControlRingSize, kRingRawMode);
  channel->ReceiveRing = Usb4RxRingAlloc(hostInterface, {.Hop = 0,
                                                         .Size = kControlRingSize,
                                                         .IsTransmit = false,
                                                         .Flags = kRingRawMode,
                                                         .EndToEndHop = 0,
                                                         .StartPdfMask = 0xFFFF,
                                                         .EndPdfMask = 0xFFFF});
  return channel->TransmitRing != nullptr && channel->ReceiveRing != nullptr;
}

bool AllocateReceivePackets(USB4_CTL* channel) {
  for (USB4_CTL_PKG*& packet : channel->ReceivePackets) {
    packet = KivUsb4CtlPkgAlloc(channel, channel->ReceiveRing);
    if (packet == nullptr) return false;
    packet->Frame.Completion = KivUsb4CtlRxCallback;
  }
  return true;
}

void FreeRingsAndPackets(USB4_CTL* channel) {
  if (channel->TransmitRing != nullptr) Usb4RingFree(channel->TransmitRing);
  for (USB4_CTL_PKG* packet : channel->ReceivePackets) KivUsb4CtlPkgFree(packet);
  if (channel->ReceiveRing != nullptr) Usb4RingFree(channel->ReceiveRing);
}

void TraceWorkItemFailure(const char* item, NTSTATUS status) {
  if (!NT_SUCCESS(status)) {
    TraceErrorBy(NAME_OF(KivUSB4CtlAlloc), "work item not created", "item", item, "status", AsStatus(status));
  }
}

// Without one of them the device still enumerates; what needs the item finds it missing.
void CreateWorkItems(DEVICE_EXTENSION* context) {
  if (context == nullptr) return;
  TraceWorkItemFailure("connection manager", KivUsb4InitializeWorkItem(context, KivUsb4WorkItemCallback));
  TraceWorkItemFailure(
      "inter-domain requests",
      KivUsb4InitializeGenericXDomainWorkItem(context, &context->GenericXDomainWorkItem, KivUsb4XdpHandleRequest));
  TraceWorkItemFailure("peer removal",
                       KivUsb4InitializeGenericXDomainWorkItem(context, &context->ReaperWorkItem, ReapPeers));
  TraceWorkItemFailure("network clean-up", KivUsb4InitializeGenericXDomainWorkItem(
                                               context, &context->NetCleanUpWorkItem, KivUsb4NetCleanUpWorkItem));
}

bool GoesToEventCallback(USB4_CTL* channel, const USB4_CTL_PKG* packet) {
  return channel->EventCallback(channel->EventContext, packet->Pdf(), packet->Buffer, packet->Bytes());
}

// Returns true when the packet may answer a request.
bool SortPacket(USB4_CTL* channel, const USB4_CTL_PKG* packet, bool crcGood) {
  switch (packet->Pdf()) {
    case USB4_PDF_READ:
    case USB4_PDF_WRITE:
    case USB4_PDF_NOTIFICATION:
    case USB4_PDF_ANSWER_8:
    case USB4_PDF_ANSWER_9:
      if (!crcGood) {
        TraceErrorBy(NAME_OF(KivUsb4CtlRxCallback), "packet dropped for its CRC", "type",
                     AsWord(PacketTypeName(packet->Pdf())), "bytes", packet->Bytes());
        return false;
      }
      if (!KivUsb4AsyncError(packet)) return true;
      IgnoreResult(GoesToEventCallback(channel, packet));  // a notification answers nobody, whatever the callback says
      return false;
    case USB4_PDF_HOT_PLUG:
    case USB4_PDF_EVENT_10:
      // Taken as it is: a notification whose CRC is wrong still says that something changed, and it is looked up
      // anyway.
      return !GoesToEventCallback(channel, packet);
    case USB4_PDF_XDOMAIN_REQUEST:
    case USB4_PDF_XDOMAIN_RESPONSE:
      // A request of this host to its peer is answered with a response, so the packet is offered to requests in any
      // case.
      if (crcGood) {
        IgnoreResult(GoesToEventCallback(channel, packet));
      } else {
        TraceErrorBy(NAME_OF(KivUsb4CtlRxCallback), "inter-domain packet with a bad CRC", "type",
                     AsWord(PacketTypeName(packet->Pdf())), "bytes", packet->Bytes());
      }
      return true;
    default:
      return true;
  }
}

// The descriptor is what the device says: a size beyond the buffer must not be believed.
bool SizeIsPossible(std::uint32_t bytes) {
  return bytes >= kControlCrcBytes && bytes % 4 == 0 && bytes <= kControlBufferBytes;
}

}  // namespace

USB4_CTL* KivUSB4CtlAlloc(USB4_HOST_INTERFACE* hostInterface, USB4_EVENT_CALLBACK eventCallback, void* eventContext) {
  PoolPtr<USB4_CTL> channel = PoolPtr<USB4_CTL>::New();
  if (!channel) {
    TraceError("no memory for the control channel");
    return nullptr;
  }
  channel->HostInterface = hostInterface;
  channel->EventCallback = eventCallback;
  channel->EventContext = eventContext;
  channel->Requests().Initialise();
  channel->RequestLock.Initialise();
  channel->AccessLock.Initialise();
  if (!AllocateRings(channel.Get()) || !AllocateReceivePackets(channel.Get())) {
    TraceError("control rings or packets not allocated");
    FreeRingsAndPackets(channel.Get());
    return nullptr;
  }
  CreateWorkItems(ContextOf(hostInterface));
  std::memcpy(channel->XdomainUuid, kXdomainUuid, sizeof kXdomainUuid);
  std::memcpy(channel->SecondUuid, kSecondUuid, sizeof kSecondUuid);
  return channel.Release();
}

void KivUSB4CtlFree(USB4_CTL* channel) {
  if (channel == nullptr) return;
  DropOutstandingRequests(channel);
  FreeRingsAndPackets(channel);
  PoolDelete(channel);
}

void KivUsb4CtlStart(USB4_CTL* channel) {
  KivAssert(!channel->Running.IsSet());  // its packets are on the ring's list; a second post would link them twice
  Usb4RingStart(channel->TransmitRing);
  Usb4RingStart(channel->ReceiveRing);
  for (USB4_CTL_PKG* packet : channel->ReceivePackets) {
    if (KIV_RESULT result = KivUsb4RingRx(channel->ReceiveRing, &packet->Frame)) {
      TraceError("receive packet not posted", "result", AsResult(result));
    }
  }
  channel->Running.Set(true);
  TraceInfo("control channel started");
}

void KivUsb4CtlStop(USB4_CTL* channel) {
  if (channel == nullptr) return;
  const bool ran = channel->Running.IsSet();
  channel->Running.Set(false);
  USb4RingStop(channel->ReceiveRing);
  USb4RingStop(channel->TransmitRing);
  DropOutstandingRequests(channel);
  if (ran) TraceInfo("control channel stopped");
}

USB4_CTL_PKG* KivUsb4CtlPkgAlloc(USB4_CTL* channel, USB4_RING* ring) {
  PoolPtr<USB4_CTL_PKG> packet = PoolPtr<USB4_CTL_PKG>::New();
  if (!packet) {
    TraceError("no memory for a packet");
    return nullptr;
  }
  DMA_BUFFER buffer{};
  NTSTATUS status = CreateDmaBuffer(*ring->HostInterface, kControlBufferBytes, &buffer);
  if (!NT_SUCCESS(status)) {
    TraceError("no buffer for a packet", "status", AsStatus(status));
    return nullptr;
  }
  packet->Owner = channel;
  packet->Buffer = static_cast<std::uint32_t*>(buffer.Address);
  packet->CommonBuffer = buffer.Handle;
  packet->Frame.BufferBusAddress = buffer.BusAddress;
  return packet.Release();
}

void KivUsb4CtlPkgFree(USB4_CTL_PKG* packet) {
  if (packet == nullptr) return;
  WdfObjectDelete(packet->CommonBuffer);
  PoolDelete(packet);
}

KIV_RESULT KivUsb4CtlTx(USB4_CTL* channel, const std::uint32_t* packet, std::uint32_t bytes, std::uint32_t pdf) {
  if (bytes % 4 != 0 || bytes > kControlMostBytes) {
    TraceError("packet size impossible", "bytes", bytes);
    return kKivFailed;
  }
  USB4_CTL_PKG* sent = KivUsb4CtlPkgAlloc(channel, channel->TransmitRing);
  if (sent == nullptr) return kKivFailed;
  BuildPacket(sent, packet, bytes, pdf);
  sent->Frame.Completion = FreeSent;
  KIV_RESULT result = KivUsb4RingFrameEnqueue(channel->TransmitRing, &sent->Frame);
  if (result != kKivOk) KivUsb4CtlPkgFree(sent);
  return result;
}

KIV_RESULT KivUsb4CfgAckPlug(USB4_CTL* channel, USB4_ROUTE route, std::uint32_t adapter, bool unplug) {
  const USB4_CFG_HEADER header = Usb4CfgMakeHeader(route);
  const std::uint32_t packet[3] = {header.RouteHigh, header.RouteLow,
                                   PlugAckWord::Code::Of(kPlugAckCode) | PlugAckWord::Adapter::Of(adapter) |
                                       PlugAckWord::Plug::Of(unplug ? kUnplugged : kPlugged)};
  return KivUsb4CtlTx(channel, packet, sizeof packet, USB4_PDF_NOTIFICATION);
}

void KivUsb4CtlRxCallback(USB4_RING* ring, USB4_RING_FRAME* frame, bool cancelled) {
  if (cancelled) return;  // stays with the channel, which posts it when it starts again
  USB4_CTL_PKG* packet = PacketOfFrame(frame);
  if (SizeIsPossible(packet->Bytes())) {
    const bool crcGood = UnpackReceived(packet);
    if (SortPacket(packet->Owner, packet, crcGood)) AnswerRequest(packet->Owner, packet);
  } else {
    TraceError("packet size impossible", "bytes", packet->Bytes());
  }
  if (KivUsb4RingRx(ring, frame) != kKivOk) TraceInfo("receive packet kept, the ring has stopped");
}
