#include "platform/scheduler/policy.h"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/scheduler/scheduler.h"

namespace platform {
namespace {

class UniformPolicy final : public SchedulingPolicy {
 public:
  explicit UniformPolicy(std::uint64_t seed) : random_(seed, "schedule.uniform") {}
  std::uint32_t Next(std::span<Task* const> runnable) override {
    return static_cast<std::uint32_t>(random_.Below(runnable.size()));
  }

 private:
  RandomStream random_;
};

// The runnable task of highest priority runs until it parks. At a few steps, drawn in advance, the running one drops
// below all others: an ordering bug that needs d exact switches is found with d drops.
class PriorityPolicy final : public SchedulingPolicy {
 public:
  PriorityPolicy(std::uint64_t seed, unsigned drops) : random_(seed, "schedule.priority") {
    // Half of the runs draw their drops from a short prefix, since most races sit near a start.
    const std::uint64_t horizon = random_.Chance(1, 2) ? 2'000 : 50'000;
    for (unsigned i = 0; i < drops; ++i) dropAt_.push_back(1 + random_.Below(horizon));
    std::sort(dropAt_.begin(), dropAt_.end(), std::greater<>());
  }

  std::uint32_t Next(std::span<Task* const> runnable) override {
    ++step_;
    std::size_t best = 0;
    for (std::size_t i = 1; i < runnable.size(); ++i) {
      if (PriorityOf(*runnable[i]) > PriorityOf(*runnable[best])) best = i;
    }
    while (!dropAt_.empty() && step_ >= dropAt_.back()) {
      dropAt_.pop_back();
      priority_[runnable[best]->ordinal()] = --lowest_;
      return Next(runnable);
    }
    return static_cast<std::uint32_t>(best);
  }

 private:
  std::int64_t PriorityOf(const Task& task) {
    auto [it, inserted] = priority_.try_emplace(task.ordinal(), 0);
    if (inserted) it->second = static_cast<std::int64_t>(1 + random_.Below(1'000'000));
    return it->second;
  }

  RandomStream random_;
  std::vector<std::uint64_t> dropAt_;  // latest first
  std::uint64_t step_ = 0;
  std::int64_t lowest_ = 0;
  std::unordered_map<std::uint32_t, std::int64_t> priority_;
};

// Repeats recorded choices; past their end the first runnable task runs.
class ReplayPolicy final : public SchedulingPolicy {
 public:
  explicit ReplayPolicy(std::vector<std::uint32_t> choices) : choices_(std::move(choices)) {}
  std::uint32_t Next(std::span<Task* const> runnable) override {
    const std::uint32_t choice = next_ < choices_.size() ? choices_[next_++] : 0;
    return choice < runnable.size() ? choice : 0;
  }

 private:
  std::vector<std::uint32_t> choices_;
  std::size_t next_ = 0;
};

}  // namespace

std::unique_ptr<SchedulingPolicy> MakePolicy(const SimulationOptions& options) {
  switch (options.policy) {
    case Policy::FirstCome:
      return nullptr;
    case Policy::Uniform:
      return std::make_unique<UniformPolicy>(options.seed);
    case Policy::Priority:
      return std::make_unique<PriorityPolicy>(options.seed, options.priorityDrops);
    case Policy::Replay:
      return std::make_unique<ReplayPolicy>(options.choices);
  }
  return nullptr;
}

}  // namespace platform
