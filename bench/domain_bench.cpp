// Whole domains by size: from load to quiet to unload, with PCIe and USB3 tunnels to every router that has the
// adapters. First come, first served.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

#include "lab/machine/machine.h"

namespace {

// A bush of hubs, three behind each; the first hangs on the host's one port.
lab::MachineConfig Bush(unsigned hubs) {
  lab::MachineConfig config;
  config.hosts[0].controllers[0].parameters = {{"USB3Tunnel\\USB3TunnelSupported", 1},
                                               {"PCIETunnel\\PCIETunnelSupported", 1}};
  for (unsigned i = 0; i < hubs; ++i) {
    const std::string hub = "hub" + std::to_string(i);
    config.routers.push_back({hub, "D1"});
    const std::string port = "hub" + std::to_string((i - 1) / 3) + ":" + std::to_string(3 + 2 * ((i - 1) % 3));
    config.cables.push_back({i == 0 ? "H1:1" : port, hub + ":1", {}});
  }
  return config;
}

void DomainOfRouters(benchmark::State& state) {
  const auto routers = static_cast<unsigned>(state.range(0));  // the host's among them
  for (auto _ : state) {
    lab::Machine machine(Bush(routers - 1));
    machine.wire().log().Keep(false);
    machine.Start();
    if (machine.WaitQuiet(300 * platform::kSecond) != platform::Outcome::Done) state.SkipWithError("never quiet");
    const lab::DomainView domain = machine.Domain();
    state.counters["packets"] = static_cast<double>(machine.wire().log().count());
    state.counters["virtual_ms"] =
        static_cast<double>(machine.simulation().Now()) / static_cast<double>(platform::kMillisecond);
    state.counters["pool_KiB"] = static_cast<double>(machine.kernel().PoolBytes()) / 1024;
    state.counters["tunnels"] = static_cast<double>(domain.tunnels.size());
    machine.RemoveAndUnload();
    if (machine.simulation().Stopped()) state.SkipWithError("the verifier stopped the run");
  }
}
BENCHMARK(DomainOfRouters)->Arg(1)->Arg(5)->Arg(20)->Arg(60)->Unit(benchmark::kMillisecond);

}  // namespace
