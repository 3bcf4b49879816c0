// Creation of the function device of a host router.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Creates the device with its context, queues and interface. The status of the first of these that fails: the device,
// the hardware-ID query, the interface, a queue.
EVT_WDF_DRIVER_DEVICE_ADD USB4EvtDeviceAdd;
