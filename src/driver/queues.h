// The device's I/O queues.
#pragma once
#include "include/device_context.h"

enum KIV_QUEUE_KIND : ULONG {
  KIV_QUEUE_DEVICE_CONTROL = 0,
  KIV_QUEUE_READ = 1,
  KIV_QUEUE_WRITE = 2,
  KIV_QUEUE_PENDING_CONNECTION = 3,  // connection requests of the network miniport
  KIV_QUEUE_PENDING_READ = 4,
  KIV_QUEUE_PENDING_SPARE = 5,  // created and emptied; nothing is put into it
  KIV_QUEUE_INTERNAL_DEVICE_CONTROL = 6,
};

// Creates one queue, stores it in the context and routes its requests to it.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS
    KivUsb4CreateQueue(WDFDEVICE device, DEVICE_EXTENSION* context, KIV_QUEUE_KIND kind);
// Creates all seven; the status of the first that fails.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] NTSTATUS CreateQueues(DEVICE_EXTENSION* context);
