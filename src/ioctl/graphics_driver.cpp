// Notifications to the graphics driver.
#include "include/status.h"
#include "tunnel/upcalls.h"

// Its device interface is not looked for yet, so it is not found.
NTSTATUS KivUsb4SendIoctlToGFXDriver(DEVICE_EXTENSION*, std::uint8_t, std::uint32_t) {
  return kStatusNotFound;
}
