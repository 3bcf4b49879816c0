// What the protocol adapters do by themselves, by adapter type.
#include "sim/dataplane/protocol_adapters.h"

#include <utility>

#include "sim/dataplane/display_adapter.h"
#include "sim/dataplane/usb3_function.h"
#include "sim/registers/hop_entry.h"
#include "sim/router/adapter.h"
#include "sim/router/router.h"

namespace sim {
namespace {

std::uint32_t Switches(const Adapter& adapter) {
  return adapter.isDisplayPort() ? 3u << 30 : 1u << 31;
}

bool APathBeginsAt(const Adapter& adapter) {
  for (unsigned hop = kFirstPathHop; hop <= adapter.model().hop; ++hop) {
    if (adapter.pathEntry(hop).valid()) return true;
  }
  return false;
}

}  // namespace

void CheckSwitchedOn(Adapter& adapter, const ConfigSpace::Access& access) {
  const std::uint32_t switches = Switches(adapter);
  if ((access.old & switches) != 0 || (access.now & switches) == 0 || APathBeginsAt(adapter)) return;
  Router& router = adapter.router();
  if (!router.fabric().simulation().faults().Fired()) router.Misuse(adapter.number(), Complaint::NoPathYet);
}

void WatchProtocolAdapter(Adapter& adapter) {
  if (adapter.protocolCapability == 0) return;
  if (!adapter.isDisplayPort()) {
    adapter.space().OnWrite(adapter.protocolCapability,
                            [&adapter](const ConfigSpace::Access& access) { CheckSwitchedOn(adapter, access); });
  }
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
  return (adapter.space().Get(adapter.protocolCapability) & Switches(adapter)) != 0;
}

void Later(Adapter& adapter, platform::Time delay, const char* name, std::function<void()> action) {
  Surroundings& fabric = adapter.router().fabric();
  fabric.simulation().After(delay, name, [&adapter, life = adapter.router().life(), action = std::move(action)] {
    if (adapter.router().life() == life) action();
  });
}

}  // namespace sim
