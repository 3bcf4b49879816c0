// Names of adapter types for people.
#include "include/registers.h"
#include "lab/machine/domain_view.h"

namespace lab {

const char* AdapterTypeName(std::uint32_t type) {
  switch (type) {
    case USB4_ADAPTER_INACTIVE:
      return "inactive";
    case USB4_ADAPTER_LANE:
      return "lane";
    case USB4_ADAPTER_HOST_INTERFACE:
      return "host interface";
    case USB4_ADAPTER_DP_IN:
      return "DP IN";
    case USB4_ADAPTER_DP_OUT:
      return "DP OUT";
    case USB4_ADAPTER_PCIE_DOWNSTREAM:
      return "PCIe downstream";
    case USB4_ADAPTER_PCIE_UPSTREAM:
      return "PCIe upstream";
    case USB4_ADAPTER_USB3_DOWNSTREAM:
      return "USB3 downstream";
    case USB4_ADAPTER_USB3_UPSTREAM:
      return "USB3 upstream";
    default:
      return "unknown";
  }
}

}  // namespace lab
