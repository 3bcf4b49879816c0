// The kernel's basic types. LONG and ULONG are 32 bits wide here as there, and a WCHAR is 16.
#pragma once
#include <stdarg.h>
#include <stddef.h>
#include <string.h>

#include "guiddef.h"
#include "sal.h"

#define VOID void
#define CONST const
#define EXTERN_C extern "C"
#define EXTERN_C_START extern "C" {
#define EXTERN_C_END }
#define NTAPI
#define FASTCALL
#define FORCEINLINE inline
#define DECLSPEC_NORETURN [[noreturn]]
#define DECLSPEC_ALIGN(bytes) __attribute__((aligned(bytes)))
#define POINTER_ALIGNMENT DECLSPEC_ALIGN(8)
#define UNALIGNED
#define ANYSIZE_ARRAY 1
#define TRUE 1
#define FALSE 0
#define MAXUSHORT 0xffff
#define MAXULONG 0xffffffffu
#define MAXLONG 0x7fffffff
#define UNREFERENCED_PARAMETER(parameter) ((void)(parameter))
#define ARRAYSIZE(array) (sizeof(array) / sizeof((array)[0]))
#define RTL_NUMBER_OF(array) ARRAYSIZE(array)
#define FIELD_OFFSET(type, field) ((LONG)offsetof(type, field))
#define CONTAINING_RECORD(address, type, field) ((type*)((PCHAR)(address) - (ULONG_PTR)offsetof(type, field)))

typedef void* PVOID;
typedef PVOID HANDLE, *PHANDLE;
typedef char CHAR, *PCHAR, *PSTR;
typedef const char *PCSTR, *LPCSTR, *PCSZ, *PCCH;
typedef char CCHAR;
typedef unsigned char UCHAR, *PUCHAR, BOOLEAN, *PBOOLEAN, BYTE;
typedef const UCHAR* PCUCHAR;
typedef short SHORT, *PSHORT, CSHORT;
typedef unsigned short USHORT, *PUSHORT, WORD;
typedef int LONG, *PLONG, INT;
typedef unsigned int ULONG, *PULONG, UINT, DWORD, *PDWORD, LOGICAL;
typedef long long LONGLONG, *PLONGLONG, LONG64, *PLONG64, INT64;
typedef unsigned long long ULONGLONG, *PULONGLONG, ULONG64, *PULONG64, UINT64;
typedef signed char INT8;
typedef short INT16;
typedef int INT32, LONG32;
typedef unsigned char UINT8;
typedef unsigned short UINT16;
typedef unsigned int UINT32, ULONG32;
typedef long long LONG_PTR, *PLONG_PTR, SSIZE_T, INT_PTR;
typedef unsigned long long ULONG_PTR, *PULONG_PTR, SIZE_T, *PSIZE_T, UINT_PTR, KAFFINITY, *PKAFFINITY;
typedef wchar_t WCHAR, *PWCHAR, *PWSTR, *LPWSTR;
typedef const wchar_t *PCWSTR, *LPCWSTR, *PCWCH;
typedef LONG NTSTATUS, *PNTSTATUS;
typedef ULONG LCID, ACCESS_MASK, *PACCESS_MASK;

static_assert(sizeof(WCHAR) == 2, "compile every target with -fshort-wchar");
static_assert(sizeof(LONG) == 4 && sizeof(ULONG) == 4 && sizeof(PVOID) == 8);

#define UNICODE_NULL ((WCHAR)0)
#define ANSI_NULL ((CHAR)0)
#define NT_SUCCESS(status) (((NTSTATUS)(status)) >= 0)
#define NT_INFORMATION(status) ((((ULONG)(status)) >> 30) == 1)
#define NT_WARNING(status) ((((ULONG)(status)) >> 30) == 2)
#define NT_ERROR(status) ((((ULONG)(status)) >> 30) == 3)

typedef union _LARGE_INTEGER {
  struct {
    ULONG LowPart;
    LONG HighPart;
  };
  struct {
    ULONG LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef LARGE_INTEGER PHYSICAL_ADDRESS, *PPHYSICAL_ADDRESS;

typedef struct _LIST_ENTRY {
  struct _LIST_ENTRY* Flink;
  struct _LIST_ENTRY* Blink;
} LIST_ENTRY, *PLIST_ENTRY;

typedef struct _UNICODE_STRING {
  USHORT Length;         // bytes, without a terminator
  USHORT MaximumLength;  // bytes
  PWSTR Buffer;
} UNICODE_STRING, *PUNICODE_STRING;
typedef const UNICODE_STRING* PCUNICODE_STRING;

typedef struct _STRING {
  USHORT Length;
  USHORT MaximumLength;
  PCHAR Buffer;
} STRING, *PSTRING, ANSI_STRING, *PANSI_STRING;
typedef const STRING* PCANSI_STRING;

#define DECLARE_CONST_UNICODE_STRING(name, text) \
  const WCHAR name##_buffer[] = text;            \
  const UNICODE_STRING name = {sizeof(text) - sizeof(WCHAR), sizeof(text), const_cast<PWSTR>(name##_buffer)}

typedef struct _OBJECT_ATTRIBUTES {
  ULONG Length;
  HANDLE RootDirectory;
  PUNICODE_STRING ObjectName;
  ULONG Attributes;
  PVOID SecurityDescriptor;
  PVOID SecurityQualityOfService;
} OBJECT_ATTRIBUTES, *POBJECT_ATTRIBUTES;

#define OBJ_CASE_INSENSITIVE 0x00000040
#define OBJ_KERNEL_HANDLE 0x00000200
#define InitializeObjectAttributes(attributes, name, flags, root, security) \
  do {                                                                      \
    (attributes)->Length = sizeof(OBJECT_ATTRIBUTES);                       \
    (attributes)->RootDirectory = (root);                                   \
    (attributes)->Attributes = (flags);                                     \
    (attributes)->ObjectName = (name);                                      \
    (attributes)->SecurityDescriptor = (security);                          \
    (attributes)->SecurityQualityOfService = nullptr;                       \
  } while (0)

#define RtlCopyMemory(destination, source, length) memcpy((destination), (source), (length))
#define RtlMoveMemory(destination, source, length) memmove((destination), (source), (length))
#define RtlFillMemory(destination, length, fill) memset((destination), (fill), (length))
#define RtlZeroMemory(destination, length) memset((destination), 0, (length))
#define RtlEqualMemory(first, second, length) (memcmp((first), (second), (length)) == 0)
