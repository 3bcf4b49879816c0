// Hardware release, also after a preparation or a start that failed half-way. PASSIVE_LEVEL, interrupts disconnected.
#include "driver/release_hardware.h"

#include <utility>

#include "driver/hardware_resources.h"
#include "hostif/abort.h"
#include "hostif/control_channel.h"
#include "hostif/domain.h"
#include "hostif/host_interface.h"
#include "hostif/power.h"
#include "hostif/work_items.h"
#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"
#include "xdomain/host_properties.h"
#include "xdomain/request_handler.h"

namespace {

// While a work item runs, it may still want the channel and the domain. What it waits for is not worth the time.
void EndWork(DEVICE_EXTENSION* context) {
  const PowerDownScope powerDown(*context->Domain);
  AbortOtherFlows(*context->Domain);
  DeleteSharedWorkItems(context);
}

void TearDownDomain(DEVICE_EXTENSION* context) {
  USB4_DOMAIN* domain = context->Domain;
  context->GenericWorkReady.Set(false);
  EndWork(context);
  // A domain with tunnels has kept the device awake until now; the next preparation builds a domain that knows nothing
  // of it.
  GiveBackPowerReference(domain);
  if (domain->ControlChannel != nullptr) KivUsb4CtlStop(domain->ControlChannel);
  DropPeerRequests(context);
  const USB4_HOST_INTERFACE* hostInterface = context->HostInterface;
  if (hostInterface->RegisterBase != nullptr) KivUsb4MaskInterrupts(*hostInterface);
  KivUSB4CtlFree(std::exchange(domain->ControlChannel, nullptr));
  context->Domain = nullptr;
  KivUSB4DomainFree(domain);
}

void FreeHostInterface(DEVICE_EXTENSION* context) {
  USB4_HOST_INTERFACE* hostInterface = std::exchange(context->HostInterface, nullptr);
  if (hostInterface == nullptr) return;
  KivUsb4XdomainExit(hostInterface);
  KivUsb4HostInterfaceRingFree(hostInterface);
  if (hostInterface->DmaEnabler != nullptr) WdfObjectDelete(hostInterface->DmaEnabler);
  UnmapBar0(hostInterface);
  PoolDelete(hostInterface);
}

}  // namespace

NTSTATUS USB4EvtDeviceReleaseHardware(WDFDEVICE device, WDFCMRESLIST) {
  DEVICE_EXTENSION* context = DeviceContextOf(device);
  if (context == nullptr) return kStatusNoContextInRelease;
  if (context->Domain != nullptr) TearDownDomain(context);
  FreeHostInterface(context);
  TraceInfo("hardware released");
  return kStatusOk;
}
