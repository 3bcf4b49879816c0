// A campaign in one process; other shards are other processes. Wall-clock time is for the progress line only.
#include "lab/run/soak.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "lab/input/duration.h"
#include "lab/run/print_run.h"
#include "lab/run/soak_state.h"
#include "lab/scenario/generate.h"

namespace lab {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kTwiceEvery = 50;  // a sample of seeds runs twice and must give the same trace
constexpr std::chrono::seconds kProgressEvery{10};

std::string FirstFinding(const RunReport& report) {
  if (!report.violations.empty()) {
    return fmt::format("{}: {}", platform::RuleName(report.violations.front().rule), report.violations.front().detail);
  }
  if (!report.hang.empty()) return "hang: " + report.hang.substr(0, report.hang.find('\n'));
  if (!report.failures.empty()) return report.failures.front();
  return report.protocolErrors.empty() ? "failed" : report.protocolErrors.front().Text();
}

// Where the second run of a seed parts from the first; empty when it does not.
std::string Difference(const RunReport& first, const RunReport& second) {
  if (first.traceHash == second.traceHash) return "";
  const auto text = [](const RunReport& report, std::size_t at) {
    if (at >= report.events.size()) return std::string("the end");
    const LiveEvent& event = report.events[at];
    return fmt::format("{} ms {} {} {}", FormatMs(event.when), event.where, event.event, event.effect);
  };
  for (std::size_t at = 0; at < std::max(first.events.size(), second.events.size()); ++at) {
    if (text(first, at) != text(second, at)) {
      return fmt::format("the same seed is another run: \"{}\", then \"{}\"", text(first, at), text(second, at));
    }
  }
  return "the same seed is another run, in nothing that a run shows";
}

class Campaign {
 public:
  Campaign(const SoakOptions& options, const Console& console) : options_(options), console_(console) {
    state_.campaign =
        fmt::format("{} seeds {}..{} shard {}/{} faults {}", fmt::join(options.scenarios, " "), options.firstSeed,
                    options.lastSeed, options.shard, options.shards, fmt::join(options.faults, " "));
  }

  ExitCode Execute() {
    if (!Resume()) return ExitCode::Usage;
    for (const std::string& file : options_.scenarios) {
      scenarios_.push_back(file == kGenerated ? Scenario() : ReadScenario(file));
    }
    for (; state_.next < All(); ++state_.next) {
      if (state_.next % options_.shards == options_.shard - 1) RunAt(state_.next);
      if (Clock::now() - reported_ < kProgressEvery) continue;
      Progress();
      if (!Save(state_.next + 1)) return ExitCode::InputOutput;
    }
    if (!Save(state_.next)) return ExitCode::InputOutput;
    Finish();
    return static_cast<ExitCode>(state_.code);
  }

 private:
  std::uint64_t Seeds() const { return options_.lastSeed - options_.firstSeed + 1; }
  std::uint64_t All() const { return Seeds() * options_.scenarios.size() * options_.faults.size(); }
  double Seconds() const {
    return static_cast<double>(earlier_) / 1e3 + std::chrono::duration<double>(Clock::now() - began_).count();
  }

  bool Resume() {
    std::string why;
    if (!options_.stateFile.empty() && !LoadSoakState(options_.stateFile, state_, why)) {
      console_.Message("usb4lab: " + why);
      return false;
    }
    earlier_ = state_.milliseconds;
    if (state_.next != 0) console_.Message(fmt::format("going on after {} runs", state_.runs));
    for (const std::string& finding : state_.findings) console_.Out(finding);
    return true;
  }

  bool Save(std::uint64_t next) {
    if (options_.stateFile.empty()) return true;
    SoakState now = state_;
    now.next = next;
    now.milliseconds = static_cast<std::uint64_t>(Seconds() * 1e3);
    if (SaveSoakState(options_.stateFile, now)) return true;
    console_.Message("usb4lab: cannot write " + options_.stateFile);
    return false;
  }

