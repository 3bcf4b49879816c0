// Paths: chains of hops, each of which enters a router on one adapter with one hop ID and leaves it on another adapter
// with another. Created, changed and destroyed only under the domain's path lock. Every record is valid when all zero.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/bits.h"
#include "include/pool.h"

struct USB4_DOMAIN;
struct USB4_PORT;

// Where something starts and where it ends; either may be null where an operation says so.
struct USB4_ENDS {
  USB4_PORT* Source;
  USB4_PORT* Destination;
};

// Which hops of a path a mask speaks of.
inline constexpr std::uint32_t kFirstHop = 1;
inline constexpr std::uint32_t kInnerHops = 2;
inline constexpr std::uint32_t kLastHop = 4;

inline constexpr std::int32_t kNoCounter = -1;

struct USB4_HOP {
  USB4_PORT* InputAdapter;  // null, like the output adapter, until its hop ID is reserved
  USB4_PORT* OutputAdapter;
  std::uint32_t InputHopId;
  std::int32_t CounterIndex;  // kNoCounter on every path built here
  std::uint32_t OutputHopId;
  std::uint32_t InitialCredits;  // the low 8 bits are written
};

struct USB4_PATH {
  static constexpr ULONG kPoolTag = PoolTag("PAH1");
  static constexpr ULONG kDiscoveredTag = PoolTag("DIS1");
  static constexpr ULONG kHopsTag = PoolTag("HOP1");

  // Fields of PriorityWeight.
  using Priority = Bits<0, 3>;
  using Weight = Bits<3, 4>;

  USB4_DOMAIN* Owner;
  const char* Name;         // a constant text
  std::int32_t NfcCredits;  // added to the non-flow-controlled buffers of each input adapter while the path is active
  // Masks of hops. A hop reads the ingress masks by the first bit when it is the first and by the inner one otherwise,
  // the egress masks by the last bit when it is the last and by the inner one otherwise.
  std::uint32_t IngressSharedBuffering;
  std::uint32_t EgressSharedBuffering;
  std::uint32_t IngressFlowControl;
  std::uint32_t EgressFlowControl;
  std::uint32_t PriorityWeight;
  std::uint8_t DropPackets;
  std::uint8_t Active;            // the hardware carries it
  std::uint8_t ClearFlowControl;  // when it is switched off
  std::uint8_t Discovered;        // allocated with kDiscoveredTag
  USB4_HOP* Hops;                 // from the source adapter to the destination adapter
  std::uint32_t HopCount;
};
