// A router model as data: what a file in models/ says. Parsed once, shared by every router of that model.
#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sim/host/host_device.h"
#include "sim/router/protocol_facts.h"

namespace sim {

inline constexpr std::uint32_t kTypeInactive = 0x000000;
inline constexpr std::uint32_t kTypeLane = 0x000001;
inline constexpr std::uint32_t kTypeHostInterface = 0x000002;
inline constexpr std::uint32_t kTypeDpIn = 0x0E0101;
inline constexpr std::uint32_t kTypeDpOut = 0x0E0102;
inline constexpr std::uint32_t kTypePcieDown = 0x100101;
inline constexpr std::uint32_t kTypePcieUp = 0x100102;
inline constexpr std::uint32_t kTypeUsb3Down = 0x200101;
inline constexpr std::uint32_t kTypeUsb3Up = 0x200102;

// One entry of a capability list. The list order is the order in the file unless `next` says otherwise.
struct CapabilityModel {
  unsigned id = 0;
  unsigned offset = 0;
  unsigned vsec = 0;                 // vendor-specific only
  unsigned length = 0;               // dwords, 0: what the kind needs
  bool longForm = false;             // vendor-specific with its length and next pointer in the second dword
  std::optional<unsigned> next;      // hostile lists: loops, offsets out of range
  std::vector<std::uint32_t> words;  // values of the dwords after the header
};

enum class AdapterPresence { Implemented, DisabledByDrom, NotImplemented };

struct AdapterModel {
  unsigned number = 0;
  AdapterPresence presence = AdapterPresence::Implemented;
  std::uint32_t type = kTypeInactive;
  unsigned hop = 0;  // highest input and output hop ID
  unsigned counterSets = 0;
  std::uint32_t bufferWord = 0;  // ADP_CS_4 after reset
  bool eventAtStart = false;     // raises a plug event some milliseconds after the router is configured
  unsigned lane = 0;             // lane adapters: 0 or 1
  unsigned pair = 0;             // lane adapters: number of the other lane, 0 for none
  unsigned usb3Scale = 0;        // of the bandwidth registers of a USB3 adapter
  unsigned usb3RateMbps = 20000;
  DpRate dpLink;  // what a DP adapter itself can do
  std::vector<CapabilityModel> capabilities;
};

struct DromModel {
  bool present = false;
  unsigned version = 3;  // 1 Thunderbolt format, 3 USB4 format
  std::uint16_t vendorId = 0;
  std::uint16_t modelId = 0;
  std::string vendorName;
  std::string deviceName;
  std::vector<std::vector<std::uint8_t>> entries;  // as they stand in the image; none: made from the adapters
  std::vector<std::string> faults;                 // "crc-8", "crc-32", "length": what is wrong with the image
};

struct RouterModel {
  std::string name;
  bool host = false;  // has a host interface
  std::uint16_t vendor = 0x8086;
  std::uint16_t device = 0;
  std::uint8_t revision = 0;
  std::uint8_t usb4Version = 0;  // 0x20 or more: USB4 router
  unsigned upstream = 0;         // host: the host interface adapter; device: the usual upstream adapter
  unsigned maxAdapter = 0;
  unsigned notificationMs = 10;
  std::uint64_t uid = 0;
  std::uint32_t laneWidths = 0x3;  // LANE_ADP_CS_0 bits 25:20: bit 0 x1, bit 1 x2
  std::uint32_t laneSpeeds = 0xC;  // LANE_ADP_CS_0 bits 19:16: bit 2 20 Gb/s, bit 3 10 Gb/s
  unsigned dpInResources = 2;      // displays that the router's source can drive at once
  unsigned enumerateWithinMs = 0;  // drops its link unless configured by then, and comes back; 0: patient
  std::vector<CapabilityModel> capabilities;
  std::vector<AdapterModel> adapters;  // index = number; entry 0 unused
  DromModel drom;
  std::optional<HostInterfaceConfig> hostInterface;

  bool usb4() const { return usb4Version >= 0x20; }
};

// A model file that cannot be used: "H1.toml:12:5: unknown adapter type \"lan\"".
class ModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Parses a model's text; `origin` stands in error lines. Throws ModelError.
RouterModel ParseModel(std::string_view text, const std::string& origin);
// Built-in models, by name ("H1", "D1", ...); null when there is none of that name.
const RouterModel* FindModel(std::string_view name);
std::vector<std::string> ModelNames();

}  // namespace sim
