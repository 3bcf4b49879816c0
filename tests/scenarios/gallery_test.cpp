// Goal: every scenario that the project shows holds, first-come and with seeds, and the same seed is the same run.
#include <filesystem>
#include <fstream>
#include <map>

#include "lab/run/run.h"
#include "tests/support/seeds.h"

namespace {

std::vector<std::string> ScenarioFiles() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(PROJECT_ROOT "/scenarios")) {
    if (entry.path().extension() == ".toml") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string Findings(const lab::RunReport& report) {
  std::string text = report.hang;
  for (const std::string& failure : report.failures) text += failure + "\n";
  for (const platform::Violation& violation : report.violations) {
    text += std::string(platform::RuleName(violation.rule)) + ": " + violation.detail + "\n";
  }
  for (const sim::ProtocolError& error : report.protocolErrors) text += error.Text() + "\n";
  return text;
}

// The examples of the document that lists every key, each written to a file of its own.
std::vector<std::string> DocumentedExamples() {
  std::vector<std::string> files;
  std::ifstream in(PROJECT_ROOT "/docs/scenarios.md");
  std::ofstream out;
  for (std::string line; std::getline(in, line);) {
    if (line == "```toml") {
      files.push_back(testing::TempDir() + "example" + std::to_string(files.size()) + ".toml");
      out.open(files.back());
    } else if (line == "```") {
      out.close();
    } else if (out.is_open()) {
      out << line << '\n';
    }
  }
  return files;
}

TEST(Gallery, EveryScenarioHolds) {
  ASSERT_GE(ScenarioFiles().size(), 16u);
  ASSERT_GE(DocumentedExamples().size(), 3u);
  std::vector<std::string> files = ScenarioFiles();
  for (const std::string& example : DocumentedExamples()) files.push_back(example);
  for (const std::string& file : files) {
    for (const auto& seed : tests::SeedsToRun()) {
      lab::RunOptions options;
      options.seed = seed;
      const lab::RunReport report = lab::RunScenario(lab::ReadScenario(file), options);
      EXPECT_EQ(report.code, lab::ExitCode::Held) << file << " seed " << (seed ? std::to_string(*seed) : "none") << "\n"
                                                  << Findings(report);
    }
  }
}

// Whether or not somebody watches, also when registers are gone.
TEST(Gallery, OneSeedIsOneRun) {
  for (const char* name : {"host.toml", "surprise-removal-while-scanning.toml"}) {
    const lab::Scenario scenario = lab::ReadScenario(std::string(PROJECT_ROOT "/scenarios/") + name);
    lab::RunOptions watched, alone;
    watched.faults = alone.faults = "heavy";
    alone.events = false;
    std::uint64_t previous = 0;
    for (std::uint64_t seed = 1; seed <= 8; ++seed) {
      watched.seed = alone.seed = seed;
      const lab::RunReport first = lab::RunScenario(scenario, watched);
      const lab::RunReport second = lab::RunScenario(scenario, alone);
      EXPECT_EQ(first.traceHash, second.traceHash) << name << " seed " << seed;
      EXPECT_EQ(first.virtualTime, second.virtualTime) << name << " seed " << seed;
      EXPECT_NE(first.traceHash, previous) << name << " seed " << seed << " changes nothing";
      previous = first.traceHash;
    }
  }
}

// No expectation can say what a dock has done in the meantime.
TEST(Gallery, OnlyTheHastyDockBehindAHubLosesPatience) {
  const lab::Scenario scenario = lab::ReadScenario(PROJECT_ROOT "/scenarios/hasty-dock.toml");
  for (const auto& seed : tests::SeedsToRun()) {
    lab::RunOptions options;
    options.seed = seed;
    std::map<std::string, unsigned> lost;
    for (const lab::LiveEvent& event : lab::RunScenario(scenario, options).events) {
      if (event.event == "dock lost patience") ++lost[event.effect];
    }
    EXPECT_EQ(lost.count("hasty dock"), 0u);
    EXPECT_GE(lost["second hasty dock"], 1u);
  }
}

}  // namespace
