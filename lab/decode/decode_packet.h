// Control packets from the bench, explained field by field.
#pragma once
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "lab/input/console.h"
#include "lab/input/hex_file.h"
#include "lab/machine/run_report.h"

namespace lab {

struct DecodedFields {
  std::string title;                                        // "read request, 12 bytes, CRC good"
  std::vector<std::pair<std::string, std::string>> fields;  // name, value with its meaning
  std::vector<std::string> faults;                          // what is wrong with it; empty for a good packet
};

// `title`, then every field, then what is wrong.
void PrintDecoded(const Console& console, const std::string& title, const DecodedFields& decoded);

// The type is taken from `line.pdf`, or else guessed from the words and said to be a guess.
DecodedFields DecodePacketLine(const HexLine& line);

// Prints every packet of a file. Failed when one of them is bad; InputError for a file that is no hex.
ExitCode DecodePackets(const std::string& file, const Console& console);

}  // namespace lab
