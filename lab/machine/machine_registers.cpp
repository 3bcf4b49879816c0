// Registers of a whole domain, read the way the driver reads them: over ring 0, under the run lock, with its own access
// functions.
#include <ntddk.h>

#include <wdf.h>

#include "include/device_context.h"
#include "include/domain_record.h"
#include "include/locks.h"
#include "include/router_record.h"
#include "lab/machine/machine.h"
#include "lab/machine/register_table.h"
#include "topology/device_list.h"
#include "topology/router_access.h"

namespace lab {
namespace {

template <class Owner>
void Read(Owner* owner, RegisterBlockKind kind, std::uint32_t base, std::vector<RegisterView>& registers) {
  constexpr bool router = std::is_same_v<std::remove_const_t<Owner>, USB4_SWITCH>;
  for (const RegisterRow& row : RegistersOf(kind)) {
    RegisterView view{std::string(row.name), base + row.offset, std::nullopt, {}};
    std::uint32_t word = 0;
    const USB4_CFG_SPACE space = router ? USB4_CFG_SPACE_ROUTER : USB4_CFG_SPACE_ADAPTER;
    if (register_access::Read(owner, &word, {space, base + row.offset, 1}) == kKivOk) {
      view.word = word;
      for (const FieldRow& field : row.fields) view.fields.emplace_back(field.name, field.get(word));
    }
    registers.push_back(std::move(view));
  }
}

template <class Owner>
void ReadCapability(Owner* owner, RegisterBlockKind kind, std::uint32_t offset, std::vector<RegisterView>& registers) {
  if (CapabilityFound(offset)) Read(owner, kind, offset, registers);
}

void ReadAdapter(const USB4_PORT& adapter, AdapterView& view) {
  if (adapter.Disabled != 0) return;
  std::vector<RegisterView>& registers = view.registers;
  Read(&adapter, RegisterBlockKind::AdapterSpace, 0, registers);
  ReadCapability(&adapter, RegisterBlockKind::Lane, adapter.LaneCapability, registers);
  ReadCapability(&adapter, RegisterBlockKind::AdapterTmu, adapter.TmuCapability, registers);
  ReadCapability(&adapter, RegisterBlockKind::Usb4Port, adapter.Usb4PortCapability, registers);
  switch (adapter.Type()) {
    case USB4_ADAPTER_PCIE_DOWNSTREAM:
    case USB4_ADAPTER_PCIE_UPSTREAM:
      return ReadCapability(&adapter, RegisterBlockKind::PcieAdapter, adapter.ProtocolCapability, registers);
    case USB4_ADAPTER_USB3_DOWNSTREAM:
    case USB4_ADAPTER_USB3_UPSTREAM:
      return ReadCapability(&adapter, RegisterBlockKind::Usb3Adapter, adapter.ProtocolCapability, registers);
    case USB4_ADAPTER_DP_IN:
    case USB4_ADAPTER_DP_OUT:
      return ReadCapability(&adapter, RegisterBlockKind::DpAdapter, adapter.ProtocolCapability, registers);
    default:
      return;
  }
}

void ReadRouter(const USB4_SWITCH& router, RouterView& view) {
  Read(&router, RegisterBlockKind::RouterSpace, 0, view.registers);
  ReadCapability(&router, RegisterBlockKind::RouterTmu, router.TmuCapability, view.registers);
  ReadCapability(&router, RegisterBlockKind::PlugEvents, router.PlugEventsCapability, view.registers);
  ReadCapability(&router, RegisterBlockKind::LinkController, router.LinkControllerCapability, view.registers);
  for (AdapterView& adapter : view.adapters) {
    if (adapter.number <= router.MaximumAdapter()) ReadAdapter(router.Adapters[adapter.number], adapter);
  }
}

}  // namespace

void Machine::ReadRegisters(Place place, DomainView& view) {
  InDriver(place, [&](DEVICE_EXTENSION& context) {
    USB4_DOMAIN* domain = context.Domain;
    if (domain == nullptr) return;
    const MutexGuard guard(domain->RunLock);
    for (RouterView& router : view.routers) {
      const RouterReference known = KivUsb4DomainGetSwitch(domain, router.route);
      if (known) ReadRouter(*known, router);
    }
  });
}

}  // namespace lab
