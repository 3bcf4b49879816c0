// Bounded string formatting. Sizes are bytes, terminator included; STATUS_BUFFER_OVERFLOW leaves the text cut and
// terminated.
#pragma once
#include "ntdef.h"
#include "ntstatus.h"

#define NTSTRSAFE_MAX_CCH 2147483647

EXTERN_C_START

NTSTATUS RtlStringCbPrintfA(PSTR pszDest, size_t cbDest, PCSTR pszFormat, ...);
NTSTATUS RtlStringCbPrintfW(PWSTR pszDest, size_t cbDest, PCWSTR pszFormat, ...);

EXTERN_C_END
