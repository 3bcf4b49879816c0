// The waiting half of a kernel mutex, for KeWaitForSingleObject.
#pragma once
#include "platform/include/wdm.h"
#include "platform/scheduler/scheduler.h"

namespace platform {

// Takes the mutex for the running task; recursion counts. False when the deadline was reached first. A deadline that is
// not in the future polls.
bool AcquireMutex(KernelCall& call, KMUTEX& mutex, Time deadline);

}  // namespace platform
