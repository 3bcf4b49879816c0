// One input of the peer fuzzer: a hostile block, or a hostile peer host behind a cable.
#pragma once
#include <cstdint>
#include <span>
#include <string>

namespace fuzz {

// Empty when all held; else one line that says what did not. Memory errors are the sanitizers' to find.
//
// Byte 0 is even: the bytes behind it are a property block, four to a word. The driver reads it; what it has read is
// formatted, and read again: both trees must format to the same words.
//
// Byte 0 is odd: a host with a peer behind it; bits 7:1 are the seed of the interleaving (0: first come, first served).
// Then records, each of one byte whose low three bits are its kind, and operands. Records 0 to 3 say what the peer
// answers to one request each; it is honest once they have run out. Records 4 to 6 happen at once, in turn.
//   0 answer    honest
//   1 none
//   2 bent      count, then count x (position, flip)       the honest answer with changed bytes and a good CRC
//   3 other     PDF, length, bytes                         whatever it is, with a good CRC
//   4 ask       length, bytes                              payload of a request: its type and what follows
//   5 packet    PDF, length, bytes                         whatever it is, with a good CRC
//   6 time      tenths of a second
std::string RunPeer(std::span<const std::uint8_t> input);

}  // namespace fuzz
