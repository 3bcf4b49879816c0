// The property block of a host from the bench, explained entry by entry.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lab/decode/decode_packet.h"
#include "lab/input/console.h"

namespace lab {

// Each entry under its path, "/network/prtcid". Faults are what makes the driver refuse the block or the peer that
// sends it, each with its path and its word.
DecodedFields DecodePropertyBlock(const std::vector<std::uint32_t>& block);

// Prints the block that a file holds: hex digits as the block travels, four bytes a word, with or without spaces and
// line breaks. Failed when it is broken; InputError for a file that is no hex or no whole number of words.
ExitCode DecodeProperties(const std::string& file, const Console& console);

}  // namespace lab
