// Interlocked operations. Tasks switch only inside platform calls, so plain arithmetic is atomic; what these calls add
// are the switch points around it. They are instructions of the processor: any IRQL, and legal outside a task.
#include "platform/include/wdm.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

template <class Operation>
LONG Atomically(HashedName name, Operation operation) {
  if (!Scheduler::Current()) return operation();
  KernelCall call(name, HIGH_LEVEL);
  const LONG result = operation();
  call.EffectVisible();
  return result;
}

LONG AddTo(LONG volatile* word, ULONG summand) {
  const LONG after = static_cast<LONG>(static_cast<ULONG>(*word) + summand);
  *word = after;
  return after;
}

}  // namespace

LONG InterlockedIncrement(LONG volatile* Addend) {
  return Atomically("InterlockedIncrement", [&] { return AddTo(Addend, 1); });
}

LONG InterlockedDecrement(LONG volatile* Addend) {
  return Atomically("InterlockedDecrement", [&] { return AddTo(Addend, ~0u); });
}

LONG InterlockedExchange(LONG volatile* Target, LONG Value) {
  return Atomically("InterlockedExchange", [&] {
    const LONG before = *Target;
    *Target = Value;
    return before;
  });
}

LONG InterlockedCompareExchange(LONG volatile* Destination, LONG ExChange, LONG Comperand) {
  return Atomically("InterlockedCompareExchange", [&] {
    const LONG before = *Destination;
    if (before == Comperand) *Destination = ExChange;
    return before;
  });
}
