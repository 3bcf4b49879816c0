// Walks the directories for paths and places; whether an entry fits, and what the block says of its host, is the
// driver's own code.
#include "lab/decode/decode_properties.h"

#include <fmt/format.h>
#include <ntddk.h>

#include <algorithm>
#include <optional>

#include "include/property.h"
#include "lab/machine/machine_config.h"
#include "platform/host/host_kernel.h"
#include "platform/host/simulation.h"
#include "xdomain/property_block.h"
#include "xdomain/property_tree.h"

namespace lab {
namespace {

using Words = std::vector<std::uint32_t>;

constexpr std::uint32_t kRootMark = 0x55584401;
constexpr std::size_t kRootHeader = 2, kHeader = 4, kEntry = 4;  // words
constexpr std::size_t kMostEntries = 500;
constexpr unsigned kMostNesting = 8;
constexpr std::size_t kPiece = 45, kShortestLastPiece = 3;  // words of a block in one packet
constexpr std::uint32_t kHighestDefaultHop = 15;

// What the driver takes from a block; nothing from one that it refuses.
struct DriverReading {
  bool accepted = false;
  std::optional<std::uint32_t> vendorId, deviceId, maxHop;
  std::optional<std::string> vendorName, deviceName;
};

DriverReading ReadTree(USB4_PROPERTY_DIR* root) {
  const auto number = [root](const char* key) -> std::optional<std::uint32_t> {
    const USB4_PROPERTY* entry = KivUsb4PropertyFind(root, key, USB4_PROPERTY_IMMEDIATE);
    return entry == nullptr ? std::nullopt : std::optional(entry->Value.Immediate);
  };
  const auto text = [root](const char* key) -> std::optional<std::string> {
    const USB4_PROPERTY* entry = KivUsb4PropertyFind(root, key, USB4_PROPERTY_TEXT);
    if (entry == nullptr) return std::nullopt;
    return entry->Value.Bytes == nullptr ? "" : reinterpret_cast<const char*>(entry->Value.Bytes);
  };
  return {true, number("vendorid"), number("deviceid"), number("maxhopid"), text("vendorid"), text("deviceid")};
}

DriverReading AskDriver(const Words& block) {
  platform::Simulation simulation{platform::SimulationOptions{}};
  platform::HostKernel kernel(simulation, platform::HostKernelOptions{});
  DriverReading reading;
  simulation.RunTask(&kernel, "parse", [&] {
    USB4_PROPERTY_DIR* root = KivUsb4PropertyParseDir(block.data(), static_cast<std::uint32_t>(block.size()));
    if (root == nullptr) return;
    reading = ReadTree(root);
    KivUsb4PropertyFreeDir(root);
  });
  return reading;
}

std::string Characters(const Words& words, std::size_t first, std::size_t count) {
  std::string bytes;
  for (std::size_t i = 0; i < 4 * count; ++i) {
    bytes += static_cast<char>(words[first + i / 4] >> (24 - 8 * (i % 4)) & 0xFF);
  }
  return Printable(bytes);
}

class BlockExplanation {
 public:
  explicit BlockExplanation(const Words& block) : block_(block) {}

  DecodedFields Go() {
    out_.title = fmt::format("property block, {} words", block_.size());
    if (Root()) Directory("/", kRootHeader, block_[1] / kEntry, 0);
    Transfer();
    Verdict();
    return std::move(out_);
  }

 private:
  template <class... Values>
  void Field(const std::string& name, fmt::format_string<Values...> text, Values&&... values) {
    out_.fields.emplace_back(name, fmt::format(text, std::forward<Values>(values)...));
  }
  template <class... Values>
  void Fault(fmt::format_string<Values...> text, Values&&... values) {
    out_.faults.push_back(fmt::format(text, std::forward<Values>(values)...));
  }

  bool Root() {
    if (block_.size() < kRootHeader) {
      Fault("{} words: the header of the root has {}", block_.size(), kRootHeader);
      return false;
    }
    if (block_[0] != kRootMark) Fault("word 0: 0x{:08x} where a block begins with 0x{:08x}", block_[0], kRootMark);
    if (block_[1] > block_.size()) {
      Fault("word 1: {} words of entries in the root, the block has {}", block_[1], block_.size());
    } else if (kRootHeader + block_[1] / kEntry * kEntry > block_.size()) {
      Fault("word 1: the root's entries end at word {}, the block has {}", kRootHeader + block_[1] / kEntry * kEntry,
            block_.size());
    } else {
      Field("/", "{} entries", block_[1] / kEntry);
    }
    return out_.faults.empty();
  }

  // `count` entries from word `first` on, all inside the block. `path` ends with a slash.
  void Directory(const std::string& path, std::size_t first, std::size_t count, unsigned nesting) {
    for (std::size_t at = first; at < first + count * kEntry; at += kEntry) {
      if (++entries_ > kMostEntries) {
        if (entries_ == kMostEntries + 1) Fault("word {}: more than {} entries in all", at, kMostEntries);
        return;
      }
      Entry(path, at, nesting);
    }
  }

