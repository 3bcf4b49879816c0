#include "platform/framework/wdf_resources.h"

namespace platform {
namespace {

constexpr UCHAR kMissing = 0xFF;  // no published resource type; such a descriptor is never handed out

void DescribeInterrupt(const Resource& resource, ResourceList::Form form, CM_PARTIAL_RESOURCE_DESCRIPTOR& descriptor) {
  descriptor.Type = CmResourceTypeInterrupt;
  descriptor.Flags = CM_RESOURCE_INTERRUPT_LATCHED | CM_RESOURCE_INTERRUPT_MESSAGE;
  const ULONG vector = FirstVector + resource.message;
  if (form == ResourceList::Form::Raw) {
    descriptor.u.MessageInterrupt.Raw.MessageCount = 1;
    descriptor.u.MessageInterrupt.Raw.Vector = vector;
    descriptor.u.MessageInterrupt.Raw.Affinity = 1;
  } else {
    descriptor.u.MessageInterrupt.Translated.Level = 5;
    descriptor.u.MessageInterrupt.Translated.Vector = vector;
    descriptor.u.MessageInterrupt.Translated.Affinity = 1;
  }
}

CM_PARTIAL_RESOURCE_DESCRIPTOR Describe(const Resource& resource, ResourceList::Form form) {
  CM_PARTIAL_RESOURCE_DESCRIPTOR descriptor{};
  switch (resource.kind) {
    case Resource::Kind::Interrupt:
      DescribeInterrupt(resource, form, descriptor);
      break;
    case Resource::Kind::Memory:
      descriptor.Type = CmResourceTypeMemory;
      descriptor.u.Memory.Start.QuadPart = static_cast<LONGLONG>(resource.start);
      descriptor.u.Memory.Length = resource.length;
      break;
    case Resource::Kind::Other:
      descriptor.Type = CmResourceTypeDevicePrivate;
      break;
    case Resource::Kind::Missing:
      descriptor.Type = kMissing;
      break;
  }
  return descriptor;
}

}  // namespace

ResourceList::ResourceList(HostKernel& kernel, const std::vector<Resource>& resources, Form form)
    : Object(kernel, kType) {
  for (const Resource& resource : resources) descriptors_.push_back(Describe(resource, form));
}

PCM_PARTIAL_RESOURCE_DESCRIPTOR ResourceList::Descriptor(std::size_t index) {
  if (index >= descriptors_.size() || descriptors_[index].Type == kMissing) return nullptr;
  return &descriptors_[index];
}

std::size_t ResourceList::IndexOf(const CM_PARTIAL_RESOURCE_DESCRIPTOR* descriptor) const {
  for (std::size_t index = 0; index < descriptors_.size(); ++index) {
    if (&descriptors_[index] == descriptor) return index;
  }
  return descriptors_.size();
}

}  // namespace platform

using namespace platform;

ULONG WdfCmResourceListGetCount(WDFCMRESLIST List) {
  KernelCall call("WdfCmResourceListGetCount", DISPATCH_LEVEL);
  return static_cast<ULONG>(Resolve<ResourceList>(call, List).size());
}

PCM_PARTIAL_RESOURCE_DESCRIPTOR WdfCmResourceListGetDescriptor(WDFCMRESLIST List, ULONG Index) {
  KernelCall call("WdfCmResourceListGetDescriptor", DISPATCH_LEVEL);
  return Resolve<ResourceList>(call, List).Descriptor(Index);
}
