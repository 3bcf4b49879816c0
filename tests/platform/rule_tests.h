// Tests that break one rule of the verifier each, and the list of them all, by which a rule without such a test is
// found.
//
//   BREAKS(SetEventAtDeviceLevel, IrqlTooHigh, "KeSetEvent") {
//     rig.OnTask([] { ... break it ... });
//   }
//
// runs the body against a fresh host and passes when the run ends with exactly one report: this rule, in this call.
#pragma once
#include <ntddk.h>

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "platform/host/host_kernel.h"
#include "platform/host/simulation.h"

namespace platform {

// A simulation of one host without devices.
struct RuleRig {
  explicit RuleRig(SimulationOptions options = {}) : simulation(std::move(options)), kernel(simulation) {}

  // Runs on a task of the host, to its end or the report that stops it.
  Outcome OnTask(std::function<void()> body) { return simulation.RunTask(&kernel, "breaker", std::move(body)); }
  // A task that runs beside; call before OnTask.
  void Beside(std::string name, std::function<void()> body) {
    simulation.Spawn(&kernel, std::move(name), std::move(body));
  }

  Simulation simulation;
  HostKernel kernel;
};

struct BrokenRule {
  const char* test;
  Rule rule;
  const char* call;               // as the report names it; "" where no call is in progress
  void (*breakIt)(RuleRig& rig);  // null: a test of its own breaks the rule
};

void PrintTo(const BrokenRule& broken, std::ostream* out);
std::vector<BrokenRule>& BrokenRules();

struct BrokenRuleEntry {
  BrokenRuleEntry(BrokenRule broken) { BrokenRules().push_back(broken); }
};

#define BREAKS(testName, ruleName, callName)                                \
  static void Break##testName(::platform::RuleRig& rig);                    \
  static const ::platform::BrokenRuleEntry kEntry##testName(                \
      {#testName, ::platform::Rule::ruleName, callName, &Break##testName}); \
  static void Break##testName([[maybe_unused]] ::platform::RuleRig& rig)

// For a rule whose breaking needs more than a RuleRig: the test of this name asserts it by itself.
#define BROKEN_BY_TEST(testName, ruleName, callName) PLATFORM_BROKEN_BY(testName, ruleName, callName, __LINE__)
#define PLATFORM_BROKEN_BY(testName, ruleName, callName, line) PLATFORM_BROKEN_AT(testName, ruleName, callName, line)
#define PLATFORM_BROKEN_AT(testName, ruleName, callName, line) \
  static const ::platform::BrokenRuleEntry kEntry##line({#testName, ::platform::Rule::ruleName, callName, nullptr});

}  // namespace platform
