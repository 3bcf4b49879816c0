// Routers, their adapters, and the domain's list of devices. Created, changed and destroyed only under the domain's run
// lock; what the topology lock guards besides says so at its field. Every record is valid when all zero.
#pragma once
#include <ntddk.h>

#include <cstddef>
#include <cstdint>

#include "include/atomic.h"
#include "include/config_space.h"
#include "include/guarded.h"
#include "include/list.h"
#include "include/pool.h"
#include "include/registers.h"

struct USB4_DOMAIN;
struct USB4_SWITCH;
struct USB4_XDOMAIN;

inline constexpr std::uint32_t kHopIdCount = 44;  // hop IDs that an adapter's maps cover, 0 to 43
inline constexpr std::uint32_t kAdapterSlotCount = 6;
inline constexpr std::uint32_t kUuidBytes = 16;
inline constexpr std::uint32_t kRouterNameChars = 32;  // with the NUL
inline constexpr std::uint32_t kUuidTag = PoolTag("UID1");
inline constexpr std::uint32_t kUsb4VersionOfUsb4Routers = 0x20;  // version bytes below it: Thunderbolt 3

// A path of the diagnostics tree.
struct USB4_PATH_TEXT {
  static constexpr ULONG kPoolTag = PoolTag("Tag7");

  char Text[260];
};

inline constexpr std::uint8_t kPortSecondLane = 1;
inline constexpr std::uint8_t kPortLaneEntry = 2;

struct USB4_HOP_MAP {
  std::uint8_t InUse[kHopIdCount];  // 1: in use
};

struct USB4_PORT {
  static constexpr ULONG kPoolTag = PoolTag("POR1");

  std::uint32_t Header[kAdapterHeaderDwords];  // ADP_CS_0 to ADP_CS_7 as read
  USB4_SWITCH* Router;
  Guarded<USB4_PORT*, TopologyGuard> Remote;  // the adapter at the other end of the link, or null
  std::uint8_t Number;
  // Offsets in adapter space of the capabilities; 0: the adapter has none.
  std::uint32_t LaneCapability;
  std::uint32_t TmuCapability;
  std::uint32_t ProtocolCapability;
  std::uint32_t Usb4PortCapability;
  std::uint8_t Disabled;       // by the router's DROM, or because its header cannot be read
  std::uint8_t Bonded;         // on both lane adapters of a link while its lanes are bonded
  USB4_PORT* DualLinkPartner;  // the other lane adapter of the link, or null
  // kPortSecondLane: lane 1 of its link; kPortLaneEntry: so its DROM entry says, not the default
  std::uint8_t Flags;
  Guarded<USB4_HOP_MAP, By<LockPlace::Path>> InputHops;
  Guarded<USB4_HOP_MAP, By<LockPlace::Path>> OutputHops;
  LIST_ENTRY DpResourceLink;
  void* Slots[kAdapterSlotCount];  // cleared, compared, never followed
  USB4_PATH_TEXT* RegistersText;   // diagnostics: each of the three may be null
  USB4_PATH_TEXT* PathsText;
  USB4_PATH_TEXT* CountersText;
  Guarded<USB4_XDOMAIN*, By<LockPlace::Topology>> XDomain;  // the peer host behind a lane adapter, or null

  std::uint32_t Type() const { return AdpCs2::Value(Header[AdpCs2::kOffset]).Get<AdpCs2::Type>(); }
  bool IsSecondLane() const { return (Flags & kPortSecondLane) != 0; }
  bool HasLaneEntry() const { return (Flags & kPortLaneEntry) != 0; }
};

// Copied as one block into the device list.
struct USB4_SWITCH_INFO {
  USB4_SWITCH* Parent;  // one level nearer the host, or null; whose record this is in holds a reference
  char Name[kRouterNameChars];
};

