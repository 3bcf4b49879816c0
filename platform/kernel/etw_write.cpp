// Event tracing. A provider's events reach the sinks of the simulation; with no sink, no event is enabled.
#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/include/wdm_etw.h"
#include "platform/kernel/kernel_state.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

constexpr ULONG kMostDescriptors = 128;

bool CheckHandle(KernelCall& call, REGHANDLE handle) {
  if (call.kernel().state().traceProviders.IsRegistered(handle)) return true;
  call.Report(Rule::HandleStale, "the provider is not registered");
  return false;
}

void Concatenate(std::vector<std::byte>& payload, const EVENT_DATA_DESCRIPTOR* pieces, ULONG count) {
  payload.clear();
  for (ULONG i = 0; i < count; ++i) {
    const auto* bytes = reinterpret_cast<const std::byte*>(pieces[i].Ptr);
    payload.insert(payload.end(), bytes, bytes + pieces[i].Size);
  }
}

}  // namespace

// PASSIVE_LEVEL. Enable callbacks are not modelled.
NTSTATUS EtwRegister(LPCGUID ProviderId, PETWENABLECALLBACK EnableCallback, PVOID CallbackContext,
                     PREGHANDLE RegHandle) {
  KernelCall call("EtwRegister", PASSIVE_LEVEL);
  if (!ProviderId || !RegHandle) {
    call.Report(Rule::InvalidArgument, "no provider or nowhere to put the handle");
    return STATUS_INVALID_PARAMETER;
  }
  if (EnableCallback || CallbackContext) call.Report(Rule::NotModelled, "an enable callback");
  *RegHandle = 0;
  if (call.Fails()) return STATUS_NO_MEMORY;
  *RegHandle = call.kernel().state().traceProviders.Register();
  return STATUS_SUCCESS;
}

// PASSIVE_LEVEL.
NTSTATUS EtwUnregister(REGHANDLE RegHandle) {
  KernelCall call("EtwUnregister", PASSIVE_LEVEL);
  if (call.kernel().state().traceProviders.Unregister(RegHandle)) return STATUS_SUCCESS;
  call.Report(Rule::HandleStale, "the provider is not registered");
  return STATUS_INVALID_HANDLE;
}

// Any IRQL. Observation must not change a run: no switch point, no part in the trace hash. A null handle, or a question
// from outside a task, is answered with FALSE.
BOOLEAN EtwEventEnabled(REGHANDLE RegHandle, PCEVENT_DESCRIPTOR EventDescriptor) {
  if (RegHandle == 0 || !Scheduler::Current()) return FALSE;
  KernelCall call("EtwEventEnabled", HIGH_LEVEL, KernelCall::Silent);
  if (!EventDescriptor) {
    call.Report(Rule::InvalidArgument, "no event descriptor");
    return FALSE;
  }
  return CheckHandle(call, RegHandle) && call.simulation().HasSinks();
}

// Any IRQL. The pieces of user data stand behind one another in the record's payload.
NTSTATUS EtwWrite(REGHANDLE RegHandle, PCEVENT_DESCRIPTOR EventDescriptor, LPCGUID ActivityId, ULONG UserDataCount,
                  PEVENT_DATA_DESCRIPTOR UserData) {
  KernelCall call("EtwWrite", HIGH_LEVEL, KernelCall::Silent);
  if (!CheckHandle(call, RegHandle)) return STATUS_INVALID_HANDLE;
  if (!EventDescriptor || UserDataCount > kMostDescriptors || (UserDataCount != 0 && !UserData)) {
    call.Report(Rule::InvalidArgument, "no event descriptor, no user data or more than 128 pieces of it");
    return STATUS_INVALID_PARAMETER;
  }
  if (ActivityId) call.Report(Rule::NotModelled, "an activity");
  Simulation& simulation = call.simulation();
  if (!simulation.HasSinks()) return STATUS_SUCCESS;
  std::vector<std::byte>& payload = call.kernel().state().tracePayload;
  Concatenate(payload, UserData, UserDataCount);
  TraceRecord record{};
  record.kind = TraceKind::Driver;
  record.when = simulation.Now();
  record.kernel = &call.kernel();
  record.task = call.task().name();
  record.taskOrdinal = call.task().ordinal();
  record.level = EventDescriptor->Level;
  record.opcode = EventDescriptor->Opcode;
  record.payload = payload;
  call.scheduler().OnSchedulerStack([&] { simulation.Emit(record); });
  return STATUS_SUCCESS;
}
