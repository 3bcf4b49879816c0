// The pool calls. Up to DISPATCH_LEVEL.
#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/memory/kernel_pool.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

// One to four characters from 0x20 to 0x7E; unused ones are zero at the end.
bool IsTag(ULONG tag) {
  if (tag == 0) return false;
  for (; tag != 0; tag >>= 8) {
    const ULONG character = tag & 0xff;
    if (character < 0x20 || character > 0x7e) return false;
  }
  return true;
}

}  // namespace

// Non-paged memory only, zeroed unless the caller says that it writes every byte. Null when there is none.
PVOID ExAllocatePool2(POOL_FLAGS Flags, SIZE_T NumberOfBytes, ULONG Tag) {
  KernelCall call("ExAllocatePool2", DISPATCH_LEVEL);
  if ((Flags & ~POOL_FLAG_UNINITIALIZED) != POOL_FLAG_NON_PAGED) {
    call.Report(Rule::NotModelled, "pool flags other than NON_PAGED and UNINITIALIZED");
  }
  if (!IsTag(Tag)) call.Report(Rule::InvalidArgument, "a tag is one to four printable characters");
  if (NumberOfBytes == 0) {
    call.Report(Rule::PoolZeroLength, "an allocation of no bytes");
    return nullptr;
  }
  return call.kernel().pool().Allocate(NumberOfBytes, Tag, (Flags & POOL_FLAG_UNINITIALIZED) == 0,
                                       __builtin_return_address(0));
}

// For what the kernel has allocated and handed over: its tag is the kernel's business.
VOID ExFreePool(PVOID P) {
  KernelCall call("ExFreePool", DISPATCH_LEVEL);
  call.kernel().pool().FreeAnyTag(P);
}

VOID ExFreePoolWithTag(PVOID P, ULONG Tag) {
  KernelCall call("ExFreePoolWithTag", DISPATCH_LEVEL);
  call.kernel().pool().Free(P, Tag);
}
