// The driver framework, version 1.33, as far as this driver uses it. Include <ntddk.h> first.
// The same header serves the Linux layer and the Windows compile check, so that the driver has one dialect only.
#pragma once

#ifndef DECLSPEC_ALIGN
#define DECLSPEC_ALIGN(x) alignas(x)
#endif
#ifndef POINTER_ALIGNMENT
#define POINTER_ALIGNMENT DECLSPEC_ALIGN(8)
#endif

#include "wdf_calls.h"
#include "wdf_init.h"

#define WDF_NO_HANDLE NULL
#define WDF_NO_OBJECT_ATTRIBUTES NULL
#define WDF_NO_SEND_OPTIONS NULL
#define WDF_NO_EVENT_CALLBACK NULL

// Relative time-outs are negative counts of 100 ns.
constexpr LONGLONG WDF_REL_TIMEOUT_IN_MS(ULONGLONG Time) {
  return -static_cast<LONGLONG>(Time * 10000);
}

// Typed contexts. The type's description is a constant that all translation units share, so the driver needs no
// writable global; it names itself as the unique type, by which the accessor finds the context.
#define WDF_TYPE_NAME_TO_TYPE_INFO(type) WDF_##type##_TYPE_INFO

#define WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(type, accessor)                                                    \
  inline constexpr WDF_OBJECT_CONTEXT_TYPE_INFO WDF_TYPE_NAME_TO_TYPE_INFO(type) = {                          \
      sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO), #type, sizeof(type), &WDF_TYPE_NAME_TO_TYPE_INFO(type), nullptr}; \
  inline type* accessor(WDFOBJECT Handle) {                                                                   \
    return static_cast<type*>(WdfObjectGetTypedContextWorker(Handle, &WDF_TYPE_NAME_TO_TYPE_INFO(type)));     \
  }

#define WDF_GET_CONTEXT_TYPE_INFO(type) (&WDF_TYPE_NAME_TO_TYPE_INFO(type))

#define WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(attributes, type) \
  ((attributes)->ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(type))

#define WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(attributes, type) \
  (WDF_OBJECT_ATTRIBUTES_INIT(attributes), WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(attributes, type))
