// Which of a machine's host controllers a device is.
#pragma once
#include <ntddk.h>

// 0 or 1 by the first 21 characters of the hardware ID; -1, traced, for one that the table does not know.
[[nodiscard]] LONG KivUsb4ReturnControllerBasedOnDevId(const WCHAR* hardwareId);
