// No control code is served yet: each is refused.
#include "ioctl/device_control.h"

#include "hostif/upcalls.h"
#include "include/status.h"

void KivUsb4EvtIoDeviceControl(WDFQUEUE, WDFREQUEST request, size_t, size_t, ULONG) {
  WdfRequestComplete(request, kStatusInvalidRequest);
}

// Nothing is queued to the network clean-up yet.
void KivUsb4NetCleanUpWorkItem(WDFWORKITEM) {}
