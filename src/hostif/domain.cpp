// Allocates, adds and frees the domain, and takes its unsolicited packets.
#include "hostif/domain.h"

#include <cstring>

#include "hostif/control_channel.h"
#include "hostif/notifications.h"
#include "hostif/upcalls.h"
#include "include/config_space.h"
#include "include/device_context.h"
#include "include/trace.h"
#include "include/wait.h"

namespace {

constexpr std::uint8_t kNetworkDirectoryUuid[16] = {0xc6, 0x61, 0x89, 0xca, 0x1c, 0xce, 0x41, 0x95,
                                                    0xbd, 0xb8, 0x49, 0x59, 0x2e, 0x5f, 0x5a, 0x4f};

void SetGenericWorkReady(USB4_DOMAIN* domain, bool ready) {
  DEVICE_EXTENSION* context = ContextOf(domain);
  if (context != nullptr) context->GenericWorkReady.Set(ready);
}

}  // namespace

USB4_DOMAIN* KivUSB4DomainAlloc(USB4_HOST_INTERFACE* hostInterface, std::uint32_t kind) {
  USB4_DOMAIN* domain = PoolNew<USB4_DOMAIN>();
  if (domain == nullptr) {
    TraceError("no memory for the domain");
    return nullptr;
  }
  domain->HostInterface = hostInterface;
  domain->Kind = kind;
  InitializeListHead(&domain->TunnelListHead);
  InitializeListHead(&domain->OrphanTunnelListHead);
  InitializeListHead(&domain->DpResourceListHead);
  InitializeListHead(&domain->DeviceListHead);
  std::memcpy(domain->NetworkDirectoryUuid, kNetworkDirectoryUuid, sizeof kNetworkDirectoryUuid);
  InitialiseAutoResetEvent(domain->BusEvent);
  InitialiseManualResetEvent(domain->Aborted);
  domain->TopologyLock.Initialise();
  domain->RunLock.Initialise();
  domain->PathLock.Initialise();
  TraceInfo("domain allocated", "kind", kind);
  return domain;
}

NTSTATUS KivUSB4DomainAdd(USB4_DOMAIN* domain) {
  // Stored before it starts: interrupt handlers find the channel through the domain.
  domain->ControlChannel = KivUSB4CtlAlloc(domain->HostInterface, USB4DomainEventCallback, domain);
  if (domain->ControlChannel == nullptr) return kStatusNotAllocated;
  StartControlChannel(domain);
  StartBus(domain, false);
  return kStatusOk;
}

void KivUSB4DomainFree(USB4_DOMAIN* domain) {
  if (domain == nullptr) return;
  PoolDeleteArray(domain->ComputerName, USB4_DOMAIN::kComputerNameTag);
  PoolDelete(domain);
  TraceInfo("domain released");
}

void StartControlChannel(USB4_DOMAIN* domain) {
  KivUsb4CtlStart(domain->ControlChannel);
  SetGenericWorkReady(domain, true);
}

void StopControlChannel(USB4_DOMAIN* domain) {
  SetGenericWorkReady(domain, false);
  KivUsb4CtlStop(domain->ControlChannel);
}

void StartBus(USB4_DOMAIN* domain, bool resuming) {
  if (KivUsb4BusStart(domain, resuming) == kKivOk) return;
  TraceError("the bus did not start", "resuming", resuming);
  SetEvent(domain->BusEvent);
}

bool USB4DomainEventCallback(void* context, std::uint32_t pdf, const std::uint32_t* packet, std::uint32_t bytes) {
  auto* domain = static_cast<USB4_DOMAIN*>(context);
  if (pdf == USB4_PDF_XDOMAIN_REQUEST || pdf == USB4_PDF_XDOMAIN_RESPONSE) {
    return KivUsb4XdomainHandleRequest(domain, pdf, packet, bytes);
  }
  KivUsb4HandleEvent(domain, pdf, packet, bytes);
  return true;
}
