// No property tree is offered to peers yet, so there is none to build, and nobody asks for the host's name.
#include "xdomain/host_properties.h"

#include "include/status.h"

NTSTATUS KivUsb4XdomainInit(USB4_HOST_INTERFACE*) {
  return kStatusOk;
}

void KivUsb4XdomainExit(USB4_HOST_INTERFACE*) {}

NTSTATUS KivUsb4ReadActiveComputerNameFromRegistry(USB4_DOMAIN*) {
  return kStatusNotFound;
}
