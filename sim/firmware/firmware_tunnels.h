// Domains as pre-OS firmware leaves them: routers enumerated, lanes bonded, tunnels whole, half-built or wrong.
//
// Called before the machine runs; writes registers as the firmware's own manager has done and draws no time.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

class Fabric;

enum class FirmwareKind : std::uint8_t { Pcie, Usb3, Dp };

enum class FirmwareState : std::uint8_t {
  Whole,    // everything that the kind needs
  Off,      // all paths, adapters switched off
  Bare,     // adapters switched on, no path
  Half,     // no way back: the path from the far end (DP: AUX from the DP OUT) is missing
  Broken,   // the last entry of the first path (DP: video) is missing
  FarOff,   // whole, but the far adapter is switched off
  Wrong,    // whole, but the paths end at another adapter of the far router, of another type where it has one
  Looping,  // the first path runs in a circle between the first two routers
  Long,     // the first path bounces over the first cable and needs more than 14 hops
};

// "pcie", "usb3", "dp"; "whole", "off", "bare", "half", "broken", "far-off", "wrong", "looping", "long".
std::optional<FirmwareKind> ParseFirmwareKind(std::string_view text);
std::optional<FirmwareState> ParseFirmwareState(std::string_view text);

struct FirmwareTunnel {
  FirmwareKind kind = FirmwareKind::Pcie;
  std::string from;  // "H1:3": PCIe downstream, USB3 downstream or DP IN adapter
  std::string to;    // "D1:9": PCIe upstream, USB3 upstream or DP OUT adapter, any number of levels down (DP: or up)
  FirmwareState state = FirmwareState::Whole;
  unsigned upMbps = 0;  // USB3: allocation in the register of `from`
  unsigned downMbps = 0;
  bool reserved = true;  // DP: the DP IN adapter is reserved with its router
  // Of cables whose lanes are not bonded. A manager that bonds them later cuts what runs on lane 1.
  unsigned lane = 0;
};

// Programs it. Enumerates the domain of `from` first if that has not been done. Throws TopologyError for adapters that
// do not exist, have the wrong type, or between which no cable leads.
void SetUpFirmwareTunnel(Fabric& fabric, const FirmwareTunnel& tunnel);
// Every router that hangs on the host is configured, its ports unlocked, as an enumerating manager leaves them.
void EnumerateByFirmware(Fabric& fabric, std::string_view hostName);
// Bonds the lanes of the cable at `port` ("H1:1"); throws TopologyError when it has not got two.
void BondByFirmware(Fabric& fabric, std::string_view port);

}  // namespace sim
