// The DROM image of a router from the bench, explained field by field.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lab/decode/decode_packet.h"
#include "lab/input/console.h"

namespace lab {

// Faults are what makes the driver drop the image, each with its byte offset. What it only warns of, or never looks at,
// stands among the fields.
DecodedFields DecodeDromImage(const std::vector<std::uint8_t>& image);

// Prints the image that a file holds, in hex, with or without spaces and line breaks. Failed when it is broken;
// InputError for a file that is no hex.
ExitCode DecodeDrom(const std::string& file, const Console& console);

}  // namespace lab
