// A campaign in one process; other shards are other processes. Wall-clock time is for the progress line only.
#include "lab/soak.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "lab/duration.h"
#include "lab/print_run.h"

namespace lab {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kTwiceEvery = 50;  // a sample of seeds runs twice and must give the same trace
constexpr std::uint64_t kProgressEvery = 100;

struct Totals {
  std::uint64_t runs = 0, all = 0, failed = 0, faultsFired = 0;
  platform::Time virtualTime = 0;
  ExitCode code = ExitCode::Held;
  Clock::time_point began = Clock::now();

  double Seconds() const { return std::chrono::duration<double>(Clock::now() - began).count(); }
};

class Campaign {
 public:
  Campaign(const SoakOptions& options, const Console& console) : options_(options), console_(console) {}

  ExitCode Execute() {
    std::vector<Scenario> scenarios;
    for (const std::string& file : options_.scenarios) scenarios.push_back(ReadScenario(file));
    const std::uint64_t seeds = options_.lastSeed - options_.firstSeed + 1;
    totals_.all = seeds * scenarios.size() * options_.faults.size() / options_.shards;
    std::uint64_t position = 0;
    for (const Scenario& scenario : scenarios)
      for (const std::string& faults : options_.faults)
        for (std::uint64_t seed = options_.firstSeed; seed <= options_.lastSeed; ++seed)
          if (position++ % options_.shards == options_.shard - 1) RunOne(scenario, faults, seed);
    Finish();
    return totals_.code;
  }

 private:
  void RunOne(const Scenario& scenario, const std::string& faults, std::uint64_t seed) {
    RunOptions run;
    run.seed = seed;
    run.faults = faults;
    run.events = false;
    const RunReport report = RunScenario(scenario, run);
    ++totals_.runs;
    totals_.faultsFired += report.faultsFired;
    totals_.virtualTime += report.virtualTime;
    if (report.code != ExitCode::Held) Failure(scenario, run, report.code, FirstFinding(report));
    if (seed % kTwiceEvery == 0) {
      const RunReport again = RunScenario(scenario, run);
      if (again.traceHash != report.traceHash)
        Failure(scenario, run, ExitCode::Failed, "the same seed gave another trace");
    }
    if (totals_.runs % kProgressEvery == 0) Progress();
  }

  static std::string FirstFinding(const RunReport& report) {
    if (!report.violations.empty())
      return fmt::format("{}: {}", platform::RuleName(report.violations.front().rule),
                         report.violations.front().detail);
    if (!report.hang.empty()) return "hang: " + report.hang.substr(0, report.hang.find('\n'));
    if (!report.failures.empty()) return report.failures.front();
    return report.protocolErrors.empty() ? "failed" : report.protocolErrors.front().text;
  }

  void Failure(const Scenario& scenario, const RunOptions& run, ExitCode code, const std::string& why) {
    if (totals_.failed++ == 0) totals_.code = code;
    console_.Out(fmt::format("FAIL {} seed={} faults={}", why, *run.seed, run.faults));
    console_.Out("  replay: " + ReplayCommand(scenario.file, run));
  }

  void Progress() {
    const double seconds = totals_.Seconds();
    const double rate = seconds > 0 ? static_cast<double>(totals_.runs) / seconds : 0;
    const double left = rate > 0 ? static_cast<double>(totals_.all - std::min(totals_.all, totals_.runs)) / rate : 0;
    console_.Message(fmt::format("{} of {} runs, {} failed, {:.0f} a second, {:.0f} s left", totals_.runs, totals_.all,
                                 totals_.failed, rate, left));
  }

  void Finish() {
    const double seconds = std::max(totals_.Seconds(), 1e-3);
    console_.Out(fmt::format("{} runs, {} faults, {} s of virtual time in {:.1f} s ({:.0f} runs a second)",
                             totals_.runs, totals_.faultsFired, totals_.virtualTime / platform::kSecond, seconds,
                             static_cast<double>(totals_.runs) / seconds));
    console_.Out(
        fmt::format("{} passed, {} failed", totals_.runs - std::min(totals_.runs, totals_.failed), totals_.failed));
  }

  const SoakOptions& options_;
  const Console& console_;
  Totals totals_;
};

template <class Number>
bool ParsePair(const std::string& text, const std::string& between, Number& first, Number& second) {
  const std::size_t at = text.find(between);
  if (at == std::string::npos) return false;
  const std::string left = text.substr(0, at), right = text.substr(at + between.size());
  for (const std::string& part : {left, right})
    if (part.empty() || part.size() > 9 || part.find_first_not_of("0123456789") != std::string::npos) return false;
  first = static_cast<Number>(std::stoul(left));
  second = static_cast<Number>(std::stoul(right));
  return first <= second;
}

}  // namespace

bool ParseSeedRange(const std::string& text, std::uint64_t& first, std::uint64_t& last) {
  return ParsePair(text, "..", first, last);
}

bool ParseShard(const std::string& text, unsigned& shard, unsigned& shards) {
  return ParsePair(text, "/", shard, shards) && shard >= 1;
}

ExitCode Soak(const SoakOptions& options, const Console& console) {
  return Campaign(options, console).Execute();
}

}  // namespace lab
