// The packaged kernel headers, and after them what that package is too old to declare, as publicly documented.
// Used by the compile check only.
#pragma once
#include_next <ntddk.h>

// The package has it in a header of file systems only.
extern "C" NTSYSAPI ULONG NTAPI RtlRandom(PULONG Seed);

#ifndef POOL_FLAG_NON_PAGED
typedef ULONG64 POOL_FLAGS;
#define POOL_FLAG_NON_PAGED 0x40ULL
extern "C" {
NTKERNELAPI PVOID NTAPI ExAllocatePool2(POOL_FLAGS Flags, SIZE_T NumberOfBytes, ULONG Tag);
NTKERNELAPI PVOID NTAPI MmMapIoSpaceEx(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes, ULONG Protect);
}
#endif