  // Seeds run fastest, then fault profiles, then scenarios.
  void RunAt(std::uint64_t position) {
    RunOptions run;
    run.seed = options_.firstSeed + position % Seeds();
    run.faults = options_.faults[position / Seeds() % options_.faults.size()];
    run.events = *run.seed % kTwiceEvery == 0;
    const std::size_t which = position / Seeds() / options_.faults.size();
    ++state_.runs;
    if (options_.scenarios[which] != kGenerated) return RunOne(scenarios_[which], run);
    try {
      RunOne(FindScenario(options_.scenarios[which], *run.seed), run);
    } catch (const std::runtime_error& error) {  // no scenario, or no machine: one seed's fault, not the campaign's end
      Failure(options_.scenarios[which], run, ExitCode::Usage, error.what(), 0);
    }
  }

  void RunOne(const Scenario& scenario, const RunOptions& run) {
    const RunReport report = RunScenario(scenario, run);
    state_.faultsFired += report.faultsFired;
    state_.virtualTime += report.virtualTime;
    if (report.code != ExitCode::Held) {
      return Failure(scenario.file, run, report.code, FirstFinding(report), report.failedStep);
    }
    if (*run.seed % kTwiceEvery != 0) return;
    const std::string difference = Difference(report, RunScenario(scenario, run));
    if (!difference.empty()) Failure(scenario.file, run, ExitCode::Failed, difference, 0);
  }

  void Failure(const std::string& file, const RunOptions& run, ExitCode code, const std::string& why,
               std::uint64_t step) {
    if (state_.failed++ == 0) state_.code = static_cast<int>(code);
    for (const std::string& line :
         {fmt::format("FAIL {} seed={} faults={} step={}", why.substr(0, why.find('\n')), *run.seed, run.faults, step),
          "  replay: " + ReplayCommand(file, run, step)}) {
      console_.Out(line);
      state_.findings.push_back(line);
    }
  }

  void Progress() {
    reported_ = Clock::now();
    const std::uint64_t mine = (All() + options_.shards - options_.shard) / options_.shards;
    const std::uint64_t left = mine - std::min(mine, state_.runs);
    const double rate = static_cast<double>(state_.runs) / std::max(Seconds(), 1e-3);
    console_.Message(fmt::format("{} of {} runs, {} failed, {:.0f} a second, {:.0f} s left", state_.runs, mine,
                                 state_.failed, rate, static_cast<double>(left) / std::max(rate, 1e-3)));
  }

  void Finish() {
    const double seconds = std::max(Seconds(), 1e-3);
    const auto simulated = static_cast<double>(state_.virtualTime) / static_cast<double>(platform::kSecond);
    console_.Out(fmt::format(
        "{} runs, {} faults, {:.0f} s of virtual time in {:.1f} s ({:.0f} runs, {:.0f} s of it a second)", state_.runs,
        state_.faultsFired, simulated, seconds, static_cast<double>(state_.runs) / seconds, simulated / seconds));
    console_.Out(
        fmt::format("{} passed, {} failed", state_.runs - std::min(state_.runs, state_.failed), state_.failed));
  }

  const SoakOptions& options_;
  const Console& console_;
  std::vector<Scenario> scenarios_;
  SoakState state_;
  std::uint64_t earlier_ = 0;  // milliseconds of an interrupted campaign
  const Clock::time_point began_ = Clock::now();
  Clock::time_point reported_ = began_;
};

template <class Number>
bool ParsePair(const std::string& text, const std::string& between, Number& first, Number& second) {
  const std::size_t at = text.find(between);
  if (at == std::string::npos) return false;
  const std::string left = text.substr(0, at), right = text.substr(at + between.size());
  for (const std::string& part : {left, right}) {
    if (part.empty() || part.size() > 9 || part.find_first_not_of("0123456789") != std::string::npos) return false;
  }
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
