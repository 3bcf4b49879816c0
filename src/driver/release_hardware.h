// Hardware release: back from a domain to nothing.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Undoes whatever the preparation and the first start came to. 0xC0000017 without a device context.
EVT_WDF_DEVICE_RELEASE_HARDWARE USB4EvtDeviceReleaseHardware;
