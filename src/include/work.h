// What travels to work items: their context, and the event records of the connection manager's.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include <cstddef>
#include <cstdint>

#include "include/config_space.h"
#include "include/list.h"
#include "include/pool.h"

struct USB4_DOMAIN;

// The context of every work item. Main item: the device context and the node queued last; generic items: the object the
// work is for and its argument, overwritten by the next request.
struct KIV_USB4_WORKER_ITEM_CONTEXT {
  void* Owner;
  void* Data;
};

WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(KIV_USB4_WORKER_ITEM_CONTEXT, WorkItemContextOf)

// A hot-plug notification, decoded.
struct USB4_HOTPLUG_EVENT {
  static constexpr ULONG kPoolTag = PoolTag("hot1");

  USB4_DOMAIN* Domain;
  USB4_ROUTE Route;  // of the router that reported it
  std::uint8_t Adapter;
  std::uint8_t Unplug;
};

struct USB4_EVENT_NODE {
  static constexpr ULONG kPoolTag = PoolTag("Tag2");

  USB4_HOTPLUG_EVENT* Event;
  LIST_ENTRY Link;
};

using EventNodeList = ListView<USB4_EVENT_NODE, offsetof(USB4_EVENT_NODE, Link), By<LockPlace::WorkList>>;
