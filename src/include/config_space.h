// How a configuration register is addressed and what an access returns. Shared by everything that reads or writes one.
#pragma once
#include <cstdint>

#include "include/bits.h"
#include "include/status.h"

// A router's place in the topology: byte k is the downstream adapter taken at depth k; 0 is the host router.
using USB4_ROUTE = std::uint64_t;

enum USB4_CFG_SPACE : std::uint32_t {
  USB4_CFG_SPACE_PATH = 0,
  USB4_CFG_SPACE_ADAPTER = 1,
  USB4_CFG_SPACE_ROUTER = 2,
  USB4_CFG_SPACE_COUNTERS = 3,
};

inline const char* TraceWord(USB4_CFG_SPACE space) {
  constexpr const char* kWords[] = {"path", "adapter", "router", "counters"};
  return kWords[space & 3u];
}

// Packet types on the control ring. Of those without a name each goes to the outstanding requests, and no further.
enum USB4_PDF : std::uint32_t {
  USB4_PDF_READ = 1,
  USB4_PDF_WRITE = 2,
  USB4_PDF_NOTIFICATION = 3,
  USB4_PDF_HOT_PLUG = 5,
  USB4_PDF_XDOMAIN_REQUEST = 6,
  USB4_PDF_XDOMAIN_RESPONSE = 7,
  // Received only: 8 and 9 are taken like answers, 10 like a hot-plug event.
  USB4_PDF_ANSWER_8 = 8,
  USB4_PDF_ANSWER_9 = 9,
  USB4_PDF_EVENT_10 = 10,
  // Between this driver and a connection manager in the host router's firmware.
  USB4_PDF_FIRMWARE_REQUEST = 11,
  USB4_PDF_FIRMWARE_RESPONSE = 12,
};

// For traces, of any value that a packet may carry.
inline const char* PacketTypeName(std::uint32_t pdf) {
  constexpr const char* kNames[] = {"0",
                                    "read",
                                    "write",
                                    "notification",
                                    "4",
                                    "hot plug",
                                    "inter-domain request",
                                    "inter-domain response",
                                    "8",
                                    "9",
                                    "10",
                                    "firmware request",
                                    "firmware response",
                                    "13",
                                    "14",
                                    "15"};
  return kNames[pdf & 15u];
}

// Dword 2 of every read and write request and of their answers.
struct USB4_CFG_ADDRESS {
  using Offset = Bits<0, 13>;  // of the first register, in dwords
  using Length = Bits<13, 6>;  // dwords, 1 to 63
  using Adapter = Bits<19, 6>;
  using Space = Bits<25, 2>;
  using Sequence = Bits<27, 2>;  // attempt number modulo 4
  using Reserved = Bits<29, 3>;
  std::uint32_t Word;
};

// Registers `Offset` to `Offset + Length - 1` of one space, in dwords. The offset keeps 64 bits, so that an offset that
// no capability can have is refused when the answer is checked instead of wrapping to an innocent one.
struct USB4_REGISTER_RANGE {
  USB4_CFG_SPACE Space;
  std::uint64_t Offset;
  std::uint32_t Length;
};

struct USB4_CFG_TARGET {
  USB4_ROUTE Route;
  std::uint32_t Adapter;
  USB4_REGISTER_RANGE Range;
};

struct USB4_CFG_RESULT {
  USB4_ROUTE Route;
  std::uint32_t Adapter;  // through which the answer came
  KIV_RESULT Err;         // 0, kKivErrorPacket, -1, -4, -5 or -258
  std::int32_t Code;      // of an error packet, sign-extended from 4 bits; else 0
};