  void Entry(const std::string& parent, std::size_t at, unsigned nesting) {
    const std::uint32_t type = block_[at + 2] >> 24, length = block_[at + 2] & 0xFFFF, value = block_[at + 3];
    const std::string path = parent + Characters(block_, at, 2);
    if (!KivUsb4PropertyEntryValid(&block_[at], static_cast<std::uint32_t>(block_.size()))) {
      if (type == USB4_PROPERTY_IMMEDIATE) {
        return Fault("word {}: {}: immediate of {} words, it has 1", at, path, length);
      }
      return Fault("word {}: {}: {} of {} words at word {}, the block has {}", at, path, Kind(type), length, value,
                   block_.size());
    }
    if ((block_[at + 2] & 0x00FF0000) != 0) Field(path, "reserved bits set: 0x{:08x}", block_[at + 2]);
    if (type == USB4_PROPERTY_IMMEDIATE) {
      Field(path, "immediate 0x{:x} ({})", value, value);
    } else if (type == USB4_PROPERTY_TEXT) {
      Field(path, "text \"{}\"", Characters(block_, value, length));
    } else if (type == USB4_PROPERTY_DATA) {
      Field(path, "data, {} words: {:08x}", length, fmt::join(Slice(value, length), " "));
    } else if (type == USB4_PROPERTY_DIRECTORY) {
      Subdirectory(path, at, value, length, nesting + 1);
    } else {
      Field(path, "{}, ignored", Kind(type));
    }
  }

  void Subdirectory(const std::string& path, std::size_t at, std::size_t place, std::size_t length, unsigned nesting) {
    if (length < kHeader) {
      return Fault("word {}: {}: directory of {} words, its header has {}", at, path, length, kHeader);
    }
    if (nesting > kMostNesting) {
      return Fault("word {}: {}: nested more than {} directories deep", at, path, kMostNesting);
    }
    const std::size_t count = (length - kHeader) / kEntry;
    Field(path, "directory, {} entries, UUID {:08x}", count, fmt::join(Slice(place, kHeader), "-"));
    Directory(path + "/", place + kHeader, count, nesting);
  }

  static std::string Kind(std::uint32_t type) {
    if (type == USB4_PROPERTY_DIRECTORY) return "directory";
    if (type == USB4_PROPERTY_DATA) return "data";
    if (type == USB4_PROPERTY_TEXT) return "text";
    return fmt::format("unknown type 0x{:02x}", type);
  }

  Words Slice(std::size_t first, std::size_t count) const {
    const auto from = block_.begin() + static_cast<std::ptrdiff_t>(first);
    return Words(from, from + static_cast<std::ptrdiff_t>(count));
  }

  // What stands in the way of the block before it is whole at the other end.
  void Transfer() {
    if (block_.size() > kMostPropertyWords) {
      Fault("{} words: the driver takes at most {}", block_.size(), kMostPropertyWords);
    }
    const std::size_t last = block_.size() % kPiece;
    if (last != 0 && last < kShortestLastPiece) {
      Fault("{} words: the last piece has {}, and the driver takes no response with less than {}", block_.size(), last,
            kShortestLastPiece);
    }
  }

  void Verdict() {
    const DriverReading reading = AskDriver(block_);
    if (!reading.accepted) {
      Field("the driver", "refuses this block");
      if (out_.faults.empty()) Fault("the driver refuses this block");
      return;
    }
    for (const auto& [key, number] : {std::pair{"vendorid", reading.vendorId}, {"deviceid", reading.deviceId}}) {
      if (!number) Fault("no immediate {} in the root: the driver refuses a host without one", key);
    }
    if (!reading.vendorId || !reading.deviceId) return;
    Field("the driver", "takes vendor 0x{:04x} \"{}\", device 0x{:04x} \"{}\", hop IDs up to {}",
          *reading.vendorId & 0xFFFF, Printable(reading.vendorName.value_or("")), *reading.deviceId & 0xFFFF,
          Printable(reading.deviceName.value_or("")), reading.maxHop.value_or(kHighestDefaultHop));
    if (!reading.vendorName || !reading.deviceName) Field("networking", "none with this host: both names are needed");
  }

  const Words& block_;
  std::size_t entries_ = 0;
  DecodedFields out_;
};

}  // namespace

DecodedFields DecodePropertyBlock(const std::vector<std::uint32_t>& block) {
  return BlockExplanation(block).Go();
}

ExitCode DecodeProperties(const std::string& file, const Console& console) {
  const DecodedFields decoded = DecodePropertyBlock(ReadHexWords(file));
  PrintDecoded(console, decoded.title, decoded);
  return decoded.faults.empty() ? ExitCode::Held : ExitCode::Failed;
}

}  // namespace lab
