// Scheduling policies: who runs next among the runnable. Plug-ins behind one small interface; only steps with two or
// more runnable tasks reach them, and every number that they return is recorded so that a run can be replayed.
#pragma once
#include <cstdint>
#include <memory>
#include <span>

#include "platform/host/simulation.h"

namespace platform {

class SchedulingPolicy {
 public:
  virtual ~SchedulingPolicy() = default;
  // The index of the task to run next among `runnable` (two or more, in order of becoming runnable).
  virtual std::uint32_t Next(std::span<Task* const> runnable) = 0;
};

// Null for Policy::FirstCome, which needs no choices.
std::unique_ptr<SchedulingPolicy> MakePolicy(const SimulationOptions& options);

}  // namespace platform
