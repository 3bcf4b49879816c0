// PCI configuration space of a host interface, with the vendor registers of the power-on sequence.
#pragma once
#include <array>
#include <cstdint>

#include "sim/host/complaints.h"

namespace sim {

struct PciFunctionConfig {
  static constexpr int kNeverReady = -1;

  std::uint16_t vendor = 0x1F3A;
  std::uint16_t device = 0x3A0E;
  std::uint8_t revision = 1;
  bool powerOnSequence = false;        // has the registers 0xC8, 0xE0, 0xE4 and 0xFC of that sequence
  int readsUntilReady = 3;             // reads of 0xC8 with bit 31 clear before it is set; kNeverReady: never set
  std::uint16_t commandWord = 0x0A5C;  // low half of 0xE4, which comes back in both halves of 0xE0
};

class PciFunction {
 public:
  PciFunction(PciFunctionConfig config, Complain complain);

  std::uint32_t Read(std::uint32_t offset);
  void Write(std::uint32_t offset, std::uint32_t value);
  PciFunctionConfig& config() { return config_; }
  // How far the power-on sequence has come.
  bool powerRequested() const { return powerRequested_; }
  bool commandEchoed() const { return commandEchoed_; }

 private:
  void WriteSequence(std::uint32_t offset, std::uint32_t value);

  PciFunctionConfig config_;
  Complain complain_;
  std::array<std::uint32_t, 64> words_{};
  int readsSinceRequest_ = 0;
  bool powerRequested_ = false;
  bool commandEchoed_ = false;
};

}  // namespace sim
