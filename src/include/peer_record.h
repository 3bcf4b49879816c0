// A peer host and what is known of it. Made under the run lock; references keep it: one of the adapter that faces it,
// one of each work item of its own that is queued or runs, one of whoever has found it. Valid when all zero but for its
// locks and event.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include <cstdint>

#include "include/atomic.h"
#include "include/guarded.h"
#include "include/locks.h"
#include "include/pool.h"
#include "include/property.h"
#include "include/router_record.h"

struct USB4_NET;

// How far a peer has been discovered. In any other state than these nothing happens.
enum USB4_XDOMAIN_STATE : std::int32_t {
  USB4_XDOMAIN_INIT = 0,
  USB4_XDOMAIN_LINK_STATUS = 1,
  USB4_XDOMAIN_UUID = 2,
  USB4_XDOMAIN_LINK_STATE_CHANGE = 3,
  USB4_XDOMAIN_LINK_STATUS2 = 4,
  USB4_XDOMAIN_BONDING_UUID_LOW = 5,
  USB4_XDOMAIN_BONDING_UUID_HIGH = 6,
  USB4_XDOMAIN_PROPERTIES = 7,
  USB4_XDOMAIN_ENUMERATED = 8,
  USB4_XDOMAIN_ERROR = 9,
};

inline constexpr std::uint32_t kMacAddressBytes = 6;

struct USB4_XDOMAIN {
  static constexpr ULONG kPoolTag = PoolTag("XDM1");
  static constexpr ULONG kNameTag = PoolTag("XDN1");
  static constexpr ULONG kBlockTag = PoolTag("XDB1");

  USB4_SWITCH_INFO Info;  // the router whose adapter leads to the peer, and the name
  USB4_DOMAIN* Domain;
  std::uint8_t* PeerUuid;  // kUuidBytes, or null until it is learnt
  std::uint8_t* OwnUuid;   // kUuidBytes, of the host router
  std::uint64_t Route;     // of the peer's host router in this domain
  std::uint16_t PeerVendorId;
  std::uint16_t PeerDeviceId;
  std::uint32_t InputHopLimit;   // highest input hop ID of the facing adapter
  std::uint32_t OutputHopLimit;  // highest hop ID that the peer takes
  char* PeerVendorName;          // NUL-terminated, or null
  char* PeerDeviceName;
  std::uint32_t LinkSpeed;  // of the facing adapter as last read, Gb/s per lane
  std::uint32_t LinkWidth;  // lanes
  SharedFlag Removed;       // known to be gone: its work stops
  SharedFlag UuidUnknown;
  SharedFlag UuidFailed;  // the discovery gave up before it knew a UUID
  SharedFlag BondLanes;   // two lanes may become one link
  Guarded<USB4_HOP_MAP, By<LockPlace::Topology>> InputHops;
  Guarded<USB4_HOP_MAP, By<LockPlace::Topology>> OutputHops;
  // The host's properties as served to this peer, in words.
  Guarded<std::uint32_t*, By<LockPlace::Peer>> Block;
  Guarded<std::uint32_t, By<LockPlace::Peer>> BlockGeneration;
  Guarded<std::uint32_t, By<LockPlace::Peer>> BlockWords;
  Guarded<USB4_PROPERTY_DIR*, By<LockPlace::Peer>> PeerProperties;  // as last read, or null
  Guarded<std::uint32_t, By<LockPlace::Peer>> PeerGeneration;
  WDFWORKITEM StateWork;
  AtomicLong RetryCount;          // attempts left in this state
  AtomicLong State;               // USB4_XDOMAIN_STATE
  AtomicLong RequestedLinkWidth;  // as the peer's request says it: 0 none yet, 1 one lane, 3 two
  WDFWORKITEM PropertiesChangedWork;
  AtomicLong PropertiesChangedRetryCount;
  std::uint8_t LinkKey;  // what a search by link and depth compares; never set
  std::uint8_t DepthKey;
  Mutex<LockPlace::Peer> Lock;
  Mutex<LockPlace::PeerNetwork> NetworkLock;  // networking comes up once
  KMUTEX SpareMutex;
  KEVENT NetworkReadyEvent;
  USB4_NET* Network;                      // null until the network device is created
  std::uint32_t EthernetControllerIndex;  // of its network device, from 1 up
  std::uint8_t MacAddress[kMacAddressBytes];
  SharedFlag NetworkOpen;      // both network rings exist
  SharedFlag EthernetPlugged;  // the network device has been asked for
  void* ConnectInformation;    // of the miniport; never followed
  USB4_PORT* FacingAdapter;    // set when the adapter takes the peer, before any work is queued, and kept
  SharedFlag Closing;          // no work is queued for it any more
  LIST_ENTRY ReapLink;
  Guarded<std::uint8_t, By<LockPlace::Topology>> IsToBeReaped;
  AtomicLong References;
};

inline void ReferencePeer(USB4_XDOMAIN* xdomain) {
  xdomain->References.Increment();
}
