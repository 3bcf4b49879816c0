// What a driver's annotations say of its locks, checked. Each check is a switch point: what a lock guards is touched
// next, and whoever touches it without the lock may do so now.
#include <algorithm>

#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/kernel/kernel_state.h"

using namespace platform;

namespace {

// The task whose locks are looked at. Null outside a simulation, where a tool looks at records that stand still.
Task* Caller() {
  Task* task = Scheduler::Current();
  return task != nullptr && task->kernel() != nullptr ? task : nullptr;
}

bool Holds(const Task& task, const volatile void* lock) {
  return std::any_of(task.held.begin(), task.held.end(), [&](const HeldLock& held) { return held.lock == lock; });
}

[[gnu::cold]] void ReportMisuse(HashedName annotation, Rule rule, const char* detail) {
  KernelCall call(annotation, HIGH_LEVEL, KernelCall::Silent);
  call.Report(rule, detail);
}

[[gnu::cold]] void ReportMissingPlace(unsigned places) {
  KernelCall call("_Lock_order_place_held_", HIGH_LEVEL, KernelCall::Silent);
  call.Report(Rule::LockRequired, "guarded data is touched without " + call.kernel().state().lockOrder.NamesOf(places));
}

}  // namespace

void VerifierRequireLock(const volatile void* lock) {
  const Task* task = Caller();
  if (task == nullptr) return;
  if (!Holds(*task, lock)) [[unlikely]] {
    ReportMisuse("_Analysis_assume_lock_held_", Rule::LockRequired, "a lock that is required here is not held");
  }
  Scheduler::Active()->MemorySwitchPoint();
}

void VerifierForbidLock(const volatile void* lock) {
  const Task* task = Caller();
  if (task == nullptr || !Holds(*task, lock)) return;
  ReportMisuse("_Analysis_assume_lock_not_held_", Rule::LockForbidden, "a lock that must not be held here is held");
}

void VerifierRequirePlace(unsigned places) {
  const Task* task = Caller();
  if (task == nullptr) return;
  if ((task->heldPlaces & places) == 0) [[unlikely]] {
    ReportMissingPlace(places);
  }
  Scheduler::Active()->MemorySwitchPoint();
}

void VerifierPlaceLock(void* lock, unsigned place, bool leaf, const char* name) {
  KernelCall call("_Lock_order_place_", HIGH_LEVEL, KernelCall::Silent);
  if (place > 31) return call.Report(Rule::InvalidArgument, "a lock's place is 0 to 31");
  if (!call.kernel().state().lockOrder.SetPlace(lock, static_cast<std::uint16_t>(place + 1), leaf, name)) {
    call.Report(Rule::ObjectUninitialised, "the lock that is given a place was never initialised");
  }
}
