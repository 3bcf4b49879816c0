// Requests of peers: kept in order on the receive path, answered one at a time in the device's generic work item.
#pragma once
#include <ntddk.h>

#include <cstddef>
#include <cstdint>

#include "include/control_channel_record.h"
#include "include/device_context.h"
#include "include/domain_record.h"
#include "include/list.h"
#include "include/pool.h"

// One request that waits for its answer.
struct USB4_XDP_HOLDER {
  static constexpr ULONG kPoolTag = PoolTag("XDH1");

  USB4_DOMAIN* Domain;
  LIST_ENTRY Link;
  std::uint32_t Packet[kControlBufferBytes / 4];  // what the packet lacks reads as zero
};

using HolderList = ListView<USB4_XDP_HOLDER, offsetof(USB4_XDP_HOLDER, Link), By<LockPlace::PeerRequests>>;

// Keeps a copy of the packet and queues the work. False for an empty packet, without memory, and while 256 requests
// wait: a peer that behaves has no more than a few.
_IRQL_requires_max_(DISPATCH_LEVEL)
    [[nodiscard]] bool KivUsb4XdpScheduleRequest(USB4_DOMAIN* domain, const std::uint32_t* packet, std::uint32_t bytes);
// While one of these lives, requests are kept and not answered: a wait for the answering to end would not end while a
// peer keeps asking.
class RequestPause {
 public:
  _IRQL_requires_max_(PASSIVE_LEVEL) explicit RequestPause(DEVICE_EXTENSION* context);
  ~RequestPause();
  RequestPause(const RequestPause&) = delete;
  RequestPause& operator=(const RequestPause&) = delete;

 private:
  DEVICE_EXTENSION* context_;
};
// Makes the list of a device ready, and empties it when nobody answers any more.
_IRQL_requires_max_(PASSIVE_LEVEL) void InitialisePeerRequests(DEVICE_EXTENSION* context);
_IRQL_requires_max_(PASSIVE_LEVEL) void DropPeerRequests(DEVICE_EXTENSION* context);
