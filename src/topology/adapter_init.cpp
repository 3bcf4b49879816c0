// Reading an adapter's header and capabilities, and pairing lanes by default.
#include "topology/adapter_init.h"

#include "include/device_context.h"
#include "include/trace.h"
#include "topology/capabilities.h"
#include "topology/router_access.h"
#include "topology/router_queries.h"

namespace {

// Leaves 0, which means none, when the search finds nothing.
void StoreOffset(const USB4_PORT* adapter, std::uint32_t id, std::uint32_t& offset) {
  const CAPABILITY_OFFSET found = KivUsb4PortFindCap(adapter, id);
  if (found > 0) offset = static_cast<std::uint32_t>(found);
}

void FindAdapterCapabilities(USB4_PORT* adapter) {
  if (KivUsb4PortIsLane(adapter)) {
    StoreOffset(adapter, kAdapterCapabilityLane, adapter->LaneCapability);
    StoreOffset(adapter, kAdapterCapabilityUsb4Port, adapter->Usb4PortCapability);
  } else {
    StoreOffset(adapter, kAdapterCapabilityProtocol, adapter->ProtocolCapability);
  }
}

// The second controller of a machine marks its DP IN adapters.
void ClaimDpIn(const USB4_PORT* adapter) {
  const USB4_SWITCH* router = adapter->Router;
  if (!IsHostRouter(router) || adapter->Type() != USB4_ADAPTER_DP_IN) return;
  const std::uint32_t controller = ControllerIndexOf(router->Domain->HostInterface);
  if (controller != kSecondController) return;
  DpAdpCs2::Value cs2;
  if (ReadRegister<DpAdpCs2>(adapter, adapter->ProtocolCapability, cs2) == kKivOk) {
    cs2.Set<DpAdpCs2::Configuration>(cs2.Get<DpAdpCs2::Configuration>() | controller);
  }
  // Also after a failed read, and without a look at the outcome: the adapter then keeps serving the first controller.
  IgnoreResult(WriteRegister<DpAdpCs2>(adapter, adapter->ProtocolCapability, cs2));
}

// Diagnostics do without a text that could not be allocated.
void AllocateTexts(USB4_PORT* adapter) {
  USB4_PATH_TEXT** const texts[] = {&adapter->RegistersText, &adapter->PathsText, &adapter->CountersText};
  for (USB4_PATH_TEXT** text : texts) {
    *text = PoolNew<USB4_PATH_TEXT>();
    if (*text == nullptr) {
      TraceErrorBy(NAME_OF(KivUsb4InitPort), "no memory for a diagnostics text", "adapter", AsAdapter(adapter));
    }
  }
}

bool NamesOther(const USB4_PORT* adapter, const USB4_PORT* partner) {
  return adapter->DualLinkPartner != nullptr && adapter->DualLinkPartner != partner;
}

// Whether the DROM makes a pair of `adapter` and the partner that its entry names: two lane adapters, one of them the
// second, and no entry puts either of them into another pair. The partner's entry may be silent about the pair, or
// missing.
bool NamesWholePair(const USB4_PORT* adapter) {
  const USB4_PORT* partner = adapter->DualLinkPartner;
  if (partner == adapter || !KivUsb4PortIsLane(adapter) || !KivUsb4PortIsLane(partner)) return false;
  if (NamesOther(partner, adapter)) return false;
  for (const USB4_PORT& other : AdaptersOf(adapter->Router)) {
    if (&other == adapter || &other == partner) continue;
    if (other.DualLinkPartner == adapter || other.DualLinkPartner == partner) return false;
  }
  return !partner->HasLaneEntry() || partner->IsSecondLane() != adapter->IsSecondLane();
}

void Pair(USB4_PORT* first, USB4_PORT* second) {
  first->DualLinkPartner = second;
  first->Flags &= static_cast<std::uint8_t>(~kPortSecondLane);
  second->DualLinkPartner = first;
  second->Flags |= kPortSecondLane;
}

// All pairs are judged before the first one is changed, so that the order of the adapters decides nothing. A link of
// which one adapter leads up and the other down would send every walk over the topology in a circle.
void SettleNamedPairs(USB4_SWITCH* router) {
  std::uint64_t whole = 0;  // by adapter number, of those whose entries name a whole pair
  for (const USB4_PORT& adapter : AdaptersOf(router)) {
    if (adapter.DualLinkPartner == nullptr) continue;
    if (NamesWholePair(&adapter)) {
      whole |= std::uint64_t{1} << adapter.Number;
    } else {
      TraceErrorBy(NAME_OF(KivUsb4SwitchDefaultLinkPorts), "no partner by the DROM", "adapter", AsAdapter(&adapter));
    }
  }
  const auto isWhole = [whole](const USB4_PORT& adapter) { return (whole >> adapter.Number & 1) != 0; };
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (!isWhole(adapter)) adapter.DualLinkPartner = nullptr;
  }
  for (USB4_PORT& adapter : AdaptersOf(router)) {
    if (!isWhole(adapter)) continue;
    USB4_PORT* partner = adapter.DualLinkPartner;
    adapter.IsSecondLane() ? Pair(partner, &adapter) : Pair(&adapter, partner);
  }
}

}  // namespace

KIV_RESULT KivUsb4InitPort(USB4_PORT* adapter) {
  InitializeListHead(&adapter->DpResourceLink);
  if (adapter->Number == 0) return kKivOk;
  const KIV_RESULT result =
      KivUsb4PortRead(adapter, adapter->Header, {USB4_CFG_SPACE_ADAPTER, 0, kAdapterHeaderDwords});
  if (result == kKivFailed) {
    // An adapter that is not there, or a router that has just gone: neither ends the enumeration.
    TraceWarning("adapter cannot be read", "adapter", AsAdapter(adapter));
    adapter->Disabled = 1;
    return kKivOk;
  }
  if (result != kKivOk) return result;
  FindAdapterCapabilities(adapter);
  ClaimDpIn(adapter);
  for (void*& slot : adapter->Slots) slot = nullptr;
  AllocateTexts(adapter);
  return kKivOk;
}

void KivUsb4SwitchDefaultLinkPorts(USB4_SWITCH* router) {
  SettleNamedPairs(router);
  for (std::uint32_t number = 1; number < router->MaximumAdapter(); ++number) {
    USB4_PORT* first = &router->Adapters[number];
    USB4_PORT* second = first + 1;
    if (!KivUsb4PortIsLane(first) || !KivUsb4PortIsLane(second)) continue;
    if (first->DualLinkPartner == nullptr && second->DualLinkPartner == nullptr) Pair(first, second);
  }
}
