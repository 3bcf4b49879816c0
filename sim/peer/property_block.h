// Property blocks as they travel: a tree of named values laid out in words.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/host/inter_domain_packet.h"

namespace sim {

struct PropertyDirectory;

// One named value. Of the four kinds exactly one is meant: a directory, data, a text, else the number.
struct Property {
  std::string key;  // at most 8 characters
  std::uint32_t number = 0;
  std::optional<std::string> text;
  std::optional<std::vector<std::uint32_t>> data;
  std::vector<PropertyDirectory> directory;  // none or one
};

struct PropertyDirectory {
  std::optional<Uuid> uuid;  // none: the root
  std::vector<Property> properties;
};

// Header and entries of a directory first, then its texts and data, a word to spare for each directory in it, and these
// directories.
std::vector<std::uint32_t> PropertyBlockOf(const PropertyDirectory& root);

}  // namespace sim
