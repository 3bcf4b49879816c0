// The passive-level handlers of the network rings, which are the first pair allocated and so stand at hop 1.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Message 2, network transmit, and message 3, network receive. Nothing happens while there is no ring at hop 1.
EVT_WDF_INTERRUPT_WORKITEM USB4EvtInterruptTxFrameDpc;
EVT_WDF_INTERRUPT_WORKITEM USB4EvtInterruptRxFrameDpc;
