// One input of the DROM fuzzer: a hub with a hostile image.
#pragma once
#include <cstdint>
#include <span>
#include <string>

namespace fuzz {

// Lets the driver have the image and compares what it takes from it with a reading of its own (fuzz/drom_reading.h).
// Empty when all held; else one line that says what did not. Memory errors are the sanitizers' to find.
//
// Byte 0 says how:
//   bits 2:0  0 to 4  the parser is given the image, which lies in a block of its own length
//             5, 6    the driver reads it out of the hub by router operations, then parses it
//             7       the hub is enumerated, unplugged and its host removed
//   bit 3     the length field is put right
//   bit 4     the CRC-32C is put right
//   bit 5     the CRC-8 is put right
//   bit 6     at its first read the length field shows with the bits of bytes 1 and 2 turned round (kinds 5 to 7)
// The image follows, up to its longest, 1036 bytes; one of less than 23 bytes is never given to the parser.
std::string RunDrom(std::span<const std::uint8_t> input);

}  // namespace fuzz
