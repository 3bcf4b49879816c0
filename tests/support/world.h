// A whole machine behind verbs: what every test above the platform and the hardware model is written in.
//
// A world starts nothing by itself. Verbs run until the system would say that they are done; At and AtPacket begin one
// at a time or at a packet. What the verifier, the hardware or a hang holds against the driver fails the test at the
// verb during which it showed. Pointers to driver records never leave InDriver.
#pragma once
#include <gtest/gtest.h>
#include <ntddk.h>
#include <wdf.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "include/device_context.h"
#include "include/domain_record.h"
#include "lab/machine/machine.h"
#include "tests/support/seeds.h"

namespace tests {

struct WorldOptions {
  std::optional<std::uint64_t> seed = CurrentSeed();
  std::optional<platform::Policy> policy;                 // else the one that the seed stands for
  std::map<std::string, std::uint32_t> registry;          // below the device-parameters key
  std::function<void(lab::ControllerConfig&)> configure;  // anything else, asked for each controller
  std::vector<lab::PeerHostConfig> peers;                 // hosts without a driver
};

class World {
 public:
  // "H1", or the cables of a domain: "H1:1 - D1:1, D1:3 - D2:1". A router is named after its model, or "NAME=MODEL" at
  // its first mention; host routers are controllers of one host, in order of mention. Several hosts: "a/H1:1 - b/H3:1",
  // numbered in order of mention. A name of `options.peers` is that peer: "H1:1 - friend:1".
  explicit World(const std::string& topology = "H1", WorldOptions options = {});
  ~World();  // Finish(), unless it was called
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  lab::Machine& machine() { return *machine_; }
  platform::Simulation& simulation() { return machine_->simulation(); }
  platform::FaultPlan& faults() { return machine_->faults(); }
  platform::HostKernel& kernel(std::size_t host = 0) { return machine_->kernel(host); }
  sim::HostInterface& hardware(std::size_t controller = 0) { return machine_->hostInterface({0, controller}); }
  sim::ControlWire& wire(lab::Place place = {}) { return machine_->wire(place); }
  sim::Fabric& fabric() { return machine_->fabric(); }

  // --- verbs
  // Load, add, start; all hosts side by side. Of the first controller of the first host.
  platform::Status Start();
  void Stop(std::size_t host = 0);  // orderly removal of the first controller; the driver stays loaded
  void Sleep(std::size_t host = 0);
  void Hibernate(std::size_t host = 0);
  void Resume(std::size_t host = 0);
  void SurpriseRemove(std::size_t controller = 0, std::size_t host = 0);
  void Plug(const std::string& cable);  // "D1:3 - T3:1"
  void Unplug(const std::string& portOrRouter);
  void Pass(platform::Time duration);  // lets virtual time pass
  // Begins at a time from now, or just before the n-th control packet from now passes. `verb` runs between tasks: it
  // may call the Async verbs of kernel(), the fabric and the wire.
  void At(platform::Time after, std::function<void()> verb);
  void AtPacket(std::uint64_t n, std::function<void()> verb, lab::Place place = {});
  // Runs until nothing is left to do before the idle time-out; fails the test when that takes longer.
  void Quiet(platform::Time within = 30 * platform::kSecond);
  // Removal, unload, what the hardware and the verifier say, leaks. Called once, at the latest by the destructor.
  void Finish();
  // The test says itself what it thinks of the run: no verdict, and no removal where the run was stopped.
  void ExpectStopped() { verdictExpected_ = false; }
  // A router that can be reached need not be listed: something is meant to go wrong with it.
  void ExpectIncomplete() { complete_ = false; }
  // The test says itself what is left in the hardware and in the records: no oracle at the end.
  void ExpectLeftovers() { leftovers_ = true; }
  // Complaints of the hardware so far, one a line; they no longer fail the test.
  std::string TakeProtocolErrors();

  // --- into the driver: `look` runs on a system-thread task of the host and returns a value, or nothing
  template <class Look>
  auto InDriver(Look look, lab::Place place = {}) {
    return Call(look, place, [](const std::function<void()>& body) { body(); });
  }
  // The same at DISPATCH_LEVEL.
  template <class Look>
  auto AtDispatch(Look look, lab::Place place = {}) {
    return Call(look, place, [](const std::function<void()>& body) {
      KIRQL old;
      KeRaiseIrql(DISPATCH_LEVEL, &old);
      body();
      KeLowerIrql(old);
    });
  }
  // The same from the callback of a work item of the device.
  template <class Look>
  auto InWorkItem(Look look, lab::Place place = {}) {
    return Call(look, place, [this](const std::function<void()>& body) { RunInWorkItem(body); });
  }
  // The device context itself, for what stands outside the domain.
  void InDevice(const std::function<void(DEVICE_EXTENSION&)>& look, lab::Place place = {});

  // --- views, as text
  std::string Wire(lab::Place place = {});          // control packets since the last call, one a line
  std::string Registers(const std::string& place);  // "D1:9" adapter space, "D1" router space: "0x00 = 0x0b268086", ...
  // What the fabric's programmed entries carry, one path a line: "PCIe: H1:3 8 -> H1:1 8 | D1:1 8 -> D1:9 8", with
  // why it is lost behind it where nothing arrives; then entries that belong to no path.
  std::string Paths();
  std::string Tunnels(lab::Place place = {});  // that the driver lists, in list order, one a line: "PCIe 0:3 -> 1:9"
  std::string Tree(lab::Place place = {});

 private:
  template <class Look, class Around>
  auto Call(Look& look, lab::Place place, Around around) {
    using Result = std::invoke_result_t<Look&, USB4_DOMAIN&>;
    if constexpr (std::is_void_v<Result>) {
      InDomain(place, [&](USB4_DOMAIN& domain) { around([&] { look(domain); }); });
    } else {
      std::optional<Result> result;
      InDomain(place, [&](USB4_DOMAIN& domain) { around([&] { result.emplace(look(domain)); }); });
      return result ? std::move(*result) : Result{};
    }
  }
  void InDomain(lab::Place place, const std::function<void(USB4_DOMAIN&)>& body);
  void RunInWorkItem(const std::function<void()>& body);
  void Check(const char* verb);  // fails the test when the run has been stopped
  void CheckOracle();
  void CheckLeftovers(platform::HostKernel& kernel);

  std::unique_ptr<lab::Machine> machine_;
  WDFDEVICE device_ = nullptr;  // of the InDriver call in progress
  bool finished_ = false;
  bool verdictExpected_ = true;
  bool complete_ = true;
  bool leftovers_ = false;
  bool stopReported_ = false;
};

// Reads dword 0 of the host router's space, as any access of the driver.
KIV_RESULT ReadFirstWord(World& world);

// Runs `body` first-come and with every seed; stops at the first that fails and prints the command that repeats it.
void RunWithSeeds(const std::function<void()>& body);

}  // namespace tests

// A test that runs first-come and with every seed. Inside, World takes the seed by itself.
#define WORLD_TEST(group, name)                 \
  static void group##_##name##_Body();          \
  TEST(group, name) {                           \
    tests::RunWithSeeds(group##_##name##_Body); \
  }                                             \
  static void group##_##name##_Body()
