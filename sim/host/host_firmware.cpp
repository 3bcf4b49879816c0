// The connection manager in the firmware of a host router.
#include "sim/host/host_firmware.h"

namespace sim {
namespace {

constexpr std::uint32_t kHandOverCommand = 3;
constexpr std::uint32_t kOther = 4;
constexpr unsigned kAnswerDwords = 4;  // 14 bytes of answer fill three dwords and half of a fourth

}  // namespace

std::optional<ControlPacket> HostFirmware::Handle(const ControlPacket& request) {
  if (request.dwords.size() != 1 || request.dwords[0] != kHandOverCommand) return std::nullopt;
  ++handOvers_;
  if (answer_ == FirmwareAnswer::None) return std::nullopt;
  ControlPacket answer{Pdf::FirmwareHandoverAnswer, std::vector<std::uint32_t>(kAnswerDwords)};
  answer.dwords[0] = answer_ == FirmwareAnswer::Right ? kHandOverCommand : kOther;
  return answer;
}

}  // namespace sim
