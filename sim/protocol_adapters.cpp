// What the protocol adapters do by themselves.
#include "sim/protocol_adapters.h"

#include "sim/adapter.h"
#include "sim/fabric.h"
#include "sim/router.h"

namespace sim {
namespace {

constexpr platform::Time kMs = platform::kMillisecond;
constexpr DelayRange kUsb3Acknowledge{"sim.usb3.acknowledge", 1 * kMs, 1 * kMs / 10, 40 * kMs};
constexpr DelayRange kDpHandshake{"sim.dp.handshake", 2 * kMs, 1 * kMs / 10, 60 * kMs};
constexpr DelayRange kDpCapabilities{"sim.dp.capabilities", 7 * kMs, 5 * kMs, 10 * kMs};

constexpr std::uint32_t kUsb3Request = 1u << 31;         // dword 2
constexpr std::uint32_t kUsb3Acknowledged = 1u << 31;    // dword 1
constexpr std::uint32_t kDpHotPlugDetect = 1u << 6;      // dword 2
constexpr std::uint32_t kDpHandshakeBit = 1u << 25;      // dword 6
constexpr std::uint32_t kDpCapabilitiesRead = 1u << 31;  // dword 7
constexpr std::uint32_t kDpEnabled = 3u << 30;           // dword 0

// Runs `action` later unless the router has been reset meanwhile.
template <class Action>
void Later(Adapter& adapter, const DelayRange& range, const char* name, Action action) {
  Fabric& fabric = adapter.router().fabric();
  fabric.simulation().After(fabric.timing().Draw(range), name, [&adapter, life = adapter.router().life(), action] {
    if (adapter.router().life() == life) action();
  });
}

void WatchUsb3(Adapter& adapter) {
  const unsigned at = adapter.protocolCapability;
  adapter.space().OnWrite(at + 2, [&adapter, at](const ConfigSpace::Access& access) {
    if (((access.old ^ access.now) & kUsb3Request) == 0) return;
    if (adapter.router().fabric().simulation().faults().Fires("usb3.no-acknowledge")) return;
    Later(adapter, kUsb3Acknowledge, "USB3 acknowledge", [&adapter, at] {
      const bool asked = (adapter.space().Get(at + 2) & kUsb3Request) != 0;
      adapter.space().SetBits(at + 1, kUsb3Acknowledged, asked ? kUsb3Acknowledged : 0);
    });
  });
}

void WatchDisplayPort(Adapter& adapter) {
  const unsigned at = adapter.protocolCapability;
  adapter.space().OnWrite(at + 6, [&adapter, at](const ConfigSpace::Access& access) {
    if ((access.now & kDpHandshakeBit) == 0) return;
    if (adapter.router().fabric().simulation().faults().Fires("dp.no-handshake")) return;
    Later(adapter, kDpHandshake, "DP handshake",
          [&adapter, at] { adapter.space().SetBits(at + 6, kDpHandshakeBit, 0); });
  });
  if (adapter.type() != kTypeDpIn) return;
  adapter.space().OnWrite(at, [&adapter, at](const ConfigSpace::Access& access) {
    if ((access.now & kDpEnabled) == 0) {
      adapter.space().Set(at + 7, 0);
      return;
    }
    if ((access.old & kDpEnabled) != 0) return;
    if (adapter.router().fabric().simulation().faults().Fires("dp.no-capabilities")) return;
    Later(adapter, kDpCapabilities, "display capabilities", [&adapter, at] {
      if ((adapter.space().Get(at) & kDpEnabled) == 0) return;
      adapter.space().Set(at + 7, adapter.space().Get(at + 5) | kDpCapabilitiesRead);
    });
  });
}

}  // namespace

void WatchProtocolAdapter(Adapter& adapter) {
  if (adapter.protocolCapability == 0) return;
  if (adapter.type() == kTypeUsb3Down || adapter.type() == kTypeUsb3Up) WatchUsb3(adapter);
  if (adapter.type() == kTypeDpIn || adapter.type() == kTypeDpOut) WatchDisplayPort(adapter);
}

void ShowDisplay(Adapter& adapter, bool attached) {
  adapter.displayAttached = attached;
  RestoreDisplay(adapter);
}

void RestoreDisplay(Adapter& adapter) {
  if (adapter.type() != kTypeDpOut || adapter.protocolCapability == 0) return;
  const bool attached = adapter.displayAttached;
  adapter.space().SetBits(adapter.protocolCapability + 2, kDpHotPlugDetect, attached ? kDpHotPlugDetect : 0);
  adapter.SetPlugged(attached);
}

}  // namespace sim
