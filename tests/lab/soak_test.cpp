// Goal: a campaign runs each seed once over all shards, counts what fails as failed, and can be gone on with. Method: a
// scenario that can never hold, so that every run leaves its command behind in the state file.
#include "lab/run/soak.h"

#include <filesystem>
#include <fstream>

#include "lab/run/print_run.h"
#include "lab/run/soak_state.h"

namespace {

std::string ScenarioThatFails() {
  const std::string path = testing::TempDir() + "never.toml";
  std::ofstream(path) << "[[expect]]\nrouters = 2\n";
  return path;
}

std::string Campaign(const lab::SoakOptions& options, const std::string& shard) {
  return options.scenarios[0] + " seeds 1..7 shard " + shard + " faults none lose";
}

lab::SoakOptions SevenSeedsTwice() {
  lab::SoakOptions options;
  options.scenarios = {ScenarioThatFails()};
  options.firstSeed = 1;
  options.lastSeed = 7;
  options.faults = {"none", "lose"};
  options.stateFile = testing::TempDir() + "never.state";
  std::filesystem::remove(options.stateFile);
  return options;
}

lab::SoakState StateOf(const lab::SoakOptions& options, const std::string& shard) {
  lab::SoakState state;
  std::string why;
  state.campaign = Campaign(options, shard);
  EXPECT_TRUE(lab::LoadSoakState(options.stateFile, state, why)) << why;
  return state;
}

// Every run, in the order of a campaign in one process.
std::vector<std::string> AllFindings(const std::string& file) {
  std::vector<std::string> lines;
  for (const char* faults : {"none", "lose"}) {
    for (int seed = 1; seed <= 7; ++seed) {
      const std::string number = std::to_string(seed), name = faults;
      lines.push_back("FAIL " + file + ":1:1: host/H1: routers is 1, expected 2 seed=" + number + " faults=" + name);
      lines.push_back("  replay: ./usb4lab run " + file + " --seed " + number +
                      (name == "none" ? "" : " --faults " + name));
    }
  }
  return lines;
}

// Cuts what stands behind `key` off the line and returns it.
std::string CutOff(std::string& line, const std::string& key) {
  const std::size_t at = line.rfind(key);
  if (at == std::string::npos) return "";
  const std::string value = line.substr(at + key.size());
  line.resize(at);
  return value;
}

// The findings of a campaign. Each names the choice at which it showed, a number that only the run knows, and its
// command stops there.
std::vector<std::string> WithoutSteps(std::vector<std::string> findings) {
  for (std::size_t i = 0; i + 1 < findings.size(); i += 2) {
    const std::string step = CutOff(findings[i], " step="), stop = CutOff(findings[i + 1], " --stop-at ");
    EXPECT_GT(std::atoi(step.c_str()), 0) << findings[i];
    EXPECT_EQ(step, stop) << findings[i];
  }
  return findings;
}

TEST(Soak, WhatFailsIsCountedNamedAndTheExitCode) {
  const lab::SoakOptions options = SevenSeedsTwice();
  EXPECT_EQ(lab::Soak(options, lab::Console()), lab::ExitCode::Failed);
  const lab::SoakState state = StateOf(options, "1/1");
  EXPECT_EQ(state.runs, 14u);
  EXPECT_EQ(state.failed, 14u);
  EXPECT_EQ(WithoutSteps(state.findings), AllFindings(options.scenarios[0]));
  EXPECT_EQ(lab::Soak(options, lab::Console()), lab::ExitCode::Failed) << "a finished campaign keeps its verdict";
}

TEST(Soak, ShardsShareTheRunsAndLeaveNoneOut) {
  lab::SoakOptions options = SevenSeedsTwice();
  std::vector<std::string> found;
  std::uint64_t runs[3] = {};
  for (options.shard = 1, options.shards = 3; options.shard <= 3; ++options.shard) {
    std::filesystem::remove(options.stateFile);
    EXPECT_EQ(lab::Soak(options, lab::Console()), lab::ExitCode::Failed);
    const lab::SoakState state = StateOf(options, std::to_string(options.shard) + "/3");
    runs[options.shard - 1] = state.runs;
    const std::vector<std::string> findings = WithoutSteps(state.findings);
    found.insert(found.end(), findings.begin(), findings.end());
  }
  EXPECT_EQ(runs[0], 5u);
  EXPECT_EQ(runs[1], 5u);
  EXPECT_EQ(runs[2], 4u);
  std::vector<std::string> all = AllFindings(options.scenarios[0]);
  std::sort(all.begin(), all.end());
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, all);
}

TEST(Soak, AnInterruptedCampaignEndsAsOneThatWasNot) {
  const lab::SoakOptions options = SevenSeedsTwice();
  lab::Soak(options, lab::Console());
  const lab::SoakState whole = StateOf(options, "1/1");
  lab::SoakState state = whole;
  state.next = state.runs = state.failed = 9;
  state.code = 4;
  state.findings.resize(18);
  ASSERT_TRUE(lab::SaveSoakState(options.stateFile, state));
  EXPECT_EQ(lab::Soak(options, lab::Console()), lab::ExitCode::Hang) << "the first that failed decides";
  state = StateOf(options, "1/1");
  EXPECT_EQ(state.runs, 14u);
  EXPECT_EQ(state.failed, 14u);
  EXPECT_EQ(state.findings, whole.findings);
}

TEST(Soak, AStateThatLostItsLastFindingsIsRefused) {
  const lab::SoakOptions options = SevenSeedsTwice();
  std::ofstream(options.stateFile) << "campaign " << Campaign(options, "1/1") << "\nprogress 2 2 2 0 4 3 1\n"
                                   << "FAIL something seed=1 faults=none\n  replay: ./usb4la";
  EXPECT_EQ(lab::Soak(options, lab::Console()), lab::ExitCode::Usage);
}

TEST(ReplayCommand, IsWhatAShellTakes) {
  lab::RunOptions options;
  options.seed = 5;
  options.faults = "heavy";
  EXPECT_EQ(lab::ReplayCommand("scenarios/host.toml", options),
            "./usb4lab run scenarios/host.toml --seed 5 --faults heavy");
  EXPECT_EQ(lab::ReplayCommand("scenarios/host.toml", options, 4711),
            "./usb4lab run scenarios/host.toml --seed 5 --faults heavy --stop-at 4711");
  EXPECT_EQ(lab::ReplayCommand("my host's.toml", {}), "./usb4lab run 'my host'\\''s.toml'");
}

}  // namespace
