// DMA enablers and the common buffers below them.
#pragma once
#include "platform/framework/wdf_object.h"
#include "platform/memory/dma_memory.h"

namespace platform {

class DmaEnabler final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::DmaEnabler;
  DmaEnabler(HostKernel& owner, const WDF_DMA_ENABLER_CONFIG& asked) : Object(owner, kType), config(asked) {}
  void CheckDelete(KernelCall& call) override;

  const WDF_DMA_ENABLER_CONFIG config;
  std::int64_t liveBuffers = 0;
};

class CommonBuffer final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::CommonBuffer;
  CommonBuffer(DmaEnabler& owner, const DmaMemory::Buffer& memory)
      : Object(owner.kernel(), kType), enabler(owner), buffer(memory) {}
  void Destroyed() override;

  DmaEnabler& enabler;
  const DmaMemory::Buffer buffer;
};

}  // namespace platform
