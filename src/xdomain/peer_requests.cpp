// Requests of peer hosts: none is known yet, so each is left to the outstanding requests and otherwise dropped.
#include "hostif/upcalls.h"

bool KivUsb4XdomainHandleRequest(USB4_DOMAIN*, std::uint32_t, const std::uint32_t*, std::uint32_t) {
  return false;
}

void KivUsb4XdpHandleRequest(WDFWORKITEM) {}
