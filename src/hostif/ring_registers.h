// The host interface's registers in BAR0: where they are and what their words hold. Any IRQL.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/bits.h"
#include "include/host_interface_record.h"
#include "include/ring_record.h"

// Per ring: 16 bytes apart by hop.
inline constexpr std::uint32_t kTransmitRingBase = 0x00000;
inline constexpr std::uint32_t kReceiveRingBase = 0x08000;
inline constexpr std::uint32_t kRingStride = 16;
inline constexpr std::uint32_t kRingTableLow = 0x0;
inline constexpr std::uint32_t kRingTableHigh = 0x4;
inline constexpr std::uint32_t kRingIndex = 0x8;
inline constexpr std::uint32_t kRingSize = 0xC;
// Per ring: 32 bytes apart by hop.
inline constexpr std::uint32_t kTransmitControlBase = 0x19800;
inline constexpr std::uint32_t kReceiveControlBase = 0x29800;
inline constexpr std::uint32_t kControlStride = 32;
inline constexpr std::uint32_t kControlWord = 0x0;
inline constexpr std::uint32_t kControlPdfMasks = 0x4;
// Interrupts: one bit, or one nibble, per ring; a transmit ring's number is its hop, a receive ring's hop count + hop.
inline constexpr std::uint32_t kInterruptStatusBase = 0x37800;  // reading a dword clears it
inline constexpr std::uint32_t kInterruptMaskBase = 0x38200;
inline constexpr std::uint32_t kThrottlingBase = 0x38C00;
inline constexpr std::uint32_t kThrottlingCount = 16;
inline constexpr std::uint32_t kThrottlingInterval = 500;  // units of 256 ns
inline constexpr std::uint32_t kVectorBase = 0x38C40;      // the message that a ring's interrupt raises
inline constexpr std::uint32_t kCapabilities = 0x39640;

struct RingIndexWord {
  using Consumer = Bits<0, 16>;   // receive rings
  using Producer = Bits<16, 16>;  // transmit rings
};

struct RingSizeWord {
  using Descriptors = Bits<0, 16>;
  using BufferSize = Bits<16, 12>;  // bytes, receive rings; 0 means 4096
};
inline constexpr std::uint32_t kRawBufferSize = 0x100;

struct RingControlWord {
  using EndToEndHop = Bits<12, 11>;
  using EndToEnd = Bit<28>;
  using RawMode = Bit<30>;
  using Valid = Bit<31>;
};

struct RingPdfMaskWord {
  using End = Bits<0, 16>;
  using Start = Bits<16, 16>;
};

struct DescriptorAttributes {
  using Size = Bits<0, 12>;
  using EndPdf = Bits<12, 4>;
  using StartPdf = Bits<16, 4>;
  using Status = Bits<20, 12>;
  using Done = Bit<21>;
  static constexpr std::uint32_t kPosted = 0xC00000;  // bits 22 and 23: report completion, raise the interrupt
};

struct CapabilitiesWord {
  using HopCount = Bits<0, 10>;
};

[[nodiscard]] inline std::uint32_t RingRegister(const USB4_RING& ring, std::uint32_t which) {
  const std::uint32_t base = ring.IsTransmit ? kTransmitRingBase : kReceiveRingBase;
  return base + kRingStride * static_cast<std::uint32_t>(ring.Hop) + which;
}

[[nodiscard]] inline std::uint32_t RingControlRegister(const USB4_RING& ring, std::uint32_t which) {
  const std::uint32_t base = ring.IsTransmit ? kTransmitControlBase : kReceiveControlBase;
  return base + kControlStride * static_cast<std::uint32_t>(ring.Hop) + which;
}

// Of a ring's number, the dword that holds its bit; reading it clears it.
[[nodiscard]] inline std::uint32_t InterruptStatusRegister(std::uint32_t number) {
  return kInterruptStatusBase + 4 * (number / 32);
}

// The number that a ring has in the status, mask and vector registers.
[[nodiscard]] inline std::uint32_t RingInterrupt(const USB4_RING& ring) {
  const std::uint32_t hop = static_cast<std::uint32_t>(ring.Hop);
  return ring.IsTransmit ? hop : ring.HostInterface->HopCount + hop;
}
