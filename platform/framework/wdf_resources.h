// The resource lists that prepare and release hardware get: raw and translated, one descriptor per resource.
#pragma once
#include "platform/framework/wdf_object.h"

namespace platform {

constexpr ULONG FirstVector = 0x60;

class ResourceList final : public Object {
 public:
  static constexpr ObjectType kType = ObjectType::ResourceList;
  enum class Form { Raw, Translated };
  ResourceList(HostKernel& kernel, const std::vector<Resource>& resources, Form form);

  // Null for an index past the end, and for a resource that the bus says nothing about.
  PCM_PARTIAL_RESOURCE_DESCRIPTOR Descriptor(std::size_t index);
  std::size_t size() const { return descriptors_.size(); }
  // The index of one of this list's own descriptors; size() for a foreign one.
  std::size_t IndexOf(const CM_PARTIAL_RESOURCE_DESCRIPTOR* descriptor) const;

 private:
  std::vector<CM_PARTIAL_RESOURCE_DESCRIPTOR> descriptors_;
};

}  // namespace platform
