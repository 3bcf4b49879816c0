// Property blocks as they travel.
#include "sim/peer/property_block.h"

namespace sim {
namespace {

constexpr std::uint32_t kRootMark = 0x55584401;
constexpr std::size_t kEntryWords = 4;

std::uint32_t Characters(const std::string& text, std::size_t first) {
  std::uint32_t word = 0;
  for (std::size_t i = first; i < first + 4; ++i) {
    word = word << 8 | (i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0u);
  }
  return word;
}

// A text always has room for the zero behind it.
std::vector<std::uint32_t> TextWords(const std::string& text) {
  std::vector<std::uint32_t> words;
  for (std::size_t first = 0; first <= text.size(); first += 4) words.push_back(Characters(text, first));
  return words;
}

std::vector<std::uint32_t> ValueWords(const Property& property) {
  if (property.text) return TextWords(*property.text);
  return property.data.value_or(std::vector<std::uint32_t>());
}

std::size_t HeaderAndEntries(const PropertyDirectory& directory) {
  return (directory.uuid ? 4 : 2) + kEntryWords * directory.properties.size();
}

std::size_t ValuesAndSpares(const PropertyDirectory& directory) {
  std::size_t words = 0;
  for (const Property& property : directory.properties) {
    words += ValueWords(property).size() + property.directory.size();
  }
  return words;
}

void Append(std::vector<std::uint32_t>& block, const PropertyDirectory& directory) {
  const std::size_t start = block.size();
  std::size_t entry = start + (directory.uuid ? 4 : 2), value = start + HeaderAndEntries(directory);
  block.resize(value + ValuesAndSpares(directory));
  const Uuid root{kRootMark, static_cast<std::uint32_t>(HeaderAndEntries(directory) - 2), 0, 0};
  for (std::size_t i = 0; start + i < entry; ++i) block[start + i] = directory.uuid.value_or(root)[i];
  for (const Property& property : directory.properties) {
    const std::vector<std::uint32_t> words = ValueWords(property);
    char type = 'v';
    std::size_t length = 1, at = property.number;
    if (property.text || property.data) {
      type = property.text ? 't' : 'd', length = words.size(), at = value;
      for (std::uint32_t word : words) block[value++] = word;
    }
    if (!property.directory.empty()) {
      type = 'D', length = HeaderAndEntries(property.directory.front()), at = block.size();
      Append(block, property.directory.front());
    }
    block[entry++] = Characters(property.key, 0);
    block[entry++] = Characters(property.key, 4);
    block[entry++] = static_cast<std::uint32_t>(type) << 24 | static_cast<std::uint32_t>(length & 0xFFFF);
    block[entry++] = static_cast<std::uint32_t>(at);
  }
}

}  // namespace

std::vector<std::uint32_t> PropertyBlockOf(const PropertyDirectory& root) {
  std::vector<std::uint32_t> block;
  Append(block, root);
  return block;
}

}  // namespace sim
