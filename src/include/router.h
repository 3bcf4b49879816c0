// Routers and their adapters, as the topology keeps them. Created, changed and destroyed only under the domain's run
// lock.
#pragma once
#include <ntddk.h>

#include <cstddef>
#include <cstdint>

#include "include/atomic.h"
#include "include/config_space.h"
#include "include/list.h"
#include "include/pool.h"

struct USB4_DOMAIN;
struct USB4_SWITCH;
struct USB4_XDOMAIN;

inline constexpr std::uint32_t kHopIdCount = 44;  // hop IDs an adapter's maps cover, 0 to 43
inline constexpr std::uint32_t kAdapterSlotCount = 6;
inline constexpr std::uint32_t kUuidBytes = 16;
inline constexpr std::uint32_t kRouterNameChars = 32;  // with the NUL
inline constexpr std::uint32_t kDiagnosticsTextChars = 260;

struct USB4_PORT {
  static constexpr ULONG kPoolTag = PoolTag("POR1");

  std::uint32_t Header[8];  // ADP_CS_0 to ADP_CS_7 as read
  USB4_SWITCH* Router;
  USB4_PORT* Remote;  // the adapter at the other end of the link, or null
  std::uint8_t Number;
  // Offsets in adapter space of the capabilities; 0: has none.
  std::uint32_t LaneCapability;
  std::uint32_t TmuCapability;
  std::uint32_t ProtocolCapability;
  std::uint32_t Usb4PortCapability;
  std::uint8_t Disabled;                // by the router's DROM
  std::uint8_t Bonded;                  // on both lane adapters of a link while its lanes are bonded
  USB4_PORT* DualLinkPartner;           // the other lane adapter of the link, or null
  std::uint8_t Flags;                   // bit 0: the second lane of its link
  std::uint8_t InputHops[kHopIdCount];  // 1: in use
  std::uint8_t OutputHops[kHopIdCount];
  LIST_ENTRY DpResourceLink;
  void* Slots[kAdapterSlotCount];
  char* DiagnosticsTexts[3];  // kDiagnosticsTextChars each, or null
  USB4_XDOMAIN* XDomain;      // the peer host behind a lane adapter, or null
};

inline constexpr std::uint8_t kPortSecondLane = 1;

// Copied as one block into the device list.
struct USB4_SWITCH_INFO {
  USB4_SWITCH* Parent;  // one level nearer the host, or null
  char Name[kRouterNameChars];
};

struct USB4_SWITCH {
  static constexpr ULONG kPoolTag = PoolTag("SWI1");
  static constexpr ULONG kUuidTag = PoolTag("UID1");
  static constexpr ULONG kVendorNameTag = PoolTag("VEN1");
  static constexpr ULONG kDeviceNameTag = PoolTag("DEV1");
  static constexpr ULONG kDromTag = PoolTag("ROM1");
  static constexpr ULONG kDiagnosticsTag = PoolTag("Tag7");

  USB4_SWITCH_INFO Info;
  USB4_DOMAIN* Domain;
  USB4_PORT* Adapters;      // 0 to the maximum adapter number
  std::uint32_t Header[5];  // ROUTER_CS_0 to ROUTER_CS_4; route, depth and upstream adapter live here
  std::uint32_t TmuCapability;
  std::uint8_t TmuUniCapable;
  std::uint32_t TmuRate;  // 0 off, 16 HiFi, 1000 normal
  std::uint8_t TmuUniMode;
  std::uint64_t Uid;
  std::uint8_t* Uuid;  // kUuidBytes, or null
  std::uint16_t DromVendorId;
  std::uint16_t DromModelId;
  char* VendorName;
  char* DeviceName;
  std::uint32_t LinkSpeed;  // Gb/s per lane of the upstream link, as last read
  std::uint32_t LinkWidth;  // lanes
  std::uint8_t Usb4Link;
  std::uint32_t Generation;                // 1 to 3: Thunderbolt; 4: USB4
  std::uint32_t PlugEventsCapability;      // of the vendor-specific block 1; all ones: searched for in vain
  std::uint32_t LinkControllerCapability;  // of the vendor-specific block 6; likewise
  SharedFlag Unplugged;                    // every access fails at once
  std::uint8_t* Drom;
  std::uint32_t DromBytes;
  std::uint8_t AlreadyInitialised;  // never set
  char* DiagnosticsTexts[2];
};
