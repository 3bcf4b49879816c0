// The run lock and its abort mark.
#include "hostif/run_abort.h"

#include "include/status.h"
#include "include/wait.h"

bool RunIsAborted(const USB4_DOMAIN* domain) {
  return domain != nullptr && domain->RunAborted.IsSet() && domain->EventThread == PsGetCurrentThreadId();
}

void SleepMs(const USB4_DOMAIN* domain, ULONG ms) {
  if (RunIsAborted(domain)) return;
  LARGE_INTEGER due = RelativeMs(ms);
  IgnoreResult(KeDelayExecutionThread(KernelMode, FALSE, &due));  // not alertable: it ends only with the time
}

RunGuard::RunGuard(USB4_DOMAIN& domain) : guard_(domain.RunLock) {
  domain.RunAborted.Set(false);
}
