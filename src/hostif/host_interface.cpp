// Host-interface registers that belong to no single ring, the ring arrays, and DMA. PASSIVE_LEVEL unless its header
// says more.
#include "hostif/host_interface.h"

#include <cstring>

#include "hostif/ring_registers.h"
#include "include/locks.h"
#include "include/status.h"
#include "include/trace.h"

namespace {

constexpr std::size_t kLongestTransfer = 0x13F000;  // bytes
constexpr std::size_t kPageBytes = 0x1000;
constexpr ULONG kAlignmentOf8Bytes = 7;
constexpr ULONG kDmaAddressBits = 64;
constexpr ULONG kDmaVersion = 3;

using RingArray = PoolArray<USB4_RING*, USB4_HOST_INTERFACE::kRingArrayTag>;

constexpr std::uint32_t DwordsFor(std::uint32_t bits) {
  return (bits + 31) / 32;
}

volatile ULONG* RegisterAt(const USB4_HOST_INTERFACE& hostInterface, std::uint32_t offset) {
  return reinterpret_cast<volatile ULONG*>(static_cast<std::uint8_t*>(hostInterface.RegisterBase) + offset);
}

bool FragmentsTooLong(WDFDMAENABLER enabler, WDF_DMA_DIRECTION direction) {
  return WdfDmaEnablerGetFragmentLength(enabler, direction) / kPageBytes + 1 > kLongestTransfer;
}

}  // namespace

std::uint32_t ReadHostRegister(const USB4_HOST_INTERFACE& hostInterface, std::uint32_t offset) {
  return READ_REGISTER_ULONG(RegisterAt(hostInterface, offset));
}

void WriteHostRegister(const USB4_HOST_INTERFACE& hostInterface, std::uint32_t offset, std::uint32_t value) {
  WRITE_REGISTER_ULONG(RegisterAt(hostInterface, offset), value);
}

void ReadHopCount(USB4_HOST_INTERFACE& hostInterface) {
  hostInterface.HopCount = CapabilitiesWord::HopCount::Get(ReadHostRegister(hostInterface, kCapabilities));
}

void KivUsb4MaskInterrupts(const USB4_HOST_INTERFACE& hostInterface) {
  // Three bits a hop are read though two are used: the third group tells of errors, and stale ones must not linger.
  const std::uint32_t maskDwords = DwordsFor(hostInterface.HopCount * 2);
  const std::uint32_t statusDwords = DwordsFor(hostInterface.HopCount * 3);
  for (std::uint32_t i = 0; i < maskDwords; ++i) WriteHostRegister(hostInterface, kInterruptMaskBase + 4 * i, 0);
  for (std::uint32_t i = 0; i < statusDwords; ++i) {
    IgnoreResult(ReadHostRegister(hostInterface, kInterruptStatusBase + 4 * i));  // read to clear
  }
}

void ProgramThrottling(const USB4_HOST_INTERFACE& hostInterface) {
  for (std::uint32_t vector = 0; vector < kThrottlingCount; ++vector) {
    WriteHostRegister(hostInterface, kThrottlingBase + 4 * vector, kThrottlingInterval);
  }
}

NTSTATUS KivUsb4HostInterfaceRingAlloc(USB4_HOST_INTERFACE* hostInterface) {
  RingArray transmit(hostInterface->HopCount);
  RingArray receive(hostInterface->HopCount);
  if (!transmit || !receive) {
    TraceError("no memory for the ring arrays", "hops", hostInterface->HopCount);
    return kStatusNoResources;
  }
  const SpinLockGuard guard(hostInterface->HopLock);
  hostInterface->TransmitRings = transmit.Release();
  hostInterface->ReceiveRings = receive.Release();
  return kStatusOk;
}

void KivUsb4HostInterfaceRingFree(USB4_HOST_INTERFACE* hostInterface) {
  USB4_RING** transmit = nullptr;
  USB4_RING** receive = nullptr;
  {
    const SpinLockGuard guard(hostInterface->HopLock);
    transmit = std::exchange(hostInterface->TransmitRings.Change(), nullptr);
    receive = std::exchange(hostInterface->ReceiveRings.Change(), nullptr);
  }
  PoolDeleteArray(transmit, USB4_HOST_INTERFACE::kRingArrayTag);
  PoolDeleteArray(receive, USB4_HOST_INTERFACE::kRingArrayTag);
}

NTSTATUS KivUsb4InitializeDma(USB4_HOST_INTERFACE* hostInterface, WDFDMAENABLER* enabler) {
  WdfDeviceSetAlignmentRequirement(hostInterface->Device, kAlignmentOf8Bytes);
  WDF_DMA_ENABLER_CONFIG config;
  WDF_DMA_ENABLER_CONFIG_INIT(&config, WdfDmaProfilePacket64, kLongestTransfer);
  config.AddressWidthOverride = kDmaAddressBits;
  config.WdmDmaVersionOverride = kDmaVersion;
  NTSTATUS status = WdfDmaEnablerCreate(hostInterface->Device, &config, WDF_NO_OBJECT_ATTRIBUTES, enabler);
  if (!NT_SUCCESS(status)) {
    TraceError("no DMA enabler", "status", AsStatus(status));
    return status;
  }
  if (FragmentsTooLong(*enabler, WdfDmaDirectionReadFromDevice) &&
      FragmentsTooLong(*enabler, WdfDmaDirectionWriteToDevice)) {
    TraceError("DMA fragments too long");
    return kStatusNoResources;
  }
  return kStatusOk;
}

NTSTATUS CreateDmaBuffer(const USB4_HOST_INTERFACE& hostInterface, std::size_t bytes, DMA_BUFFER* buffer) {
  NTSTATUS status = WdfCommonBufferCreate(hostInterface.DmaEnabler, bytes, WDF_NO_OBJECT_ATTRIBUTES, &buffer->Handle);
  if (!NT_SUCCESS(status)) return status;
  buffer->Address = WdfCommonBufferGetAlignedVirtualAddress(buffer->Handle);
  buffer->BusAddress = static_cast<std::uint64_t>(WdfCommonBufferGetAlignedLogicalAddress(buffer->Handle).QuadPart);
  std::memset(buffer->Address, 0, bytes);
  return kStatusOk;
}
