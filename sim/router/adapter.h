// One adapter of a router: its adapter, path and counters spaces, and where its capabilities are.
#pragma once
#include <cstdint>
#include <string>

#include "sim/registers/hop_entry.h"
#include "sim/registers/register_space.h"
#include "sim/router/protocol_facts.h"
#include "sim/router/router_model.h"

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
  bool isPcie() const { return model_.type == kTypePcieDown || model_.type == kTypePcieUp; }
  bool isUsb3() const { return model_.type == kTypeUsb3Down || model_.type == kTypeUsb3Up; }
  bool isDisplayPort() const { return model_.type == kTypeDpIn || model_.type == kTypeDpOut; }
  bool implemented() const { return model_.presence == AdapterPresence::Implemented; }
  std::string Name() const;  // "D1:3"

  ConfigSpace& space() { return adapterSpace_; }
  ConfigSpace& paths() { return pathSpace_; }
  ConfigSpace& counters() { return countersSpace_; }
  const ConfigSpace& space() const { return adapterSpace_; }
  const ConfigSpace& paths() const { return pathSpace_; }

  // --- path entries
  // Highest input hop ID with an entry, and one more; 0 for adapters without paths.
  unsigned pathEntries() const { return pathSpace_.size() / 2; }
  PathEntry pathEntry(unsigned hop) const;
  void SetPathEntry(unsigned hop, const PathEntry& entry);  // as the hardware: nothing is checked, nothing happens
  bool isControlEntry(unsigned hop) const;
  bool pathPending(unsigned hop) const;
  void Drain();  // no packet is on its way any more

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
  void SetTargetWidth(unsigned width);
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
  unsigned setAsideBuffers() const { return adapterSpace_.Get(kAdpBuffers) & 0x3FF; }  // not flow controlled
  void SetSetAsideBuffers(unsigned buffers) { adapterSpace_.SetBits(kAdpBuffers, 0x3FF, buffers); }
  unsigned allocatedBuffers() const { return (adapterSpace_.Get(kAdpHops) >> 22) & 0x7F; }
  bool hotPlugEnabled() const { return (adapterSpace_.Get(kAdpHops) & kAdpDisableHotPlug) == 0; }

  // --- protocol adapters: what is physically there; the registers show it
  Usb3Facts usb3;
  DpFacts dp;
  // DP IN: the DP OUT adapter that has been asked for its capabilities, and which question that was.
  struct DpTalk {
    Adapter* with = nullptr;
    unsigned question = 0;
  };
  DpTalk dpTalk;

  // Values after reset, and what is physically there; lane states are shown again by whoever knows them.
  void Reset();

 private:
  void DefineHeader();
  void DefinePaths();
  void WatchBuffers();
  void WatchPathEntry(unsigned hop);
  void CheckValidEntry(unsigned hop);
  void StopDraining(unsigned hop);

  struct Draining {
    unsigned reads = 0;  // until the pending bit clears
    platform::Time until = 0;
  };

  Router& router_;
  const AdapterModel& model_;
  ConfigSpace adapterSpace_{Space::Adapter};
  ConfigSpace pathSpace_{Space::Path};
  ConfigSpace countersSpace_{Space::Counters};
  std::map<unsigned, Draining> draining_;  // by hop ID
};

}  // namespace sim
