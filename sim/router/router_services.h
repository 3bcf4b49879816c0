// What runs inside a router beside its registers: local time and its posting, the link controller of Thunderbolt 3
// routers.
#pragma once
#include <cstdint>
#include <vector>

#include "platform/host/time.h"
#include "sim/router/eeprom_chip.h"

namespace sim {

class Adapter;
class Router;

class RouterServices {
 public:
  explicit RouterServices(Router& router) : router_(router) {}

  // Listens to the registers of the time management unit and of the link controller, where the router has them.
  void Define();
  void Reset();

  // Nanoseconds of the router's own clock.
  std::uint64_t LocalTime() const;
  bool timePosted() const { return posted_; }
  // Scripted hardware: the posting takes this long instead of a drawn time.
  void SetPostingTime(platform::Time time) { postingTime_ = time; }

  // Thunderbolt 3 routers keep their DROM in a serial part, at the byte offset that the plug-events capability tells.
  void SetDrom(const std::vector<std::uint8_t>& image);

  // --- link controller: all do nothing, or give 0, on routers without one
  bool sleepArmed() const;
  void ClearSleep();
  std::uint32_t PortControl(const Adapter& port) const;
  // Thunderbolt 3 routers say in the link controller whether both lanes of a port are wired.
  void ShowBondingPossible(const Adapter& port, bool possible);

  // DisplayPort sinks 0 and 1: free in states 0 and 1, reserved by the manager's writing 1.
  unsigned sinkState(unsigned sink) const;
  void SetSinkState(unsigned sink, unsigned state);

  unsigned tmuCapability = 0;  // router space offsets, 0 where the router has none
  unsigned plugEventsCapability = 0;
  unsigned linkControllerCapability = 0;

 private:
  // Router space offset of a port block; 0 when there is no such block.
  unsigned PortBlock(unsigned index) const;
  void DefineTmu();
  void DefineEeprom();
  void WatchSinks();
  void PostTimeWritten();

  Router& router_;
  Eeprom eeprom_;
  std::int64_t clockOffset_ = 0;  // of the local clock against virtual time, nanoseconds
  bool posted_ = false;
  platform::Time postingTime_ = -1;
};

}  // namespace sim
