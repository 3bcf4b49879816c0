// One adapter of a router: its adapter, path and counters spaces, and where its capabilities are.
#pragma once
#include <cstdint>
#include <string>

#include "sim/config_space.h"
#include "sim/router_model.h"

namespace sim {

class Link;
class Router;

// LANE_ADP_CS_1 bits 29:26.
enum class LaneState : std::uint8_t { Disabled = 0, Training = 1, Up = 2, Disconnected = 7 };

// Adapter space dwords.
inline constexpr unsigned kAdpBuffers = 4;
inline constexpr unsigned kAdpHops = 5;
inline constexpr std::uint32_t kAdpPlugged = 1u << 30;
inline constexpr std::uint32_t kAdpLock = 1u << 31;
inline constexpr std::uint32_t kAdpDisableHotPlug = 1u << 31;
// Lane capability, dword 1.
inline constexpr std::uint32_t kLaneDisable = 1u << 14;
inline constexpr std::uint32_t kLaneBonding = 1u << 15;
// USB4 port capability, dwords 18 and 19.
inline constexpr unsigned kPortCs18 = 18;
inline constexpr unsigned kPortCs19 = 19;
inline constexpr std::uint32_t kPortBondingPossible = 1u << 8;
inline constexpr std::uint32_t kPortThunderboltMode = 1u << 9;
inline constexpr std::uint32_t kPortWakeStatus = 1u << 18;
inline constexpr std::uint32_t kPortConfigured = 1u << 3;

class Adapter {
 public:
  Adapter(Router& router, const AdapterModel& model);
  Adapter(const Adapter&) = delete;
  Adapter& operator=(const Adapter&) = delete;

  Router& router() const { return router_; }
  unsigned number() const { return model_.number; }
  const AdapterModel& model() const { return model_; }
  std::uint32_t type() const { return model_.type; }
  bool isLane() const { return model_.type == kTypeLane && implemented(); }
  bool implemented() const { return model_.presence == AdapterPresence::Implemented; }
  std::string Name() const;  // "D1:3"

  ConfigSpace& space() { return adapterSpace_; }
  ConfigSpace& paths() { return pathSpace_; }
  ConfigSpace& counters() { return countersSpace_; }
  const ConfigSpace& space() const { return adapterSpace_; }

  // Offsets in adapter space, 0 where the adapter has no such capability.
  unsigned laneCapability = 0;
  unsigned tmuCapability = 0;
  unsigned protocolCapability = 0;
  unsigned usb4Capability = 0;

  // --- lane adapters
  Link* link = nullptr;   // the cable in this port, borrowed from the fabric
  Adapter* pair() const;  // the other lane of the same port, or null
  LaneState laneState() const;
  void SetLaneState(LaneState state);
  unsigned targetWidth() const;  // LANE_ADP_CS_1 bits 9:4
  unsigned negotiatedWidth() const;
  void SetNegotiatedWidth(unsigned lanes);
  void SetSpeed(unsigned gbpsPerLane);
  bool laneDisabled() const;
  unsigned lanesSpeedMask() const;
  bool locked() const { return (adapterSpace_.Get(kAdpBuffers) & kAdpLock) != 0; }
  void SetLock(bool on) { adapterSpace_.SetBits(kAdpBuffers, kAdpLock, on ? kAdpLock : 0); }
  void SetPlugged(bool on) { adapterSpace_.SetBits(kAdpBuffers, kAdpPlugged, on ? kAdpPlugged : 0); }
  unsigned totalBuffers() const { return (adapterSpace_.Get(kAdpBuffers) >> 20) & 0x3FF; }
  void SetTotalBuffers(unsigned buffers);
  bool hotPlugEnabled() const { return (adapterSpace_.Get(kAdpHops) & kAdpDisableHotPlug) == 0; }

  // --- DP OUT
  bool displayAttached = false;  // what is physically there; the registers show it

  // Values after reset; lane state and display are shown again by whoever knows them.
  void Reset();

 private:
  void DefineHeader();
  void DefinePaths();
  void WatchBuffers();
  void WatchPathEntry(unsigned hop);

  Router& router_;
  const AdapterModel& model_;
  ConfigSpace adapterSpace_{"adapter"};
  ConfigSpace pathSpace_{"path"};
  ConfigSpace countersSpace_{"counters"};
  std::map<unsigned, unsigned> pendingReads_;  // path entry -> reads until its pending bit clears
};

}  // namespace sim
