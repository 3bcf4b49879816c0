// There is no network device yet: a peer never gets a network context, so nothing is ever open.
#include "net/peer_network.h"

#include "include/status.h"
#include "xdomain/upcalls.h"

NTSTATUS KivUsb4PlugInEthernetController(USB4_DOMAIN*, USB4_XDOMAIN*) {
  return kStatusInvalidRequest;
}

NTSTATUS KivUsb4UnplugEthernetController(USB4_DOMAIN*, std::uint32_t) {
  return kStatusInvalidRequest;
}

KIV_RESULT KivUsb4NetOpen(USB4_NET*) {
  return kKivFailed;
}

KIV_RESULT KivUsb4NetHandlePacket(const std::uint32_t*, std::uint32_t, USB4_NET*) {
  return 0;
}

void EndPeerDataPath(USB4_XDOMAIN*) {}

void KivUsb4NetTearDown(DEVICE_EXTENSION*, USB4_XDOMAIN*, bool) {}
