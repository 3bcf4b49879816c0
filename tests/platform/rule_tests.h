// Tests that break one rule of the verifier each, and the list of them all, by which a rule without such a test is
// found.
//
//   BREAKS(RaiseDownwards, IrqlRaisedWrongly, "KeRaiseIrql") {
//     ... break it ...
//   }
//
// runs the body on a task of a fresh host and passes when the run ends with exactly one report: this rule, in this
// call.
#pragma once
#include <gtest/gtest.h>
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

// What a test does on tasks of the host breaks no rule.
class HostTest : public testing::Test {
 protected:
  void OnTask(std::function<void()> body) {
    EXPECT_EQ(rig_.OnTask(std::move(body)), Outcome::Done) << rig_.simulation.HangReport();
    for (const Violation& violation : rig_.simulation.violations()) ADD_FAILURE() << violation.detail;
  }

  RuleRig rig_;
};

struct BrokenRule {
  const char* test;
  Rule rule;
  const char* call;                 // as the report names it; "" where no call is in progress
  std::vector<Violation> (*run)();  // what a fresh host reports; null: a test of its own breaks the rule
};

template <class Rig>
std::vector<Violation> ReportsOf(void (*breakIt)(Rig& rig)) {
  Rig rig;
  breakIt(rig);
  return rig.simulation.violations();
}

void PrintTo(const BrokenRule& broken, std::ostream* out);
std::vector<BrokenRule>& BrokenRules();

struct BrokenRuleEntry {
  BrokenRuleEntry(BrokenRule broken) { BrokenRules().push_back(broken); }
};

#define BREAKS(testName, ruleName, callName)  \
  static void Task##testName();               \
  HOST_BREAKS(testName, ruleName, callName) { \
    rig.OnTask(&Task##testName);              \
  }                                           \
  static void Task##testName()

// The body has the host itself, as `rig`: for other tasks, devices, an unload.
#define HOST_BREAKS(testName, ruleName, callName) BREAKS_ON(::platform::RuleRig, testName, ruleName, callName)

#define BREAKS_ON(Rig, testName, ruleName, callName)                                                                   \
  static void Break##testName(Rig& rig);                                                                               \
  static const ::platform::BrokenRuleEntry kEntry##testName(                                                           \
      {#testName, ::platform::Rule::ruleName, callName, [] { return ::platform::ReportsOf<Rig>(&Break##testName); }}); \
  static void Break##testName([[maybe_unused]] Rig& rig)

// For a rule whose breaking needs more than a rig: the test of this name asserts it by itself.
#define BROKEN_BY_TEST(testName, ruleName, callName) PLATFORM_BROKEN_BY(testName, ruleName, callName, __LINE__)
#define PLATFORM_BROKEN_BY(testName, ruleName, callName, line) PLATFORM_BROKEN_AT(testName, ruleName, callName, line)
#define PLATFORM_BROKEN_AT(testName, ruleName, callName, line) \
  static const ::platform::BrokenRuleEntry kEntry##line({#testName, ::platform::Rule::ruleName, callName, nullptr});

}  // namespace platform
