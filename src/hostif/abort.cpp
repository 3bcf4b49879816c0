// The abort, and what it ends. Its state is one event, which every wait of a domain's flows includes.
#include "hostif/abort.h"

#include "include/status.h"
#include "include/trace.h"
#include "include/wait.h"

namespace {

constexpr ULONG kLockPatienceMs = 5000;

}  // namespace

bool PowersDown(const USB4_DOMAIN* domain) {
  return domain->PowerDownThread == PsGetCurrentThreadId();
}

bool IsAborted(USB4_DOMAIN* domain) {
  return domain != nullptr && KeReadStateEvent(&domain->Aborted) != 0 && !PowersDown(domain);
}

void SleepMs(USB4_DOMAIN* domain, ULONG ms) {
  if (domain != nullptr && !PowersDown(domain)) {
    IgnoreResult(WaitForEventMs(domain->Aborted, ms));  // both ends of the wait are ends of the sleep
    return;
  }
  LARGE_INTEGER due = RelativeMs(ms);
  IgnoreResult(KeDelayExecutionThread(KernelMode, FALSE, &due));  // not alertable: it ends only with the time
}

NTSTATUS WaitForEventOrAbort(USB4_DOMAIN* domain, KEVENT& event, ULONG ms) {
  if (domain == nullptr || PowersDown(domain)) return WaitForEventMs(event, ms);
  PVOID events[] = {&event, &domain->Aborted};
  LARGE_INTEGER due = RelativeMs(ms);
  const NTSTATUS status = KeWaitForMultipleObjects(2, events, WaitAny, Executive, KernelMode, FALSE, &due, nullptr);
  return status == STATUS_WAIT_0 + 1 ? kStatusAborted : status;
}

PowerDownScope::PowerDownScope(USB4_DOMAIN& domain) : domain_(domain) {
  KivAssert(domain_.PowerDownThread == nullptr);
  domain_.PowerDownThread = PsGetCurrentThreadId();
}

PowerDownScope::~PowerDownScope() {
  KeClearEvent(&domain_.Aborted);
  domain_.PowerDownThread = nullptr;
}

void AbortOtherFlows(USB4_DOMAIN& domain) {
  TraceWarning("other flows aborted");
  SetEvent(domain.Aborted);
}

FlowGuard::FlowGuard(USB4_DOMAIN& domain, KMUTEX& lock) : lock_(lock) {
  if (PowersDown(&domain)) {
    LARGE_INTEGER due = RelativeMs(kLockPatienceMs);
    if (KeWaitForSingleObject(&lock_, Executive, KernelMode, FALSE, &due) == kStatusOk) return;
    AbortOtherFlows(domain);
  }
  // Without a time-out and not alertable, the wait for a mutex ends only with the mutex.
  IgnoreResult(KeWaitForSingleObject(&lock_, Executive, KernelMode, FALSE, nullptr));
}

FlowGuard::~FlowGuard() {
  KeReleaseMutex(&lock_, FALSE);
}