struct USB4_SWITCH {
  static constexpr ULONG kPoolTag = PoolTag("SWI1");
  static constexpr ULONG kVendorNameTag = PoolTag("VEN1");
  static constexpr ULONG kDeviceNameTag = PoolTag("DEV1");
  static constexpr ULONG kDromTag = PoolTag("ROM1");

  USB4_SWITCH_INFO Info;
  USB4_DOMAIN* Domain;
  USB4_PORT* Adapters;                        // 0 to the maximum adapter number; 0 is the control adapter
  std::uint32_t Header[kRouterHeaderDwords];  // ROUTER_CS_0 to ROUTER_CS_4; route, depth, upstream adapter live here
  std::uint32_t TmuCapability;                // offset in router space; 0: none
  std::uint8_t TmuUniCapable;
  std::uint32_t TmuRate;  // 0 off, 16 HiFi, 1000 normal
  std::uint8_t TmuUniMode;
  std::uint64_t Uid;
  Guarded<std::uint8_t*, TopologyGuard> Uuid;  // kUuidBytes, or null; others copy it under the topology lock
  std::uint16_t DromVendorId;
  std::uint16_t DromModelId;
  char* VendorName;  // from the DROM, NUL-terminated, or null
  char* DeviceName;
  std::uint32_t LinkSpeed;                 // of the upstream link as last read, Gb/s per lane
  std::uint32_t LinkWidth;                 // lanes
  std::uint8_t Usb4Link;                   // the upstream link runs in USB4 mode
  std::uint32_t Generation;                // 1 to 3: Thunderbolt; 4: USB4
  std::uint32_t PlugEventsCapability;      // offset in router space; all ones: searched for in vain
  std::uint32_t LinkControllerCapability;  // likewise
  SharedFlag Unplugged;                    // known to be gone: every access fails at once
  std::uint8_t* Drom;                      // the image, or null
  std::uint32_t DromBytes;
  std::uint8_t AlreadyInitialised;  // always 0
  USB4_PATH_TEXT* RegistersText;    // diagnostics: router registers
  USB4_PATH_TEXT* MiscText;
  std::uint8_t OnFirmwarePcieTunnel;
  AtomicLong References;  // who holds the record: topology/router_reference.h
  Guarded<std::uint32_t, By<LockPlace::Topology>> Readers;
  // Routers that were behind this one and have left while it had readers, linked by NextKept.
  Guarded<USB4_SWITCH*, By<LockPlace::Topology>> KeptForReaders;
  USB4_SWITCH* NextKept;

  std::uint32_t MaximumAdapter() const { return RouterCs1::Value(Header[1]).Get<RouterCs1::MaximumAdapter>(); }
  std::uint32_t UpstreamAdapter() const { return RouterCs1::Value(Header[1]).Get<RouterCs1::UpstreamAdapter>(); }
  std::uint32_t Depth() const { return RouterCs1::Value(Header[1]).Get<RouterCs1::Depth>(); }
};

// One router that has been added, or one peer host. Stays on the list, marked removed, while a walk stands on it.
struct USB4_DEV_ENTRY {
  static constexpr ULONG kPoolTag = PoolTag("DEV2");

  USB4_SWITCH_INFO Info;
  std::uint64_t Route;    // of the router, or of the adapter behind which the peer sits
  std::uint8_t* Uuid;     // own copy, kUuidBytes, or null
  USB4_XDOMAIN* XDomain;  // a reference is held, likewise of the router
  USB4_SWITCH* Router;
  LIST_ENTRY Link;
  Guarded<std::uint8_t, By<LockPlace::Topology>> DirectoryCreated;  // the router's diagnostics directory exists
  Guarded<std::uint8_t, By<LockPlace::Topology>> Removed;           // gone for every lookup
  Guarded<std::uint32_t, By<LockPlace::Topology>> Walks;            // how many stand here
};

using DeviceList = ListView<USB4_DEV_ENTRY, offsetof(USB4_DEV_ENTRY, Link), By<LockPlace::Topology>>;
