#include "platform/framework/wdf_dma.h"

#include "platform/framework/wdf_device.h"

namespace platform {

// A buffer that its driver has lost goes with its enabler on a real system too, unnoticed. Here it is reported: whoever
// deletes the enabler has finished with DMA and can have no buffer left.
void DmaEnabler::CheckDelete(KernelCall& call) {
  if (liveBuffers == 0) return;
  call.Report(Rule::CommonBufferLeak, std::to_string(liveBuffers) + " common buffers outlive their DMA enabler",
              liveBuffers);
}

// At the last reference, not at the deletion: who holds a reference may still use the memory.
void CommonBuffer::Destroyed() {
  --enabler.liveBuffers;
  if (!kernel().dmaMemory().Free(buffer)) {
    kernel().simulation().Report(Rule::PoolOverrun, "bytes behind a common buffer were overwritten");
  }
}

}  // namespace platform

using namespace platform;

NTSTATUS WdfDmaEnablerCreate(WDFDEVICE Device, PWDF_DMA_ENABLER_CONFIG Config, PWDF_OBJECT_ATTRIBUTES Attributes,
                             WDFDMAENABLER* DmaEnablerHandle) {
  KernelCall call("WdfDmaEnablerCreate", PASSIVE_LEVEL);
  platform::Device& device = Resolve<platform::Device>(call, Device);
  RequireArgument(call, Config->Size == sizeof(WDF_DMA_ENABLER_CONFIG), "WDF_DMA_ENABLER_CONFIG.Size");
  RequireArgument(call, Config->MaximumLength != 0, "a maximum length of 0");
  RequireModelled(call, Config->Profile == WdfDmaProfilePacket || Config->Profile == WdfDmaProfilePacket64,
                  "a DMA profile that gathers");
  RequireModelled(call,
                  !Config->EvtDmaEnablerFill && !Config->EvtDmaEnablerFlush && !Config->EvtDmaEnablerDisable &&
                      !Config->EvtDmaEnablerEnable && !Config->EvtDmaEnablerSelfManagedIoStart &&
                      !Config->EvtDmaEnablerSelfManagedIoStop,
                  "callbacks of a DMA enabler");
  RequireArgument(call, Config->AddressWidthOverride == 0 || Config->WdmDmaVersionOverride == 3,
                  "an address width override needs DMA version 3");
  RequireModelled(call, Config->AddressWidthOverride == 0 || Config->AddressWidthOverride == 64,
                  "an address width other than 64");
  RequireModelled(call, Config->Flags == 0, "flags of a DMA enabler");
  const ObjectOptions options = ReadAttributes(call, Attributes, &device);
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  auto enabler = std::make_unique<DmaEnabler>(call.kernel(), *Config);
  *DmaEnablerHandle = call.kernel().objects().Add(std::move(enabler), options).Handle<WDFDMAENABLER>();
  return STATUS_SUCCESS;
}

// A 64-bit function behind no translation: one fragment takes the whole transfer. The fault site answers with a length
// without bound, as a system does that has no limit to state.
size_t WdfDmaEnablerGetFragmentLength(WDFDMAENABLER DmaEnabler, WDF_DMA_DIRECTION DmaDirection) {
  KernelCall call("WdfDmaEnablerGetFragmentLength", DISPATCH_LEVEL);
  RequireArgument(call, DmaDirection == WdfDmaDirectionReadFromDevice || DmaDirection == WdfDmaDirectionWriteToDevice,
                  "this DMA direction");
  platform::DmaEnabler& enabler = Resolve<platform::DmaEnabler>(call, DmaEnabler);
  return call.Fails() ? ~size_t{0} : enabler.config.MaximumLength;
}

NTSTATUS WdfCommonBufferCreate(WDFDMAENABLER DmaEnabler, size_t Length, PWDF_OBJECT_ATTRIBUTES Attributes,
                               WDFCOMMONBUFFER* CommonBuffer) {
  KernelCall call("WdfCommonBufferCreate", PASSIVE_LEVEL);
  platform::DmaEnabler& enabler = Resolve<platform::DmaEnabler>(call, DmaEnabler);
  RequireArgument(call, Length != 0, "a common buffer of no bytes");
  RequireArgument(call, !Attributes || !Attributes->ParentObject, "a common buffer's parent is its DMA enabler");
  const ObjectOptions options = ReadAttributes(call, Attributes, &enabler);
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  const DmaMemory::Buffer buffer = call.kernel().dmaMemory().Allocate(Length);
  if (buffer.memory == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
  ++enabler.liveBuffers;
  auto object = std::make_unique<platform::CommonBuffer>(enabler, buffer);
  *CommonBuffer = call.kernel().objects().Add(std::move(object), options).Handle<WDFCOMMONBUFFER>();
  return STATUS_SUCCESS;
}

PVOID WdfCommonBufferGetAlignedVirtualAddress(WDFCOMMONBUFFER CommonBuffer) {
  KernelCall call("WdfCommonBufferGetAlignedVirtualAddress", DISPATCH_LEVEL);
  return Resolve<platform::CommonBuffer>(call, CommonBuffer).buffer.memory;
}

PHYSICAL_ADDRESS WdfCommonBufferGetAlignedLogicalAddress(WDFCOMMONBUFFER CommonBuffer) {
  KernelCall call("WdfCommonBufferGetAlignedLogicalAddress", DISPATCH_LEVEL);
  PHYSICAL_ADDRESS address;
  address.QuadPart = static_cast<LONGLONG>(Resolve<platform::CommonBuffer>(call, CommonBuffer).buffer.busAddress);
  return address;
}
