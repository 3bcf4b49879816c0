// Busy waits and the performance counter.
#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/kernel/kernel_state.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

// Any IRQL. A stall keeps its processor busy: 50 microseconds at most.
VOID KeStallExecutionProcessor(ULONG MicroSeconds) {
  KernelCall call("KeStallExecutionProcessor", HIGH_LEVEL);
  if (MicroSeconds > 50) {
    call.Report(Rule::StallTooLong, "a stall of " + std::to_string(MicroSeconds) + " microseconds", MicroSeconds);
  }
  call.scheduler().Stall(static_cast<Time>(MicroSeconds) * kMicrosecond);
}

// Any IRQL. Counts virtual time at 10 MHz from the boot of this host.
LARGE_INTEGER KeQueryPerformanceCounter(PLARGE_INTEGER PerformanceFrequency) {
  KernelCall call("KeQueryPerformanceCounter", HIGH_LEVEL);
  if (PerformanceFrequency) PerformanceFrequency->QuadPart = kSecond;
  LARGE_INTEGER count;
  count.QuadPart = call.kernel().state().upTimeAtStart + call.scheduler().Now();
  return count;
}
