// Device I/O controls of companion drivers and tools.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Serves both the device-control and the internal-device-control queue.
EVT_WDF_IO_QUEUE_IO_DEVICE_CONTROL KivUsb4EvtIoDeviceControl;
