// Goal: generated scenarios are scenarios, a seed is one of them, and a campaign that was interrupted ends as one that
// was not.
#include <filesystem>
#include <fstream>
#include <set>

#include "lab/run/run.h"
#include "lab/run/soak.h"
#include "lab/run/soak_state.h"
#include "lab/scenario/generate.h"
#include "tests/support/seeds.h"

namespace {

TEST(Generated, EverySeedIsAScenarioOfItsOwn) {
  std::set<std::string> texts;
  std::vector<std::size_t> sizes;
  std::set<lab::Verb> verbs;
  for (std::uint64_t seed = 1; seed <= 400; ++seed) {
    texts.insert(lab::GenerateScenario(seed));
    EXPECT_TRUE(texts.contains(lab::GenerateScenario(seed))) << "seed " << seed << " gives another text";
    const lab::Scenario scenario = lab::FindScenario("generated", seed);  // throws for a mistake
    sizes.push_back(scenario.machine.routers.size());
    for (const lab::ScenarioEvent& event : scenario.events) verbs.insert(event.verb);
    EXPECT_FALSE(scenario.expectations.empty());
  }
  EXPECT_EQ(texts.size(), 400u);
  std::sort(sizes.begin(), sizes.end());
  EXPECT_EQ(sizes.front(), 1u);
  EXPECT_GE(sizes[200], 4u);
  EXPECT_LE(sizes[200], 8u) << "half of the trees have up to 6 routers";
  EXPECT_GE(sizes.back(), 32u);
  EXPECT_LE(sizes.back(), 40u);
  for (const lab::Verb verb :
       {lab::Verb::Sleep, lab::Verb::Hibernate, lab::Verb::Resume, lab::Verb::Disable, lab::Verb::SurpriseRemove,
        lab::Verb::Plug, lab::Verb::Unplug, lab::Verb::DropLink, lab::Verb::PlugDisplay, lab::Verb::UseUsb3}) {
    EXPECT_TRUE(verbs.contains(verb)) << lab::VerbNames()[static_cast<std::size_t>(verb)];
  }
}

TEST(Generated, TheFirstOnesHoldUnderEachProfile) {
  for (const char* faults : {"none", "light", "heavy"}) {
    for (std::uint64_t seed = 1; seed <= 6; ++seed) {
      lab::RunOptions options;
      options.seed = seed;
      options.faults = faults;
      options.events = false;
      if (std::string(faults) != "none" && lab::FindScenario("generated", seed).machine.routers.size() > 12) continue;
      const lab::RunReport report = lab::RunScenario(lab::FindScenario("generated", seed), options);
      EXPECT_EQ(report.code, lab::ExitCode::Held) << "seed " << seed << " faults " << faults << " "
                                                  << (report.failures.empty() ? report.hang : report.failures.front());
    }
  }
}

TEST(SoakState, GoesOnWhereItStopped) {
  const std::string file = testing::TempDir() + "soak.state";
  std::filesystem::remove(file);
  lab::SoakState written, read;
  std::string why;
  written.campaign = read.campaign = "generated seeds 1..9 shard 1/1 faults none";
  EXPECT_TRUE(lab::LoadSoakState(file, read, why)) << "no file is no mistake";
  written.next = 7;
  written.runs = 6;
  written.failed = 1;
  written.faultsFired = 5;
  written.virtualTime = 4;
  written.milliseconds = 3;
  written.code = 4;
  written.findings = {"FAIL something seed=2 faults=none", "  replay: ./usb4lab run generated --seed 2"};
  ASSERT_TRUE(lab::SaveSoakState(file, written));
  ASSERT_TRUE(lab::LoadSoakState(file, read, why)) << why;
  EXPECT_EQ(read, written);
  read.campaign = "generated seeds 1..10 shard 1/1 faults none";
  EXPECT_FALSE(lab::LoadSoakState(file, read, why));
  EXPECT_EQ(why, file + " belongs to another campaign: " + written.campaign);
  std::ofstream(file) << "campaign generated seeds 1..10 shard 1/1 faults none\nprogress 7 6";
  EXPECT_FALSE(lab::LoadSoakState(file, read, why));
  EXPECT_EQ(why, file + " is cut short");
}

TEST(SoakState, AFinishedCampaignIsNotRunAgain) {
  lab::SoakOptions options;
  options.scenarios = {"generated"};
  options.firstSeed = 1;
  options.lastSeed = 2;
  options.stateFile = testing::TempDir() + "finished.state";
  std::filesystem::remove(options.stateFile);
  EXPECT_EQ(lab::Soak(options, lab::Console()), lab::ExitCode::Held);
  lab::SoakState first, second;
  std::string why;
  first.campaign = second.campaign = "generated seeds 1..2 shard 1/1 faults none";
  ASSERT_TRUE(lab::LoadSoakState(options.stateFile, first, why)) << why;
  EXPECT_EQ(first.runs, 2u);
  EXPECT_EQ(first.next, 2u);
  EXPECT_EQ(lab::Soak(options, lab::Console()), lab::ExitCode::Held);
  ASSERT_TRUE(lab::LoadSoakState(options.stateFile, second, why)) << why;
  EXPECT_EQ(second.runs, 2u);
  EXPECT_EQ(second.virtualTime, first.virtualTime);
}

}  // namespace
