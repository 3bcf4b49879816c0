// Goal: what nobody wrote an expectation for fails a run all the same when it went wrong. Method: one scenario for each
// of these, and the same one with the expectation that makes it right.
#include "lab/run/run.h"
#include "tests/support/seeds.h"

namespace {

TEST(Verdict, WhatNobodyExpectsFailsTheRun) {
  const std::string missing = "[[host]]\n[[host.controller]]\nresources = [\"memory\", \"missing\"]\n";
  const std::string asleep = "[[event]]\nat = \"1 s\"\ndo = \"sleep\"\n[[event]]\nat = \"3 s\"\ndo = \"disable\"\n";
  const struct {
    std::string text;
    std::vector<std::string> failures;
  } kCases[] = {
      {missing, {"host/H1: the start has failed with status 0xC0000182 (STATUS_DEVICE_CONFIGURATION_ERROR)"}},
      {missing + "[[expect]]\nstartStatus = \"0xC0000001\"\n",
       {"host/H1: the start has failed with status 0xC0000182 (STATUS_DEVICE_CONFIGURATION_ERROR)",
        "text:4:1: host/H1: start status is 0xC0000182, expected 0xC0000001"}},
      {missing + "[[expect]]\nstartStatus = \"0xC0000182\"\n", {}},
      {missing + "[[expect]]\nat = \"1 s\"\nstate = \"failed\"\n", {}},
      {asleep,
       {"host host sleeps, and what was asked of a controller in the meantime waits for its resume: add an event that "
        "resumes it"}},
      {asleep + "[[event]]\nat = \"5 s\"\ndo = \"resume\"\n[[expect]]\nstate = \"removed\"\n", {}},
  };
  for (const auto& test : kCases) {
    for (const auto& seed : tests::SeedsToRun()) {
      const lab::RunReport report = lab::RunScenario(lab::ReadScenarioText(test.text, "text"), {.seed = seed});
      EXPECT_EQ(report.failures, test.failures) << test.text;
      EXPECT_EQ(report.code, test.failures.empty() ? lab::ExitCode::Held : lab::ExitCode::Failed) << test.text;
    }
  }
}

}  // namespace
