// The kernel's own calls: pool, events, mutexes, spin locks, time, strings, registry, register access.
//
// Names, types and argument order as published. Structures that a driver may only pass on hold what this kernel keeps
// in them.
#pragma once
#include "ntdef.h"
#include "ntstatus.h"

EXTERN_C_START

// --- interrupt request level ---
typedef UCHAR KIRQL, *PKIRQL;
#define PASSIVE_LEVEL 0
#define LOW_LEVEL 0
#define APC_LEVEL 1
#define DISPATCH_LEVEL 2
#define HIGH_LEVEL 15

KIRQL KeGetCurrentIrql(VOID);
HANDLE PsGetCurrentThreadId(VOID);
KIRQL KfRaiseIrql(KIRQL NewIrql);
VOID KeLowerIrql(KIRQL NewIrql);
#define KeRaiseIrql(newIrql, oldIrql) *(oldIrql) = KfRaiseIrql(newIrql)

DECLSPEC_NORETURN VOID KeBugCheckEx(ULONG BugCheckCode, ULONG_PTR BugCheckParameter1, ULONG_PTR BugCheckParameter2,
                                    ULONG_PTR BugCheckParameter3, ULONG_PTR BugCheckParameter4);

// --- objects that can be waited on ---
typedef CCHAR KPROCESSOR_MODE;
typedef LONG KPRIORITY;
typedef enum _MODE { KernelMode, UserMode, MaximumMode } MODE;
typedef enum _EVENT_TYPE { NotificationEvent, SynchronizationEvent } EVENT_TYPE;
typedef enum _KWAIT_REASON { Executive = 0, DelayExecution = 4, UserRequest = 6 } KWAIT_REASON;
#define IO_NO_INCREMENT 0

typedef struct _DISPATCHER_HEADER {
  UCHAR Type;
  UCHAR Signature[3];
  LONG SignalState;
  LIST_ENTRY WaitListHead;
} DISPATCHER_HEADER, *PDISPATCHER_HEADER;

typedef struct _KEVENT {
  DISPATCHER_HEADER Header;
} KEVENT, *PKEVENT, *PRKEVENT;

typedef struct _KMUTANT {
  DISPATCHER_HEADER Header;
  LIST_ENTRY MutantListEntry;
  struct _KTHREAD* OwnerThread;
  BOOLEAN Abandoned;
  UCHAR ApcDisable;
} KMUTANT, *PKMUTANT, *PRKMUTANT, KMUTEX, *PKMUTEX, *PRKMUTEX;

VOID KeInitializeEvent(PRKEVENT Event, EVENT_TYPE Type, BOOLEAN State);
LONG KeSetEvent(PRKEVENT Event, KPRIORITY Increment, BOOLEAN Wait);
LONG KeResetEvent(PRKEVENT Event);
VOID KeClearEvent(PRKEVENT Event);
LONG KeReadStateEvent(PRKEVENT Event);

VOID KeInitializeMutex(PRKMUTEX Mutex, ULONG Level);
LONG KeReleaseMutex(PRKMUTEX Mutex, BOOLEAN Wait);

// Timeout in 100 ns: null waits for ever, 0 polls, negative is relative.
NTSTATUS KeWaitForSingleObject(PVOID Object, KWAIT_REASON WaitReason, KPROCESSOR_MODE WaitMode, BOOLEAN Alertable,
                               PLARGE_INTEGER Timeout);
#define KeWaitForMutexObject KeWaitForSingleObject

// Without wait blocks of the caller's, up to THREAD_WAIT_OBJECTS objects.
#define THREAD_WAIT_OBJECTS 3
#define MAXIMUM_WAIT_OBJECTS 64
typedef enum _WAIT_TYPE { WaitAll, WaitAny } WAIT_TYPE;
typedef struct _KWAIT_BLOCK KWAIT_BLOCK, *PKWAIT_BLOCK;
NTSTATUS KeWaitForMultipleObjects(ULONG Count, PVOID Object[], WAIT_TYPE WaitType, KWAIT_REASON WaitReason,
                                  KPROCESSOR_MODE WaitMode, BOOLEAN Alertable, PLARGE_INTEGER Timeout,
                                  PKWAIT_BLOCK WaitBlockArray);

// --- spin locks ---
typedef ULONG_PTR KSPIN_LOCK, *PKSPIN_LOCK;

typedef struct _KSPIN_LOCK_QUEUE {
  struct _KSPIN_LOCK_QUEUE* volatile Next;
  PKSPIN_LOCK volatile Lock;
} KSPIN_LOCK_QUEUE, *PKSPIN_LOCK_QUEUE;

typedef struct _KLOCK_QUEUE_HANDLE {
  KSPIN_LOCK_QUEUE LockQueue;
  KIRQL OldIrql;
} KLOCK_QUEUE_HANDLE, *PKLOCK_QUEUE_HANDLE;

VOID KeInitializeSpinLock(PKSPIN_LOCK SpinLock);
KIRQL KeAcquireSpinLockRaiseToDpc(PKSPIN_LOCK SpinLock);
#define KeAcquireSpinLock(spinLock, oldIrql) *(oldIrql) = KeAcquireSpinLockRaiseToDpc(spinLock)
VOID KeReleaseSpinLock(PKSPIN_LOCK SpinLock, KIRQL NewIrql);
VOID KeAcquireSpinLockAtDpcLevel(PKSPIN_LOCK SpinLock);
VOID KeReleaseSpinLockFromDpcLevel(PKSPIN_LOCK SpinLock);
VOID KeAcquireInStackQueuedSpinLock(PKSPIN_LOCK SpinLock, PKLOCK_QUEUE_HANDLE LockHandle);
VOID KeReleaseInStackQueuedSpinLock(PKLOCK_QUEUE_HANDLE LockHandle);

