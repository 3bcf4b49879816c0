#include "platform/kernel/kernel_state.h"

#include "platform/host/simulation.h"

namespace platform {

void WaitList::Add(Wait& wait) {
  wait.previous = last_;
  wait.next = nullptr;
  (last_ ? last_->next : first_) = &wait;
  last_ = &wait;
}

void WaitList::Remove(Wait& wait) {
  (wait.previous ? wait.previous->next : first_) = wait.next;
  (wait.next ? wait.next->previous : last_) = wait.previous;
}

Wait* WaitList::OldestOn(const void* object) const {
  for (Wait* wait = first_; wait; wait = wait->next) {
    if (wait->object == object && !wait->granted && !wait->over) return wait;
  }
  return nullptr;
}

const Wait* WaitList::InRange(const void* start, std::size_t bytes) const {
  const auto from = reinterpret_cast<std::uintptr_t>(start);
  for (const Wait* wait = first_; wait; wait = wait->next) {
    if (reinterpret_cast<std::uintptr_t>(wait->object) - from < bytes && !wait->granted && !wait->over) return wait;
  }
  return nullptr;
}

std::uint64_t TraceProviders::Register() {
  registered_.push_back(true);
  return registered_.size();
}

bool TraceProviders::Unregister(std::uint64_t handle) {
  if (!IsRegistered(handle)) return false;
  registered_[handle - 1] = false;
  return true;
}

bool TraceProviders::IsRegistered(std::uint64_t handle) const {
  return handle - 1 < registered_.size() && registered_[handle - 1];
}

std::size_t TraceProviders::Registered() const {
  std::size_t count = 0;
  for (bool registered : registered_) count += registered;
  return count;
}

namespace {

// Hosts have been up for different times, between one and two hours, so that two of them never count alike.
Time UpTime(Simulation& simulation, const std::string& kernelName) {
  constexpr Time kHour = 3600 * kSecond;
  return kHour + static_cast<Time>(simulation.Random(HashedName(std::string_view("up-time." + kernelName))).Next() %
                                   static_cast<std::uint64_t>(kHour));
}

}  // namespace

KernelState::KernelState(Simulation& simulation, const std::string& kernelName)
    : upTimeAtStart(UpTime(simulation, kernelName)), simulation_(simulation) {}

void KernelState::ReportLeaks() {
  if (const std::size_t count = traceProviders.Registered(); count != 0) {
    simulation_.Report(Rule::HandleLeak, std::to_string(count) + " trace registration(s) still held");
  }
  if (const std::size_t count = ioRequests.Live(); count != 0) {
    simulation_.Report(Rule::HandleLeak, std::to_string(count) + " request packet(s) built and never sent");
  }
}

}  // namespace platform
