// The IRQL of the running task, and the call that stops the machine.
#include <cstdio>
#include <cstdlib>

#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

KIRQL KeGetCurrentIrql(VOID) {
  KernelCall call("KeGetCurrentIrql", HIGH_LEVEL, KernelCall::Silent);
  return static_cast<KIRQL>(call.task().irql);
}

// Raises only: the new level is not below the current one.
KIRQL KfRaiseIrql(KIRQL NewIrql) {
  KernelCall call("KeRaiseIrql", HIGH_LEVEL);
  const unsigned before = call.task().irql;
  if (NewIrql < before || NewIrql > HIGH_LEVEL) {
    call.Report(Rule::IrqlRaisedWrongly, "from " + std::to_string(before) + " to " + std::to_string(NewIrql));
  }
  call.task().irql = NewIrql;
  return static_cast<KIRQL>(before);
}

// Lowers only, and not below DISPATCH_LEVEL while a spin lock is held.
VOID KeLowerIrql(KIRQL NewIrql) {
  KernelCall call("KeLowerIrql", HIGH_LEVEL);
  const unsigned before = call.task().irql;
  if (NewIrql > before) {
    call.Report(Rule::IrqlLoweredWrongly, "from " + std::to_string(before) + " to " + std::to_string(NewIrql));
  }
  for (const HeldLock& held : call.task().held) {
    if (held.spin && NewIrql < DISPATCH_LEVEL) {
      call.Report(Rule::IrqlLoweredWrongly, "below DISPATCH_LEVEL with a spin lock held");
      break;
    }
  }
  call.task().irql = NewIrql;
}

// The driver's own assertions end here: the run stops with a report, and the task never goes on.
VOID KeBugCheckEx(ULONG BugCheckCode, ULONG_PTR BugCheckParameter1, ULONG_PTR BugCheckParameter2,
                  ULONG_PTR BugCheckParameter3, ULONG_PTR BugCheckParameter4) {
  char text[160];
  std::snprintf(text, sizeof text, "code 0x%08X, parameters 0x%llX 0x%llX 0x%llX 0x%llX", BugCheckCode,
                BugCheckParameter1, BugCheckParameter2, BugCheckParameter3, BugCheckParameter4);
  if (!Scheduler::Current()) {
    std::fprintf(stderr, "%s outside a task: %s\n", RuleName(Rule::BugCheck), text);
    std::abort();
  }
  KernelCall call("KeBugCheckEx", HIGH_LEVEL, KernelCall::Silent);
  call.Report(Rule::BugCheck, text);
  call.scheduler().Abandon();
}
