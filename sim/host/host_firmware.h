// The connection manager in the firmware of a host router, which hands the domain over when it is asked to.
#pragma once
#include <cstdint>
#include <optional>

#include "sim/host/wire_packet.h"

namespace sim {

enum class FirmwareAnswer : std::uint8_t { Right, Wrong, None };

class HostFirmware {
 public:
  // Most hosts have no such firmware: nothing answers.
  void SetAnswer(FirmwareAnswer answer) { answer_ = answer; }
  // Requests that were understood.
  unsigned handOvers() const { return handOvers_; }
  // What comes back for a packet of type 11; nothing when it is no hand-over request or the firmware keeps silent.
  std::optional<ControlPacket> Handle(const ControlPacket& request);

 private:
  FirmwareAnswer answer_ = FirmwareAnswer::None;
  unsigned handOvers_ = 0;
};

}  // namespace sim
