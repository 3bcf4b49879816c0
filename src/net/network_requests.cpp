// There is no network device yet: its requests are refused, and no child is ever reported.
#include "net/network_requests.h"

#include "include/status.h"

void KivUsb4EvtIoRead(WDFQUEUE, WDFREQUEST request, size_t) {
  WdfRequestComplete(request, kStatusInvalidRequest);
}

void KivUsb4EvtIoWrite(WDFQUEUE, WDFREQUEST request, size_t) {
  WdfRequestComplete(request, kStatusInvalidRequest);
}

NTSTATUS USB4EvtChildListCreateDevice(WDFCHILDLIST, PWDF_CHILD_IDENTIFICATION_DESCRIPTION_HEADER, PWDFDEVICE_INIT) {
  return kStatusInvalidRequest;
}
