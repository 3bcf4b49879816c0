// The verifier's rules: one line each, named as docs/verifier.md names them. A rule without a test that breaks it fails
// the suite.
#pragma once

namespace platform {

// X(enumerator, "name")
#define PLATFORM_RULES(X)                                    \
  X(IrqlTooHigh, "irql-too-high")                            \
  X(IrqlRaisedWrongly, "irql-raised-wrongly")                \
  X(IrqlLoweredWrongly, "irql-lowered-wrongly")              \
  X(WaitWithSpinLock, "wait-with-spin-lock")                 \
  X(LockNotOwned, "lock-not-owned")                          \
  X(LockTakenTwice, "lock-taken-twice")                      \
  X(LockOrder, "lock-order")                                 \
  X(LockOutOfPlace, "lock-out-of-place")                     \
  X(LockRequired, "lock-required")                           \
  X(LockForbidden, "lock-forbidden")                         \
  X(LockFormsMixed, "lock-forms-mixed")                      \
  X(PoolBadFree, "pool-bad-free")                            \
  X(PoolWrongTag, "pool-wrong-tag")                          \
  X(PoolOverrun, "pool-overrun")                             \
  X(PoolLeak, "pool-leak")                                   \
  X(PoolZeroLength, "pool-zero-length")                      \
  X(PoolWaitedOn, "pool-waited-on")                          \
  X(ListEntryLinked, "list-entry-linked")                    \
  X(RequestCompletedTwice, "request-completed-twice")        \
  X(RequestNeverCompleted, "request-never-completed")        \
  X(RequestAfterCompletion, "request-after-completion")      \
  X(RequestNotOwned, "request-not-owned")                    \
  X(HandleStale, "handle-stale")                             \
  X(HandleWrongType, "handle-wrong-type")                    \
  X(HandleLeak, "handle-leak")                               \
  X(CommonBufferLeak, "common-buffer-leak")                  \
  X(MappingLeak, "mapping-leak")                             \
  X(DmaOutsideBuffer, "dma-outside-buffer")                  \
  X(StallTooLong, "stall-too-long")                          \
  X(StackTooDeep, "stack-too-deep")                          \
  X(RegisterOutsideBar, "register-outside-bar")              \
  X(RegisterWhilePoweredDown, "register-while-powered-down") \
  X(RegisterUnmapped, "register-unmapped")                   \
  X(PowerReferenceNotTaken, "power-reference-not-taken")     \
  X(PowerReferenceDeadlock, "power-reference-deadlock")      \
  X(CallbackIrql, "callback-irql")                           \
  X(CallbackHoldsLock, "callback-holds-lock")                \
  X(WorkItemFreedRunning, "work-item-freed-running")         \
  X(WorkItemSelfFlush, "work-item-self-flush")               \
  X(ObjectUninitialised, "object-uninitialised")             \
  X(InvalidArgument, "invalid-argument")                     \
  X(NotModelled, "not-modelled")                             \
  X(CallOutsideTask, "call-outside-task")                    \
  X(BugCheck, "bug-check")

enum class Rule : unsigned {
#define X(name, text) name,
  PLATFORM_RULES(X)
#undef X
      Count
};

constexpr const char* RuleName(Rule rule) {
  switch (rule) {
#define X(name, text) \
  case Rule::name:    \
    return text;
    PLATFORM_RULES(X)
#undef X
    case Rule::Count:
      break;
  }
  return "?";
}

}  // namespace platform
