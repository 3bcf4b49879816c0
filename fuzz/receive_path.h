// One input of the receive-path fuzzer: a hostile device and a host that must live through it.
#pragma once
#include <cstdint>
#include <span>
#include <string>

namespace fuzz {

// Starts a host with one router, lets the device do what `input` says, and removes the host again. Empty when all held;
// else one line that says what did not. Memory errors are the sanitizers' to find.
//
// Byte 0 is the seed of the interleaving (0: first come, first served). Then records, each of one byte whose low three
// bits are its kind, and operands; what the input lacks reads as zero:
//   0 packet       type, length, bytes                      as it is
//   1 packet       type, length, bytes                      a good CRC is added
//   2 answer       count, then count x (position, flip)     to the request sent last, bent, with a good CRC
//   3 read         space, offset, length                    the driver asks; nobody answers but record 2
//   4 time         milliseconds
//   5 lie          type, length, size, status, bytes        the descriptor says `size` (16 bits) and `status` (16 bits)
//   6 descriptor   index, dword                             of the receive ring, without any packet
//   7 interrupt    ring interrupt number (16 bits)
std::string RunReceivePath(std::span<const std::uint8_t> input);

}  // namespace fuzz
