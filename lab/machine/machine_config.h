// What a machine is made of, as data: hosts, their controllers, what hangs on their cables, registry and timing. Filled
// by scenarios and by tests.
#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/host_kernel.h"
#include "platform/host/simulation.h"
#include "sim/dataplane/display_adapter.h"
#include "sim/dataplane/usb3_function.h"
#include "sim/firmware/firmware_tunnels.h"
#include "sim/host/host_firmware.h"
#include "sim/peer/peer_config.h"
#include "sim/router/cable.h"

namespace lab {

inline constexpr unsigned kMostAdapters = 63;  // of a router

struct ControllerConfig {
  std::string name = "H1";   // unique within its host
  std::string model = "H1";  // one of HostModelNames()
  std::string hardwareId = "PCI\\VEN_1F3A&DEV_3A0E&SUBSYS_00000000&REV_00";
  std::optional<std::uint64_t> uid;          // else the model's, with the controller's position in bits 15:8
  std::optional<std::uint32_t> pciIdentity;  // dword 0 of configuration space, device << 16 | vendor; else the model's
  std::optional<std::uint32_t> hopCount;     // what the capabilities register says; else the model's
  std::optional<std::vector<platform::Resource>> resources;  // in bus order; else BAR0, then its interrupts
  std::map<std::string, std::uint32_t> parameters;           // "USB3Tunnel\\USB3TunnelSupported" -> 1
  platform::Status acpiStatus = 0;
  platform::Time acpiDelay = 0;
  sim::FirmwareAnswer handOver = sim::FirmwareAnswer::None;  // to the request to let go of the domain
};

struct HostConfig {
  std::string name = "host";  // unique within the machine
  std::string computerName = "LAB-HOST";
  std::vector<ControllerConfig> controllers{ControllerConfig{}};
};

// A router that is no host.
struct RouterConfig {
  std::string name;  // unique among all routers of the machine
  std::string model;
  std::optional<unsigned> notificationMs;  // between two sendings of an event; the model's own where not set
};

// A host without a driver; its router goes by its name.
struct PeerHostConfig {
  sim::PeerConfig peer;
  std::string model = "H1";          // one of HostModelNames()
  std::optional<std::uint64_t> uid;  // else the model's, with the position behind all controllers in bits 15:8
  std::string sameUuidAs;            // host router whose UUID it claims to have; empty: its own
};

// Ports as "D1:3": router name and lane adapter. The cable was there before the machine was switched on.
struct CableConfig {
  std::string first, second;
  sim::CableOptions options;
  bool bondedByFirmware = false;
};

// At a DP OUT adapter, "D1:13".
struct DisplayConfig {
  std::string adapter;
  sim::Display display;
};

// What stands behind a USB3 adapter, "H1:4".
struct Usb3Config {
  std::string adapter;
  sim::Usb3Facts facts;
};

struct MachineConfig {
  std::vector<HostConfig> hosts{HostConfig{}};
  std::vector<PeerHostConfig> peers;
  std::vector<RouterConfig> routers;
  std::vector<CableConfig> cables;
  std::vector<DisplayConfig> displays;  // there from the start, like the cables
  std::vector<Usb3Config> usb3;
  std::vector<sim::FirmwareTunnel> firmware;  // programmed before the driver starts, in this order
  platform::SimulationOptions simulation;
};

// Names of the models that have a host interface, in name order.
std::vector<std::string> HostModelNames();
// Names of the other models, in name order.
std::vector<std::string> DeviceModelNames();

}  // namespace lab
