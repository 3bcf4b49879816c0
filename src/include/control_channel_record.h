// The control channel on ring 0: packets, outstanding requests, and the channel itself.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include <cstddef>
#include <cstdint>

#include "include/atomic.h"
#include "include/config_space.h"
#include "include/locks.h"
#include "include/pool.h"
#include "include/ring_record.h"

struct USB4_CFG_REQUEST;
struct USB4_CTL;

inline constexpr std::uint32_t kControlRingSize = 10;      // descriptors, each direction
inline constexpr std::uint32_t kControlBufferBytes = 256;  // one packet and its CRC
inline constexpr std::uint32_t kControlMostBytes = 252;    // a packet without its CRC
inline constexpr std::uint32_t kControlCrcBytes = 4;
inline constexpr std::uint32_t kControlHeaderBytes = 12;  // route and address word
inline constexpr std::uint32_t kMostRegisterDwords = 63;  // what the length field can say

// One packet and its DMA buffer.
struct USB4_CTL_PKG {
  static constexpr ULONG kPoolTag = PoolTag("Tag9");

  USB4_CTL* Owner;
  std::uint32_t* Buffer;  // kControlBufferBytes; wire order on the ring, host order once received and checked
  USB4_RING_FRAME Frame;
  WDFCOMMONBUFFER CommonBuffer;

  std::uint32_t Bytes() const { return FrameWord::Size::Get(Frame.Word); }
  std::uint32_t Pdf() const { return FrameWord::EndPdf::Get(Frame.Word); }
};

// How far an outstanding request has come. Whoever moves it out of kRequestWaiting decides: answered, or timed out.
inline constexpr LONG kRequestWaiting = 0;
inline constexpr LONG kRequestCopying = 1;
inline constexpr LONG kRequestAnswered = 2;
inline constexpr LONG kRequestTimedOut = 3;

using USB4_REQUEST_ROUTINE = bool (*)(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet);

// One attempt of one operation. Held by its owner and by the request list, each with a reference: a channel that stops
// drops only the list's, so that a waiter times out on a live record.
struct USB4_CFG_REQUEST {
  static constexpr ULONG kPoolTag = PoolTag("Tag8");

  USB4_CTL* Channel;
  const std::uint32_t* Request;  // host order
  std::uint32_t RequestBytes;
  std::uint32_t RequestPdf;
  std::uint32_t* Response;  // null: nobody waits for an answer
  std::uint32_t ResponseBytes;
  std::uint32_t ResponsePdf;
  USB4_CFG_RESULT Result;
  USB4_REQUEST_ROUTINE Match;
  USB4_REQUEST_ROUTINE Copy;  // true wakes the waiter
  LIST_ENTRY Link;
  std::uint32_t Flags;  // bit 0: has been queued
  KEVENT Done;
  AtomicLong References;
  AtomicLong Progress;
  Guarded<std::uint8_t, By<LockPlace::Request>> OnList;
  // Here and not with the caller, because an answer may be copied in while the caller gives up.
  std::uint32_t RequestWords[3 + kMostRegisterDwords];
  std::uint32_t ResponseWords[3 + kMostRegisterDwords];
};

using RequestList = ListView<USB4_CFG_REQUEST, offsetof(USB4_CFG_REQUEST, Link), By<LockPlace::Request>>;

// Receives unsolicited packets, in host order. True: the packet is used up.
using USB4_EVENT_CALLBACK = bool (*)(void* context, std::uint32_t pdf, const std::uint32_t* packet,
                                     std::uint32_t bytes);

struct USB4_CTL {
  static constexpr ULONG kPoolTag = PoolTag("Tag4");

  USB4_HOST_INTERFACE* HostInterface;
  USB4_RING* TransmitRing;
  USB4_RING* ReceiveRing;
  USB4_CTL_PKG* ReceivePackets[kControlRingSize];
  USB4_EVENT_CALLBACK EventCallback;
  void* EventContext;  // the domain
  SharedFlag Running;
  _Guarded_by_(RequestLock) LIST_ENTRY RequestListHead;  // oldest first
  SpinLock<LockPlace::Request> RequestLock;
  // Held for one attempt of a configuration read or write. Requests to a peer host, acknowledgements and events do not
  // take it; neither does the stop of the channel.
  Mutex<LockPlace::Access> AccessLock;
  std::uint8_t XdomainUuid[16];
  std::uint8_t SecondUuid[16];

  RequestList Requests() { return RequestList(RequestListHead); }
};
