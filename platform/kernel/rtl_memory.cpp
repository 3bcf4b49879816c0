// Small run-time calls on memory and numbers.
#include "platform/include/wdm.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

// Any IRQL. The number of bytes that are equal from the start.
SIZE_T RtlCompareMemory(const VOID* Source1, const VOID* Source2, SIZE_T Length) {
  const auto* first = static_cast<const UCHAR*>(Source1);
  const auto* second = static_cast<const UCHAR*>(Source2);
  SIZE_T equal = 0;
  while (equal < Length && first[equal] == second[equal]) ++equal;
  return equal;
}

// Up to APC_LEVEL. A number from 0 to 0x7FFFFFFE; the seed moves on. The same seed gives the same numbers.
ULONG RtlRandom(PULONG Seed) {
  KernelCall call("RtlRandom", APC_LEVEL);
  if (!Seed) {
    call.Report(Rule::InvalidArgument, "no seed");
    return 0;
  }
  constexpr ULONGLONG kModulus = 0x7fffffff;
  *Seed = static_cast<ULONG>((ULONGLONG{*Seed} * 0x7fffffed + 0x7fffffc3) % kModulus);
  const ULONG high = *Seed;
  *Seed = static_cast<ULONG>((ULONGLONG{*Seed} * 0x7fffffed + 0x7fffffc3) % kModulus);
  return static_cast<ULONG>((ULONGLONG{high} * 48271 + *Seed) % kModulus);
}
