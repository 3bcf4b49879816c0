// Interlocked operations. Tasks switch only inside platform calls, so plain arithmetic is atomic; what these calls add
// is the switch point before it. They are instructions of the processor: any IRQL, and legal outside a task.
#include <optional>

#include "platform/include/wdm.h"
#include "platform/scheduler.h"

using namespace platform;

namespace {

void Pass(SiteName name) {
  if (Scheduler::Current()) KernelCall call(name, HIGH_LEVEL);
}

}  // namespace

LONG InterlockedIncrement(LONG volatile* Addend) {
  Pass("InterlockedIncrement");
  const LONG after = static_cast<LONG>(static_cast<ULONG>(*Addend) + 1);
  *Addend = after;
  return after;
}

LONG InterlockedDecrement(LONG volatile* Addend) {
  Pass("InterlockedDecrement");
  const LONG after = static_cast<LONG>(static_cast<ULONG>(*Addend) - 1);
  *Addend = after;
  return after;
}

LONG InterlockedExchange(LONG volatile* Target, LONG Value) {
  Pass("InterlockedExchange");
  const LONG before = *Target;
  *Target = Value;
  return before;
}

LONG InterlockedCompareExchange(LONG volatile* Destination, LONG ExChange, LONG Comperand) {
  Pass("InterlockedCompareExchange");
  const LONG before = *Destination;
  if (before == Comperand) *Destination = ExChange;
  return before;
}
