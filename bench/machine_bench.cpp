// The whole machine: switching tasks, moving descriptors, a configuration read from the caller through driver, rings
// and model back to the caller, and the host run from load to unload. First come, first served.
#include <benchmark/benchmark.h>
#include <ntddk.h>
#include <wdf.h>

#include "hostif/abort.h"
#include "hostif/config_access.h"
#include "hostif/host_interface.h"
#include "hostif/ring.h"
#include "include/device_context.h"
#include "include/domain_record.h"
#include "lab/machine/machine.h"
#include "platform/scheduler/scheduler.h"
#include "topology/device_list.h"
#include "topology/router_queries.h"
#include "tunnel/pcie_tunnel.h"
#include "tunnel/tunnel.h"

namespace {

// Two tasks that hand over to each other; one iteration is one switch.
void TaskSwitch(benchmark::State& state) {
  platform::Simulation simulation;
  bool stop = false;
  simulation.Spawn(nullptr, "partner", [&] {
    while (!stop) platform::Scheduler::Active()->Yield();
  });
  simulation.RunTask(nullptr, "measured", [&] {
    for (auto _ : state) platform::Scheduler::Active()->Yield();
    stop = true;
  });
  simulation.RunUntil([] { return false; });
  state.SetItemsProcessed(2 * state.iterations());
}
BENCHMARK(TaskSwitch);

// A started machine, and a benchmark's loop on a task of its driver.
class Started {
 public:
  explicit Started(lab::MachineConfig config = {}) : machine_(std::move(config)) {
    machine_.wire().log().Keep(false);
    machine_.Start();
  }
  ~Started() { machine_.RemoveAndUnload(); }
  // Holds the device meanwhile: a loop may take longer than the idle time-out.
  void InDriver(const std::function<void(DEVICE_EXTENSION&)>& body) {
    machine_.InDriver({}, [&](DEVICE_EXTENSION& context) {
      if (!NT_SUCCESS(WdfDeviceStopIdle(context.Device, FALSE))) return;
      body(context);
      WdfDeviceResumeIdle(context.Device);
      ran_ = true;
    });
  }
  bool ran() const { return ran_; }

 private:
  lab::Machine machine_;
  bool ran_ = false;
};

void ConfigRead(benchmark::State& state) {
  Started started;
  std::uint32_t words[63] = {};
  const USB4_CFG_TARGET target{0, 0, {USB4_CFG_SPACE_ROUTER, 0, static_cast<std::uint32_t>(state.range(0))}};
  started.InDriver([&](DEVICE_EXTENSION& context) {
    for (auto _ : state) {
      if (KivUsb4CfgRead(context.Domain->ControlChannel, words, target) != 0) state.SkipWithError("the read failed");
    }
  });
  if (!started.ran()) state.SkipWithError("the machine did not start");
}
BENCHMARK(ConfigRead)->Arg(1)->Arg(5);

void NoCompletion(USB4_RING*, USB4_RING_FRAME*, bool) {}

// One descriptor posted on a network transmit ring, fetched and sent by the model, completed by the driver.
void RingPostAndComplete(benchmark::State& state) {
  Started started;
  started.InDriver([&](DEVICE_EXTENSION& context) {
    USB4_RING* ring = Usb4TxRingAlloc(context.HostInterface, -1, 256, kRingFrameMode);
    const WDFCOMMONBUFFER table = ring->DescriptorTable;
    DMA_BUFFER buffer{};
    if (CreateDmaBuffer(*context.HostInterface, 4096, &buffer) != 0) return state.SkipWithError("no buffer");
    USB4_RING_FRAME frame{};
    frame.Completion = NoCompletion;
    frame.BufferBusAddress = buffer.BusAddress;
    frame.Word = FrameWord::Size::Of(256);
    Usb4RingStart(ring);
    for (auto _ : state) {
      if (KivUsb4RingFrameEnqueue(ring, &frame) != 0) return state.SkipWithError("the ring does not run");
      while (ring->Head.Peek() != ring->Tail.Peek()) {
        LARGE_INTEGER wait;
        wait.QuadPart = -10;  // 1 us
        KeDelayExecutionThread(KernelMode, FALSE, &wait);
        ProcessRingData(ring);
      }
    }
    USb4RingStop(ring);
    Usb4RingFree(ring);
    WdfObjectDelete(table);
    WdfObjectDelete(buffer.Handle);
  });
  if (!started.ran()) state.SkipWithError("the machine did not start");
}
BENCHMARK(RingPostAndComplete);

lab::MachineConfig ChainOf(unsigned hubs) {
  lab::MachineConfig config;
  std::string above = "H1:1";
  for (unsigned i = 0; i < hubs; ++i) {
    const std::string hub = "hub" + std::to_string(i);
    config.routers.push_back({hub, "D1"});
    config.cables.push_back({above, hub + ":1", {}});
    above = hub + ":3";
  }
  return config;
}

// A PCIe tunnel from the host to the last hub of a chain, built and taken down.
void TunnelOverLinks(benchmark::State& state) {
  const auto links = static_cast<unsigned>(state.range(0));
  Started started(ChainOf(links));
  started.InDriver([&](DEVICE_EXTENSION& context) {
    const RunGuard run(*context.Domain);
    const PathGuard paths(*context.Domain);
    USB4_SWITCH* last = context.Domain->HostRouter;
    for (unsigned i = 0; i < links; ++i) last = last->Adapters[i == 0 ? 1 : 3].Remote->Router;
    const USB4_ENDS ends = {KivUsb4SwitchFindPortByType(context.Domain->HostRouter, USB4_ADAPTER_PCIE_DOWNSTREAM),
                            KivUsb4SwitchFindPortByType(last, USB4_ADAPTER_PCIE_UPSTREAM)};
    for (auto _ : state) {
      USB4_TUNNEL* tunnel = KivUsb4TunnelAllocPcie(context.Domain, ends);
      if (tunnel == nullptr || KivUsb4TunnelActivate(tunnel) != 0) return state.SkipWithError("no tunnel");
      KivUsb4TunnelDeactivate(tunnel);
      KivUsb4TunnelFree(tunnel);
    }
  });
  if (!started.ran()) state.SkipWithError("the machine did not start");
}
BENCHMARK(TunnelOverLinks)->DenseRange(1, 5)->Unit(benchmark::kMicrosecond);

void LoadStartRemoveUnload(benchmark::State& state) {
  std::uint64_t packets = 0;
  platform::Time virtualTime = 0;
  for (auto _ : state) {
    lab::Machine machine{lab::MachineConfig{}};
    machine.wire().log().Keep(false);
    machine.Start();
    machine.RemoveAndUnload();
    if (machine.simulation().Stopped()) state.SkipWithError("the verifier stopped the run");
    packets = machine.wire().log().count();
    virtualTime = machine.simulation().Now();
  }
  state.counters["packets"] = static_cast<double>(packets);
  state.counters["virtual_ms"] = static_cast<double>(virtualTime) / static_cast<double>(platform::kMillisecond);
}
BENCHMARK(LoadStartRemoveUnload)->Unit(benchmark::kMillisecond);

}  // namespace
