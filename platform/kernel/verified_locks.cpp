// What a driver's annotations say of its locks, checked.
#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/kernel/kernel_state.h"

using namespace platform;

void VerifierPlaceLock(void* lock, unsigned place, bool leaf, const char* name) {
  KernelCall call("_Lock_order_place_", HIGH_LEVEL, KernelCall::Silent);
  if (!call.kernel().state().lockOrder.SetPlace(lock, static_cast<std::uint16_t>(place), leaf, name)) {
    call.Report(Rule::ObjectUninitialised, "the lock that is given a place was never initialised");
  }
}
