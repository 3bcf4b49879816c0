// Bringing the host interface into a known state, and its ring arrays and DMA enabler.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include "include/host_interface_record.h"

// One register of BAR0, by its offset in bytes. Any IRQL.
[[nodiscard]] std::uint32_t ReadHostRegister(const USB4_HOST_INTERFACE& hostInterface, std::uint32_t offset);
void WriteHostRegister(const USB4_HOST_INTERFACE& hostInterface, std::uint32_t offset, std::uint32_t value);

// Reads the hop count into the record. 0: the hardware is of no use.
_IRQL_requires_max_(PASSIVE_LEVEL) void ReadHopCount(USB4_HOST_INTERFACE& hostInterface);

// Masks every ring interrupt and clears every status bit.
_IRQL_requires_max_(DISPATCH_LEVEL) void KivUsb4MaskInterrupts(const USB4_HOST_INTERFACE& hostInterface);

// Programs the shortest interval between two messages of each of the 16 vectors.
_IRQL_requires_max_(DISPATCH_LEVEL) void ProgramThrottling(const USB4_HOST_INTERFACE& hostInterface);

// Hop count slots for each direction. Fails with 0xC000009A, leaving nothing allocated.
[[nodiscard]] NTSTATUS KivUsb4HostInterfaceRingAlloc(USB4_HOST_INTERFACE* hostInterface);
// Frees the arrays; a second call does nothing.
void KivUsb4HostInterfaceRingFree(USB4_HOST_INTERFACE* hostInterface);

// Creates the enabler for 64-bit packet DMA and stores it; the framework's status, or 0xC000009A when the fragments
// that the platform grants are beyond what the rings can describe.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4InitializeDma(USB4_HOST_INTERFACE* hostInterface, WDFDMAENABLER* enabler);

// A DMA buffer of the host interface. Buffers are aligned to at least 16 bytes and not zeroed by the platform; this
// zeroes.
struct DMA_BUFFER {
  WDFCOMMONBUFFER Handle;
  void* Address;
  std::uint64_t BusAddress;
};
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    CreateDmaBuffer(const USB4_HOST_INTERFACE& hostInterface, std::size_t bytes, DMA_BUFFER* buffer);
