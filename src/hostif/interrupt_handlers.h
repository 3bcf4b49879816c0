// The interrupt service routine of every message, and the passive-level handlers of the control rings.
#pragma once
#include <ntddk.h>
#include <wdf.h>

// Clears the message's status dword and defers the rest. Claims every interrupt: messages are not shared.
EVT_WDF_INTERRUPT_ISR USB4EvtInterruptIsr;
// Message 0, control transmit, and message 1, control receive: completed frames. Nothing happens while the device
// context, the channel or the ring is missing.
EVT_WDF_INTERRUPT_WORKITEM USB4EvtInterruptTxDpc;
EVT_WDF_INTERRUPT_WORKITEM USB4EvtInterruptRxDpc;