// --- interlocked operations ---
LONG InterlockedIncrement(LONG volatile* Addend);
LONG InterlockedDecrement(LONG volatile* Addend);
LONG InterlockedExchange(LONG volatile* Target, LONG Value);
LONG InterlockedCompareExchange(LONG volatile* Destination, LONG ExChange, LONG Comperand);

// --- time ---
NTSTATUS KeDelayExecutionThread(KPROCESSOR_MODE WaitMode, BOOLEAN Alertable, PLARGE_INTEGER Interval);
VOID KeStallExecutionProcessor(ULONG MicroSeconds);
LARGE_INTEGER KeQueryPerformanceCounter(PLARGE_INTEGER PerformanceFrequency);

// --- lists: plain functions; the caller keeps them consistent ---
VOID InitializeListHead(PLIST_ENTRY ListHead);
BOOLEAN IsListEmpty(const LIST_ENTRY* ListHead);
VOID InsertHeadList(PLIST_ENTRY ListHead, PLIST_ENTRY Entry);
VOID InsertTailList(PLIST_ENTRY ListHead, PLIST_ENTRY Entry);
BOOLEAN RemoveEntryList(PLIST_ENTRY Entry);  // TRUE when the list is empty afterwards
PLIST_ENTRY RemoveHeadList(PLIST_ENTRY ListHead);
PLIST_ENTRY RemoveTailList(PLIST_ENTRY ListHead);

// --- pool ---
typedef ULONG64 POOL_FLAGS;
#define POOL_FLAG_UNINITIALIZED 0x0000000000000002ULL
#define POOL_FLAG_NON_PAGED 0x0000000000000040ULL
#define POOL_FLAG_PAGED 0x0000000000000100ULL

typedef enum _POOL_TYPE { NonPagedPool = 0, PagedPool = 1, NonPagedPoolNx = 512 } POOL_TYPE;

PVOID ExAllocatePool2(POOL_FLAGS Flags, SIZE_T NumberOfBytes, ULONG Tag);
VOID ExFreePool(PVOID P);
VOID ExFreePoolWithTag(PVOID P, ULONG Tag);

// --- strings and memory ---
VOID RtlInitUnicodeString(PUNICODE_STRING DestinationString, PCWSTR SourceString);
VOID RtlInitAnsiString(PANSI_STRING DestinationString, PCSZ SourceString);
NTSTATUS RtlAnsiStringToUnicodeString(PUNICODE_STRING DestinationString, PCANSI_STRING SourceString,
                                      BOOLEAN AllocateDestinationString);
NTSTATUS RtlUnicodeStringToAnsiString(PANSI_STRING DestinationString, PCUNICODE_STRING SourceString,
                                      BOOLEAN AllocateDestinationString);
VOID RtlFreeUnicodeString(PUNICODE_STRING UnicodeString);
VOID RtlFreeAnsiString(PANSI_STRING AnsiString);
SIZE_T RtlCompareMemory(const VOID* Source1, const VOID* Source2, SIZE_T Length);
ULONG RtlRandom(PULONG Seed);

// --- registry ---
#define KEY_QUERY_VALUE 0x0001
#define KEY_READ 0x20019
#define REG_NONE 0
#define REG_SZ 1
#define REG_BINARY 3
#define REG_DWORD 4

typedef enum _KEY_VALUE_INFORMATION_CLASS {
  KeyValueBasicInformation,
  KeyValueFullInformation,
  KeyValuePartialInformation
} KEY_VALUE_INFORMATION_CLASS;

typedef struct _KEY_VALUE_FULL_INFORMATION {
  ULONG TitleIndex;
  ULONG Type;
  ULONG DataOffset;  // from the start of this structure
  ULONG DataLength;  // bytes
  ULONG NameLength;  // bytes
  WCHAR Name[1];
} KEY_VALUE_FULL_INFORMATION, *PKEY_VALUE_FULL_INFORMATION;

NTSTATUS ZwOpenKey(PHANDLE KeyHandle, ACCESS_MASK DesiredAccess, POBJECT_ATTRIBUTES ObjectAttributes);
NTSTATUS ZwQueryValueKey(HANDLE KeyHandle, PUNICODE_STRING ValueName,
                         KEY_VALUE_INFORMATION_CLASS KeyValueInformationClass, PVOID KeyValueInformation, ULONG Length,
                         PULONG ResultLength);
NTSTATUS ZwClose(HANDLE Handle);

// --- device memory ---
#define PAGE_SIZE 0x1000
#define PAGE_READWRITE 0x04
#define PAGE_NOCACHE 0x200

typedef enum _MEMORY_CACHING_TYPE { MmNonCached = 0, MmCached = 1, MmWriteCombined = 2 } MEMORY_CACHING_TYPE;

PVOID MmGetSystemRoutineAddress(PUNICODE_STRING SystemRoutineName);
PVOID MmMapIoSpaceEx(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes, ULONG Protect);
PVOID MmMapIoSpace(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes, MEMORY_CACHING_TYPE CacheType);
VOID MmUnmapIoSpace(PVOID BaseAddress, SIZE_T NumberOfBytes);
ULONG READ_REGISTER_ULONG(volatile ULONG* Register);
VOID WRITE_REGISTER_ULONG(volatile ULONG* Register, ULONG Value);

EXTERN_C_END
