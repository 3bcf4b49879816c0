#include "platform/kernel/kernel_state.h"

#include "platform/host/simulation.h"

namespace platform {

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
