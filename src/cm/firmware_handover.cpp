// The hand-over message, and whom it is sent to.
#include "cm/firmware_handover.h"

#include <cstring>

#include "hostif/config_request.h"
#include "include/device_context.h"
#include "include/trace.h"

namespace {

constexpr std::uint32_t kTakeOver = 3;
constexpr std::uint32_t kRequestBytes = 4;
constexpr std::uint32_t kResponseBytes = 14;
constexpr ULONG kHandoverAnswerMs = 200;

struct HandoverWord {
  using Command = Bits<0, 8>;
};

struct PciIdentity {
  using VendorId = Bits<0, 16>;
};
constexpr std::uint32_t kVendorWithFirmwareManager = 0x8086;

bool IsHandoverAnswer(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet) {
  return packet->Pdf() == request->ResponsePdf &&
         HandoverWord::Command::Get(packet->Buffer[0]) == HandoverWord::Command::Get(request->Request[0]);
}

// The length that the answer claims is not looked at: the buffer always holds more than is copied.
bool CopyHandoverAnswer(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet) {
  std::memcpy(request->Response, packet->Buffer, request->ResponseBytes);
  request->Result.Err = kKivOk;
  return true;
}

// The first dword of the function's PCI configuration space, by a request down the device stack; 0 when that fails.
std::uint32_t ReadPciIdentity(WDFDEVICE device) {
  std::uint32_t identity = 0;
  KEVENT done;
  IO_STATUS_BLOCK outcome{};
  KeInitializeEvent(&done, NotificationEvent, FALSE);
  PDEVICE_OBJECT lower = WdfDeviceWdmGetAttachedDevice(device);
  PIRP request = IoBuildSynchronousFsdRequest(IRP_MJ_PNP, lower, nullptr, 0, nullptr, &done, &outcome);
  if (request == nullptr) return 0;
  request->IoStatus.Status = STATUS_NOT_SUPPORTED;
  PIO_STACK_LOCATION stack = IoGetNextIrpStackLocation(request);
  stack->MinorFunction = IRP_MN_READ_CONFIG;
  stack->Parameters.ReadWriteConfig.WhichSpace = PCI_WHICHSPACE_CONFIG;
  stack->Parameters.ReadWriteConfig.Buffer = &identity;
  stack->Parameters.ReadWriteConfig.Offset = 0;
  stack->Parameters.ReadWriteConfig.Length = sizeof identity;
  NTSTATUS status = IoCallDriver(lower, request);
  if (status == STATUS_PENDING) {
    // The request owns this stack's event, so the wait has no time-out.
    IgnoreResult(KeWaitForSingleObject(&done, Executive, KernelMode, FALSE, nullptr));
    status = outcome.Status;
  }
  return NT_SUCCESS(status) ? identity : 0;
}

}  // namespace

bool HostNeedsHandover(USB4_DOMAIN* domain) {
  return PciIdentity::VendorId::Get(ReadPciIdentity(domain->HostInterface->Device)) == kVendorWithFirmwareManager;
}

void KivOtherFirmwareStart(USB4_DOMAIN* domain) {
  USB4_CFG_REQUEST* request = AllocateRequest();
  if (request == nullptr) {
    TraceError("no memory for the hand-over");
    return;
  }
  request->RequestWords[0] = HandoverWord::Command::Of(kTakeOver);
  request->RequestBytes = kRequestBytes;
  request->RequestPdf = USB4_PDF_FIRMWARE_REQUEST;
  request->ResponseBytes = kResponseBytes;
  request->ResponsePdf = USB4_PDF_FIRMWARE_RESPONSE;
  request->Match = IsHandoverAnswer;
  request->Copy = CopyHandoverAnswer;
  const USB4_CFG_RESULT result = KivUsb4CfgRequestSync(domain->ControlChannel, request, kHandoverAnswerMs);
  if (result.Err != kKivOk) TraceError("firmware did not hand over", "result", AsResult(result.Err));
  if (result.Err == kKivNotSent) return;  // the request is gone already
  KivUsb4CfgRequestDequeue(domain->ControlChannel, request);
  ReleaseRequest(request);
}
