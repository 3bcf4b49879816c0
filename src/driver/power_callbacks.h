// The four power callbacks of the device. PASSIVE_LEVEL; the framework runs one at a time.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Always succeeds. Coming from D3, requests are sent again when they go unanswered.
EVT_WDF_DEVICE_D0_ENTRY USB4EvtDeviceD0Entry;
// The first start adds the domain and returns what came of it; a resume restarts channel and bus and succeeds.
// 0xC0000206 without a device context or domain.
EVT_WDF_DEVICE_D0_ENTRY_POST_INTERRUPTS_ENABLED USB4WdfDeviceD0EntryPostInterruptsEnabled;
// Always succeeds. Holds the work loop off, then suspends (D3) or stops (removal) the bus.
EVT_WDF_DEVICE_D0_EXIT_PRE_INTERRUPTS_DISABLED USB4WdfDeviceD0ExitPreInterruptsDisabled;
// Always succeeds. For D1 to D3 stops the channel and then the bus, keeping what is programmed in the routers.
EVT_WDF_DEVICE_D0_EXIT USB4EvtDeviceD0Exit;

// A device power state as traces name it.
[[nodiscard]] const char* KivUsb4DevicePowerStateString(WDF_POWER_DEVICE_STATE state);
