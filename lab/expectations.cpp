// Each key of an expectation is one comparison.
#include "lab/expectations.h"

#include <fmt/format.h>

#include <algorithm>

namespace lab {
namespace {

const char* PowerName(platform::DevicePower power) {
  switch (power) {
    case platform::DevicePower::D0:
      return "D0";
    case platform::DevicePower::D3:
      return "D3";
    case platform::DevicePower::Off:
      break;
  }
  return "off";
}

const char* StateName(platform::PnpState state) {
  switch (state) {
    case platform::PnpState::Added:
      return "added";
    case platform::PnpState::Started:
      return "started";
    case platform::PnpState::Failed:
      return "failed";
    case platform::PnpState::SurpriseRemoved:
      return "surprise-removed";
    case platform::PnpState::Removed:
      break;
  }
  return "removed";
}

class Comparison {
 public:
  explicit Comparison(std::string where) : where_(std::move(where)) {}
  void Text(const char* what, const std::optional<std::string>& wanted, const std::string& found) {
    if (wanted && *wanted != found)
      lines_.push_back(fmt::format("{}: {} is {}, expected {}", where_, what, found, *wanted));
  }
  void Number(const char* what, const std::optional<std::int64_t>& wanted, std::int64_t found) {
    if (wanted && *wanted != found)
      lines_.push_back(fmt::format("{}: {} is {}, expected {}", where_, what, found, *wanted));
  }
  std::vector<std::string> lines() const { return lines_; }

 private:
  std::string where_;
  std::vector<std::string> lines_;
};

std::optional<std::string> Hex(const std::optional<platform::Status>& status) {
  return status ? std::optional(fmt::format("0x{:08X}", static_cast<std::uint32_t>(*status))) : std::nullopt;
}

}  // namespace

std::vector<std::string> Mismatches(const Expectation& expectation, Machine& machine, bool afterFaults) {
  const Place place = expectation.place;
  platform::HostKernel& kernel = machine.kernel(place.host);
  const platform::DeviceId device = machine.device(place);
  Comparison comparison(machine.DomainName(place));
  comparison.Text("power", expectation.power, PowerName(kernel.Power(device)));
  comparison.Text("state", expectation.state, StateName(kernel.State(device)));
  if (!afterFaults) comparison.Text("start status", Hex(expectation.startStatus), *Hex(machine.StartStatus(place)));
  if (expectation.interface) {
    const std::vector<std::string> all = kernel.Interfaces(device);
    if (std::find(all.begin(), all.end(), *expectation.interface) == all.end())
      comparison.Text("interface", expectation.interface, all.empty() ? "none" : all.front());
  }
  if (expectation.routers || expectation.adapters) {
    const DomainView domain = machine.Domain(place);
    comparison.Number("routers", expectation.routers, static_cast<std::int64_t>(domain.routers.size()));
    comparison.Number("adapters", expectation.adapters,
                      domain.routers.empty() ? 0 : static_cast<std::int64_t>(domain.routers.front().adapters.size()));
  }
  return comparison.lines();
}

}  // namespace lab
