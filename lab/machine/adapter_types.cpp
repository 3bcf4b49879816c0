// Names of adapter types for people.
#include "lab/machine/domain_view.h"

namespace lab {

const char* AdapterTypeName(std::uint32_t type) {
  switch (type) {
    case 0x000000:
      return "inactive";
    case 0x000001:
      return "lane";
    case 0x000002:
      return "host interface";
    case 0x0E0101:
      return "DP IN";
    case 0x0E0102:
      return "DP OUT";
    case 0x100101:
      return "PCIe downstream";
    case 0x100102:
      return "PCIe upstream";
    case 0x200101:
      return "USB3 downstream";
    case 0x200102:
      return "USB3 upstream";
    default:
      return "unknown";
  }
}

}  // namespace lab
