// PCI configuration space of a host interface.
#include "sim/host/pci_function.h"

#include <utility>

namespace sim {
namespace {

constexpr std::uint32_t kPowerRequest = 0xFC;
constexpr std::uint32_t kPowerStatus = 0xC8;
constexpr std::uint32_t kCommandStatus = 0xE4;
constexpr std::uint32_t kCommand = 0xE0;
constexpr std::uint32_t kPowerGood = 1u << 31;
constexpr std::uint32_t kSubsystem = 0x2C;
constexpr std::uint32_t kClassUsb4HostInterface = 0x0C0340;

}  // namespace

PciFunction::PciFunction(PciFunctionConfig config, Complain complain)
    : config_(config), complain_(std::move(complain)) {
  words_[0] = static_cast<std::uint32_t>(config_.device) << 16 | config_.vendor;
  words_[1] = 0x00100006;  // memory space and bus master on, capability list
  words_[2] = kClassUsb4HostInterface << 8 | config_.revision;
  words_[kSubsystem / 4] = words_[0];
  if (!config_.powerOnSequence) return;
  words_[kPowerRequest / 4] = 0x00310404;
  words_[kCommandStatus / 4] = 0xC3000000u | config_.commandWord;
}

std::uint32_t PciFunction::Read(std::uint32_t offset) {
  if (offset % 4 != 0 || offset > 0xFC) {
    complain_(Complaint::ConfigurationRead, {.offset = offset});
    return ~0u;
  }
  if (config_.powerOnSequence && offset == kPowerStatus && powerRequested_ && config_.readsUntilReady >= 0 &&
      readsSinceRequest_++ >= config_.readsUntilReady) {
    words_[kPowerStatus / 4] |= kPowerGood;
  }
  return words_[offset / 4];
}

void PciFunction::Write(std::uint32_t offset, std::uint32_t value) {
  if (offset % 4 != 0 || offset > 0xFC) {
    complain_(Complaint::ConfigurationOffset, {.offset = offset});
    return;
  }
  if (config_.powerOnSequence && (offset == kPowerRequest || offset == kCommand)) {
    WriteSequence(offset, value);
    return;
  }
  complain_(Complaint::ConfigurationWrite, {.value = value, .offset = offset});
}

// The request must keep the low 24 bits but bit 1 and carry 0x22 above; the command must echo its status word in both
// halves.
void PciFunction::WriteSequence(std::uint32_t offset, std::uint32_t value) {
  if (offset == kPowerRequest) {
    const std::uint32_t expected = (words_[offset / 4] & 0x00FFFFFF) | 0x22000002;
    if (value != expected) complain_(Complaint::PowerRequest, {.value = value, .expected = expected});
    powerRequested_ = true;
    readsSinceRequest_ = 0;
  } else {
    const std::uint32_t low = words_[kCommandStatus / 4] & 0xFFFF;
    if (value != (low << 16 | low)) complain_(Complaint::PowerCommand, {.value = value, .expected = low});
    commandEchoed_ = true;
  }
  words_[offset / 4] = value;
}

}  // namespace sim
