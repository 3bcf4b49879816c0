// Creation of the function device of a host router.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Creates the device with its context, queues and interface. The status of the first of these that fails: the device,
// the hardware-ID query, the interface, a queue.
EVT_WDF_DRIVER_DEVICE_ADD USB4EvtDeviceAdd;

// Which of a machine's host controllers a device is: 0 or 1 by the first 21 characters of the hardware ID; -1, traced,
// for one that the table does not know.
[[nodiscard]] LONG KivUsb4ReturnControllerBasedOnDevId(const WCHAR* hardwareId);
