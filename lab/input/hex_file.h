// Dumps from the bench: text files of hex digits.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lab {

struct HexLine {
  unsigned line = 0;
  std::optional<unsigned> pdf;  // a leading "pdf=N"
  std::vector<std::uint8_t> bytes;
};

// One packet a line: an optional "pdf=N", then pairs of hex digits with or without spaces. Empty lines and what follows
// a '#' are skipped. InputError (lab/input/input_file.h) with line and column for anything else.
std::vector<HexLine> ReadHexLines(const std::string& file);

// All bytes of such a file as words, each with its first byte in bits 31:24. InputError also for a file that holds
// none, or no whole number of words.
std::vector<std::uint32_t> ReadHexWords(const std::string& file);

}  // namespace lab
