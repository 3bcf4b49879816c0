// Reception on the control ring.
#include "hostif/control_receive.h"

#include "hostif/config_request.h"
#include "hostif/control_packet.h"
#include "hostif/ring.h"
#include "include/trace.h"

namespace {

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
