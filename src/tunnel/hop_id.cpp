// The two maps of hop IDs in use that each adapter record holds.
#include "tunnel/hop_id.h"

namespace {

constexpr std::int32_t kFirstFreeHopId = 8;  // those below are reserved by the protocol
constexpr std::int32_t kLastMappedHopId = static_cast<std::int32_t>(kHopIdCount) - 1;

std::int32_t HardwareMaximum(const USB4_PORT* adapter, bool input) {
  const AdpCs5::Value cs5(adapter->Header[AdpCs5::kOffset]);
  return static_cast<std::int32_t>(input ? cs5.Get<AdpCs5::MaximumInputHop>() : cs5.Get<AdpCs5::MaximumOutputHop>());
}

void Release(Guarded<USB4_HOP_MAP, By<LockPlace::Path>>& map, std::uint32_t hopId) {
  if (hopId < kHopIdCount) map.Change().InUse[hopId] = 0;
}

}  // namespace

std::int32_t KivUsb4PortAllocHopid(USB4_PORT* adapter, bool input, USB4_HOP_ID_RANGE range) {
  USB4_HOP_MAP& map = (input ? adapter->InputHops : adapter->OutputHops).Change();
  const std::int32_t hardwareMaximum = HardwareMaximum(adapter, input);
  const std::int32_t floor = adapter->Type() == USB4_ADAPTER_HOST_INTERFACE ? 0 : kFirstFreeHopId;
  const std::int32_t lowest = range.Lowest < floor ? floor : range.Lowest;
  std::int32_t highest = range.Highest;
  if (highest < 0 || highest > hardwareMaximum) highest = hardwareMaximum;
  // An adapter may have more hop IDs than the map.
  if (highest > kLastMappedHopId) highest = kLastMappedHopId;
  for (std::int32_t hopId = lowest; hopId <= highest; ++hopId) {
    if (map.InUse[hopId] != 0) continue;
    map.InUse[hopId] = 1;
    return hopId;
  }
  return kNoHopId;
}

std::int32_t KivUsb4PortAllocInHopid(USB4_PORT* adapter, USB4_HOP_ID_RANGE range) {
  return KivUsb4PortAllocHopid(adapter, true, range);
}

std::int32_t KivUsb4PortAllocOutHopid(USB4_PORT* adapter, USB4_HOP_ID_RANGE range) {
  return KivUsb4PortAllocHopid(adapter, false, range);
}

void KivUsb4PortReleaseInHopid(USB4_PORT* adapter, std::uint32_t hopId) {
  Release(adapter->InputHops, hopId);
}

void KivUsb4PortReleaseOutHopid(USB4_PORT* adapter, std::uint32_t hopId) {
  Release(adapter->OutputHops, hopId);
}
