// Reading a peer's property block, piece by piece. PASSIVE_LEVEL.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/control_channel_record.h"
#include "include/peer_record.h"
#include "include/property.h"
#include "include/status.h"

inline constexpr ULONG kReceivedBlockTag = PoolTag("XDR1");
using ReceivedBlock = PoolArray<std::uint32_t, kReceivedBlockTag>;

struct USB4_PEER_BLOCK {
  std::uint32_t* Words;  // the caller's to free, with kReceivedBlockTag
  std::uint32_t Generation;
};

// The block's length in words. Otherwise the error of a request; -22 for a piece that is too short, stands at another
// offset than was asked for or does not fit the total, for a total of 0, and when the peer goes; -7 for a total above
// 500 words; -12 without memory.
_IRQL_requires_max_(PASSIVE_LEVEL) [[nodiscard]] KIV_RESULT
    KivUsb4XdpPropertiesRequest(USB4_CTL* channel, const USB4_XDOMAIN* peer, LONG retryCount, USB4_PEER_BLOCK* block);
