#include "platform/kernel/request_packet.h"

#include <algorithm>
#include <new>

#include "platform/host/host_kernel.h"
#include "platform/kernel/dispatcher_object.h"
#include "platform/kernel/kernel_state.h"
#include "platform/memory/kernel_pool.h"

namespace platform {

// The stack locations stand behind the packet; the current one is at first past the last.
IRP* IoRequests::Build(KernelCall& call, CCHAR stackSize) {
  const std::size_t locations = static_cast<std::size_t>(stackSize);
  void* memory = call.kernel().pool().AllocateInternal(sizeof(IRP) + locations * sizeof(IO_STACK_LOCATION));
  IRP* request = static_cast<IRP*>(memory);
  request->StackCount = stackSize;
  request->CurrentLocation = static_cast<CHAR>(stackSize + 1);
  request->Tail.Overlay.CurrentStackLocation = reinterpret_cast<IO_STACK_LOCATION*>(request + 1) + locations;
  live_.push_back(request);
  return request;
}

bool IoRequests::Known(const IRP* request) const {
  return std::find(live_.begin(), live_.end(), request) != live_.end();
}

void IoRequests::Free(KernelCall& call, IRP* request) {
  std::erase(live_, request);
  call.kernel().pool().FreeInternal(request);
}

NTSTATUS CompleteIoRequest(KernelCall& call, IRP& request, NTSTATUS status, ULONG_PTR information) {
  request.UserIosb->Status = status;
  request.UserIosb->Information = information;
  KEVENT* event = request.UserEvent;
  call.kernel().state().ioRequests.Free(call, &request);
  KeSetEvent(event, IO_NO_INCREMENT, FALSE);
  return status;
}

}  // namespace platform

using namespace platform;

// PASSIVE_LEVEL. A PnP packet only: it has no buffer and no offset. Null when there is no memory. The packet belongs to
// the sender until it is sent, and frees itself when it is completed.
PIRP IoBuildSynchronousFsdRequest(ULONG MajorFunction, PDEVICE_OBJECT DeviceObject, PVOID Buffer, ULONG Length,
                                  PLARGE_INTEGER StartingOffset, PKEVENT Event, PIO_STATUS_BLOCK IoStatusBlock) {
  KernelCall call("IoBuildSynchronousFsdRequest", PASSIVE_LEVEL);
  if (MajorFunction != IRP_MJ_PNP || Buffer || Length != 0 || StartingOffset) {
    call.Report(Rule::NotModelled, "a packet other than a PnP one");
    return nullptr;
  }
  if (!DeviceObject || !IoStatusBlock) {
    call.Report(Rule::InvalidArgument, "no device object or no status block");
    return nullptr;
  }
  if (!CheckEvent(call, &Event->Header) || call.Fails()) return nullptr;
  IRP* request = call.kernel().state().ioRequests.Build(call, DeviceObject->StackSize);
  request->UserEvent = Event;
  request->UserIosb = IoStatusBlock;
  IoGetNextIrpStackLocation(request)->MajorFunction = static_cast<UCHAR>(MajorFunction);
  return request;
}

// Up to DISPATCH_LEVEL, a PnP packet at PASSIVE_LEVEL and with its status set to STATUS_NOT_SUPPORTED, so that one that
// nobody handles comes back as such. The packet must not be touched afterwards.
NTSTATUS IofCallDriver(PDEVICE_OBJECT DeviceObject, PIRP Irp) {
  KernelCall call("IofCallDriver", PASSIVE_LEVEL);
  if (!call.kernel().state().ioRequests.Known(Irp)) {
    call.Report(Rule::HandleStale, "the packet was never built, or has come back");
    return STATUS_INVALID_PARAMETER;
  }
  if (!DeviceObject || Irp->IoStatus.Status != STATUS_NOT_SUPPORTED) {
    call.Report(Rule::InvalidArgument, "a PnP packet starts with the status STATUS_NOT_SUPPORTED");
  }
  if (--Irp->CurrentLocation <= 0) {
    call.Report(Rule::InvalidArgument, "the packet has no stack location left");
    return STATUS_INVALID_PARAMETER;
  }
  IO_STACK_LOCATION* location = --Irp->Tail.Overlay.CurrentStackLocation;
  location->DeviceObject = DeviceObject;
  return DeviceObject->DriverObject->MajorFunction[location->MajorFunction](DeviceObject, Irp);
}
