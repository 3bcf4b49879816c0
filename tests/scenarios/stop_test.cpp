// Goal: a run ends behind the scheduling choice that it is asked to end at, shows the domain as it then is, and fails
// when the run without an end had failed up to there. Method: runs with a failure, replayed to it and to just before
// it.
#include "lab/report/json_report.h"
#include "lab/report/tree.h"
#include "lab/run/run.h"
#include "tests/support/seeds.h"

namespace {

// A hub that comes, goes and comes back.
constexpr const char* kReturningHub = R"(
[[host]]
[[host.controller]]
registry = { 'PCIETunnel\PCIETunnelSupported' = 1 }
[[router]]
model = "D1"
[[link]]
from = "H1:1"
to = "D1:1"
[[event]]
at = "2 s"
do = "unplug"
what = "D1"
[[event]]
at = "12 s"
do = "plug"
from = "H1:1"
to = "D1:1"
)";

lab::RunReport RunTo(const std::string& text, std::uint64_t seed, std::uint64_t stopAtStep) {
  lab::RunOptions options;
  options.seed = seed;
  options.stopAtStep = stopAtStep;
  return lab::RunScenario(lab::ReadScenarioText(text, "hub"), options);
}

TEST(StopAt, TheReplayOfAFailureFailsAsTheRunDid) {
  const struct {
    const char* expectation;
    const char* failure;
    const char* tree;  // has this line
  } kCases[] = {
      {"[[expect]]\nat = \"1 s\"\nrouters = 3\n", "hub:19:1: host/H1: routers is 2, expected 3",
       "|__ 1 Example Hub D1"},
      {"[[expect]]\nat = \"10 s\"\nroute = \"1\"\n", "hub:19:1: host/H1: router 1 is absent, expected present",
       "|__ 0 (no name), host"},
      {"[[expect]]\ntunnelCount = 2\n", "hub:19:1: host/H1: tunnel count is 1, expected 2",
       "=== PCIe 0:3 -> 1:9, active"},
  };
  for (const auto& test : kCases) {
    for (const auto& seed : tests::SeedsToRun()) {
      if (!seed) continue;  // first come, first served makes no choices
      const std::string text = std::string(kReturningHub) + test.expectation;
      const lab::RunReport whole = RunTo(text, *seed, 0);
      ASSERT_EQ(whole.failures, std::vector<std::string>{test.failure}) << "seed " << *seed;
      ASSERT_GT(whole.failedStep, 1u);
      ASSERT_LT(whole.failedStep, whole.step) << "the removal comes behind it";
      const lab::RunReport replay = RunTo(text, *seed, whole.failedStep);
      EXPECT_TRUE(replay.stopReached);
      EXPECT_EQ(replay.code, lab::ExitCode::Failed);
      EXPECT_EQ(replay.failures, whole.failures);
      EXPECT_EQ(replay.step, whole.failedStep);
      ASSERT_EQ(replay.domains.size(), 1u);
      EXPECT_NE(lab::FormatTree(replay.domains[0], 0).find(test.tree), std::string::npos)
          << lab::FormatTree(replay.domains[0], 0);
      EXPECT_NE(lab::FormatJson(replay).find("\"verdict\": \"fail\""), std::string::npos);
      const lab::RunReport before = RunTo(text, *seed, whole.failedStep - 1);
      EXPECT_EQ(before.code, lab::ExitCode::Held);
      EXPECT_NE(lab::FormatJson(before).find("\"verdict\": \"stopped\""), std::string::npos);
    }
  }
}

// The driver may be anywhere then: inside its start, its removal, with locks held.
TEST(StopAt, AnyChoiceIsFollowedByATree) {
  const lab::Scenario scenario = lab::ReadScenarioText(kReturningHub, "hub");
  for (const auto& seed : tests::SeedsToRun()) {
    if (!seed) continue;
    lab::RunOptions options;
    options.seed = seed;
    const std::uint64_t all = lab::RunScenario(scenario, options).step;
    unsigned present = 0;
    for (options.stopAtStep = 1; options.stopAtStep < all; options.stopAtStep += 1 + all / 40) {
      const lab::RunReport report = lab::RunScenario(scenario, options);
      ASSERT_EQ(report.code, lab::ExitCode::Held) << "seed " << *seed << " choice " << options.stopAtStep;
      ASSERT_EQ(report.step, options.stopAtStep);
      ASSERT_EQ(report.domains.size(), 1u);
      present += report.domains[0].present && !lab::FormatTree(report.domains[0], 1).empty();
    }
    EXPECT_GT(present, 30u) << "seed " << *seed;
  }
}

}  // namespace
