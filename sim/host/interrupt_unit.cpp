// Interrupt status, mask, vector allocation and throttling of a host interface.
#include "sim/host/interrupt_unit.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

// Throttle registers count in 256 ns; virtual time in 100 ns. Rounded up, so that the interval is never shortened.
platform::Time ThrottleInterval(std::uint32_t units) {
  return (static_cast<platform::Time>(units) * 256 + 99) / 100;
}

}  // namespace

InterruptUnit::InterruptUnit(platform::Simulation& simulation, unsigned hopCount, std::function<void(unsigned)> signal,
                             Complain complain)
    : simulation_(simulation),
      interrupts_(2 * hopCount),
      signal_(std::move(signal)),
      complain_(std::move(complain)),
      status_((hopCount * 3 + 31) / 32),
      mask_((hopCount * 2 + 31) / 32),
      vectors_((hopCount * 2 + 7) / 8) {}

std::uint32_t InterruptUnit::ReadStatus(unsigned index) {
  return std::exchange(status_[index], 0);
}

void InterruptUnit::WriteMask(unsigned index, std::uint32_t value) {
  const unsigned first = index * 32;
  const unsigned valid = std::min(32u, interrupts_ - first);
  const std::uint32_t allowed = valid == 32 ? ~0u : (1u << valid) - 1;
  if ((value & ~allowed) != 0) complain_(Complaint::InterruptMask, {.bits = value & ~allowed});
  mask_[index] = value & allowed;
}

void InterruptUnit::WriteThrottle(unsigned vector, std::uint32_t value) {
  if (value > 0xFFFF) complain_(Complaint::Throttling, {.value = value});
  throttle_[vector] = value & 0xFFFF;
}

void InterruptUnit::Raise(unsigned number) {
  std::uint32_t& dword = status_[number / 32];
  const std::uint32_t bit = 1u << (number % 32);
  const bool rises = (dword & bit) == 0;
  dword |= bit;
  if (!rises || (mask_[number / 32] & bit) == 0) return;
  RequestMessage((vectors_[number / 8] >> (4 * (number % 8))) & 0xF);
}

void InterruptUnit::RequestMessage(unsigned vector) {
  Vector& state = state_[vector];
  if (state.pending) return;
  const platform::Time now = simulation_.Now();
  if (now >= state.nextAllowed) {
    Send(vector);
    return;
  }
  state.pending = true;
  ++pendingMessages_;
  simulation_.After(state.nextAllowed - now, "throttled message", [this, vector, epoch = epoch_] {
    if (epoch != epoch_) return;
    state_[vector].pending = false;
    --pendingMessages_;
    Send(vector);
  });
}

void InterruptUnit::Send(unsigned vector) {
  state_[vector].nextAllowed = simulation_.Now() + ThrottleInterval(throttle_[vector]);
  ++messagesSent_;
  signal_(vector);
}

void InterruptUnit::Reset() {
  std::fill(status_.begin(), status_.end(), 0);
  std::fill(mask_.begin(), mask_.end(), 0);
  std::fill(vectors_.begin(), vectors_.end(), 0);
  throttle_.fill(0);
  state_.fill({});
  pendingMessages_ = 0;
  ++epoch_;
}

}  // namespace sim
