// Interrupt status, mask, vector allocation and throttling of a host interface.
//
// A message goes out when an unmasked status bit goes from 0 to 1, at most one per vector and throttle interval; later
// ones merge into one at the interval's end. Reading a status dword clears all its bits and recalls no message.
#pragma once
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/simulation.h"
#include "sim/host/complaints.h"

namespace sim {

class InterruptUnit {
 public:
  static constexpr unsigned kVectors = 16;

  // `signal` sends one message; `complain` records what the driver did wrong.
  InterruptUnit(platform::Simulation& simulation, unsigned hopCount, std::function<void(unsigned)> signal,
                Complain complain);

  // Registers, by dword index within their block; the index has been checked against the counts below.
  std::uint32_t ReadStatus(unsigned index);
  std::uint32_t ReadMask(unsigned index) const { return mask_[index]; }
  void WriteMask(unsigned index, std::uint32_t value);
  std::uint32_t ReadThrottle(unsigned vector) const { return throttle_[vector]; }
  void WriteThrottle(unsigned vector, std::uint32_t value);
  std::uint32_t ReadVectors(unsigned index) const { return vectors_[index]; }
  void WriteVectors(unsigned index, std::uint32_t value) { vectors_[index] = value; }
  unsigned statusDwords() const { return static_cast<unsigned>(status_.size()); }
  unsigned maskDwords() const { return static_cast<unsigned>(mask_.size()); }
  unsigned vectorDwords() const { return static_cast<unsigned>(vectors_.size()); }

  // Ring interrupt `number` happens: its status bit is set.
  void Raise(unsigned number);
  void Reset();
  bool Quiet() const { return pendingMessages_ == 0; }
  std::uint64_t MessagesSent() const { return messagesSent_; }

 private:
  struct Vector {
    platform::Time nextAllowed = 0;
    bool pending = false;
  };
  void RequestMessage(unsigned vector);
  void Send(unsigned vector);

  platform::Simulation& simulation_;
  unsigned interrupts_;  // ring interrupts that exist
  std::function<void(unsigned)> signal_;
  Complain complain_;
  std::vector<std::uint32_t> status_, mask_, vectors_;
  std::array<std::uint32_t, kVectors> throttle_{};
  std::array<Vector, kVectors> state_{};
  unsigned epoch_ = 0;
  unsigned pendingMessages_ = 0;
  std::uint64_t messagesSent_ = 0;
};

}  // namespace sim
