// Which thread runs.
#include "platform/include/wdm.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

HANDLE PsGetCurrentThreadId(VOID) {
  KernelCall call("PsGetCurrentThreadId", HIGH_LEVEL, KernelCall::Silent);
  return reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(call.task().ordinal()));
}
