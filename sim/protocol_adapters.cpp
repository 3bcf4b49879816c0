// What the protocol adapters do by themselves, by adapter type.
#include "sim/protocol_adapters.h"

#include <utility>

#include "sim/adapter.h"
#include "sim/fabric.h"
#include "sim/router.h"

namespace sim {

void WatchProtocolAdapter(Adapter& adapter) {
  if (adapter.protocolCapability == 0) return;
  if (adapter.isUsb3()) WatchUsb3(adapter);
  if (adapter.isDisplayPort()) WatchDisplayPort(adapter);
}

void RestoreProtocolAdapter(Adapter& adapter) {
  if (adapter.protocolCapability == 0) return;
  if (adapter.isUsb3()) RestoreUsb3(adapter);
  if (adapter.isDisplayPort()) RestoreDisplayPort(adapter);
}

bool SwitchedOn(const Adapter& adapter) {
  if (adapter.protocolCapability == 0) return false;
  const std::uint32_t enables = adapter.isDisplayPort() ? 3u << 30 : 1u << 31;
  return (adapter.space().Get(adapter.protocolCapability) & enables) != 0;
}

void Later(Adapter& adapter, platform::Time delay, const char* name, std::function<void()> action) {
  Fabric& fabric = adapter.router().fabric();
  fabric.simulation().After(delay, name, [&adapter, life = adapter.router().life(), action = std::move(action)] {
    if (adapter.router().life() == life) action();
  });
}

}  // namespace sim
