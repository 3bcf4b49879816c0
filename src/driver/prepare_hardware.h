// Hardware preparation: from the resources that the bus hands out to a domain.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// 0xC00001AD without a device context, 0xC000009A without the host-interface record or with DMA beyond the rings,
// 0xC0000182 for a missing descriptor, 0xC00000A0 without a domain. Hardware that claims no rings ends the preparation
// with success: the device then does nothing.
EVT_WDF_DEVICE_PREPARE_HARDWARE USB4EvtDevicePrepareHardware;
