// Goal: tasks, clock and policies behave as every kernel object above them relies on. Method: bare tasks without a
// kernel.
#include "platform/scheduler/scheduler.h"

#include <gtest/gtest.h>

#include <set>

#include "platform/scheduler/event_queue.h"

namespace platform {
namespace {

Scheduler& S() {
  return *Scheduler::Active();
}

TEST(Scheduler, FirstComeRunsTasksInOrderAndJumpsTheClockOnlyWhenNoneCanRun) {
  Simulation simulation;
  std::string log;
  simulation.After(3 * kMillisecond, "device",
                   [&] { log += "e" + std::to_string(simulation.Now() / kMillisecond) + " "; });
  for (char name : {'a', 'b'}) {
    simulation.Spawn(nullptr, std::string(1, name), [&log, name] {
      log += std::string(1, name) + "1 ";
      S().Yield();
      log += std::string(1, name) + "2 ";
      EXPECT_FALSE(S().Park("sleep", nullptr, S().Now() + 5 * kMillisecond + 1));
      EXPECT_EQ(S().Now(), 5 * kMillisecond + 1) << "exact in first-come mode";
      log += std::string(1, name) + "3 ";
    });
  }
  EXPECT_EQ(simulation.RunUntil({}), Outcome::Idle);
  EXPECT_EQ(log, "a1 b1 a2 b2 e3 a3 b3 ");
  EXPECT_EQ(simulation.Now(), 5 * kMillisecond + 1);
}

TEST(Scheduler, AWakeBeforeTheDeadlineCancelsIt) {
  Simulation simulation;
  Task* sleeper = nullptr;
  bool woken = false;
  simulation.Spawn(nullptr, "sleeper", [&] {
    sleeper = Scheduler::Current();
    woken = S().Park("answer", nullptr, S().Now() + kSecond);
    EXPECT_EQ(S().Now(), 200 * kMillisecond);
    EXPECT_FALSE(S().Park("again", nullptr, S().Now() + kSecond)) << "the first deadline must not end the second wait";
    EXPECT_EQ(S().Now(), 1200 * kMillisecond);
  });
  simulation.After(200 * kMillisecond, "answer", [&] { S().Wake(*sleeper); });
  EXPECT_EQ(simulation.RunUntil({}), Outcome::Idle);
  EXPECT_TRUE(woken);
}

TEST(Scheduler, RunUntilStopsAtItsDeadlineAndTheClockStandsThere) {
  Simulation simulation;
  int ran = 0;
  simulation.After(10, "before", [&] { ++ran; });
  simulation.After(30, "after", [&] { ++ran; });
  EXPECT_EQ(simulation.RunFor(20), Outcome::Deadline);
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(simulation.Now(), 20);
  EXPECT_TRUE(simulation.QuietUntil(29));
  EXPECT_FALSE(simulation.QuietUntil(30));
}

TEST(Scheduler, EventsThatNeverAdvanceTimeAreAHang) {
  Simulation simulation;
  std::function<void()> again = [&] { simulation.After(0, "busy", again); };
  again();
  EXPECT_EQ(simulation.RunFor(1), Outcome::Hang);
  EXPECT_NE(simulation.HangReport().find("busy"), std::string::npos);
}

TEST(Scheduler, CancelledEventsDoNotRunAndTheirSlotsAreReused) {
  EventQueue queue;
  int ran = 0;
  const EventId first = queue.Add(5, "first", [&] { ran += 1; });
  queue.Cancel(first);
  const EventId second = queue.Add(7, "second", [&] { ran += 10; });
  queue.Cancel(first);  // stale: must not hit the new owner of the slot
  for (int i = 0; i < 1000; ++i) queue.Cancel(queue.Add(6, "many", [&] { ran += 1000; }));
  EXPECT_EQ(queue.NextTime(), 7);
  queue.Pop().action();
  EXPECT_EQ(ran, 10);
  EXPECT_TRUE(queue.Empty());
  queue.Cancel(second);
}

// Three tasks that switch at every step; returns the order in which they ran.
std::string Interleaving(Simulation& simulation) {
  std::string order;
  for (char name : {'a', 'b', 'c'}) {
    simulation.Spawn(nullptr, std::string(1, name), [&order, name] {
      for (int i = 0; i < 6; ++i) {
        order += name;
        S().SwitchPoint();
      }
    });
  }
  simulation.RunUntil({});
  return order;
}

TEST(Scheduler, OneSeedIsOneInterleavingAndSeedsDiffer) {
  for (Policy policy : {Policy::Uniform, Policy::Priority}) {
    std::set<std::string> seen;
    for (std::uint64_t seed = 0; seed < 40; ++seed) {
      SimulationOptions options{policy, seed};
      options.keepChoices = true;
      Simulation once(options), again({policy, seed});
      const std::string order = Interleaving(once);
      EXPECT_EQ(order, Interleaving(again));
      EXPECT_EQ(once.TraceHash(), again.TraceHash());
      seen.insert(order);
      SimulationOptions replay{Policy::Replay, seed};
      replay.choices = once.scheduler().choices();
      Simulation repeated(replay);
      EXPECT_EQ(order, Interleaving(repeated)) << "the recorded choices repeat the run";
    }
    EXPECT_GT(seen.size(), policy == Policy::Uniform ? 35u : 5u);
  }
}

TEST(Scheduler, SeededTimeDriftsToDeviceEventsButNeverFarAndTimersEndAtTicks) {
  unsigned drifted = 0;
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    Simulation simulation({Policy::Uniform, seed});
    bool arrived = false;
    simulation.After(kMillisecond, "near", [&] { arrived = true; });
    simulation.After(50 * kMillisecond, "far", [] { ADD_FAILURE() << "beyond what may drift in one wait"; });
    simulation.Spawn(nullptr, "busy", [&] {
      for (int i = 0; i < 200; ++i) S().SwitchPoint();
      EXPECT_LE(S().Now(), 20 * kMillisecond);
      if (arrived) ++drifted;
      S().Park("sleep", nullptr, S().Now() + 1);
      const Time now = S().Now();
      EXPECT_TRUE(now % kMillisecond == 0 || now % 156'000 == 0) << now;
      EXPECT_GT(now, 0);
    });
    EXPECT_EQ(simulation.RunFor(16 * kMillisecond), Outcome::Deadline);
  }
  EXPECT_GT(drifted, 30u) << "answers must be able to land between two calls";
}

// Two tasks that switch at every step until the first one has taken twenty; then it breaks a rule.
Outcome RunToTheBreach(Simulation& simulation) {
  for (const bool breaks : {true, false}) {
    simulation.Spawn(nullptr, "t", [&simulation, breaks] {
      for (int i = 0; i < 20 || !breaks; ++i) S().SwitchPoint();
      simulation.Report(Rule::BugCheck, "planted");
    });
  }
  return simulation.RunUntil({});
}

TEST(Scheduler, StopsBehindTheAskedChoiceAndAllThatFollowsFromIt) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    SimulationOptions options{Policy::Uniform, seed};
    Simulation whole(options);
    ASSERT_EQ(RunToTheBreach(whole), Outcome::Violation);
    const std::uint64_t last = whole.Step();
    options.stopAtStep = last;
    Simulation replay(options);
    EXPECT_EQ(RunToTheBreach(replay), Outcome::Violation) << "what follows from the last choice happens";
    EXPECT_EQ(replay.TraceHash(), whole.TraceHash());
    options.stopAtStep = last - 1;
    Simulation shorter(options);
    EXPECT_EQ(RunToTheBreach(shorter), Outcome::StepReached);
    EXPECT_EQ(shorter.Step(), last - 1);
    EXPECT_TRUE(shorter.Stopped());
    EXPECT_EQ(shorter.RunFor(kSecond), Outcome::StepReached) << "for good";
  }
}

TEST(Scheduler, ATaskThatRunsAloneWaitsForTheOwnersOfLocksAndForNothingElse) {
  unsigned waited = 0;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    SimulationOptions options{Policy::Uniform, seed};
    options.stopAtStep = 5;
    Simulation simulation(options);
    const int lock = 0;
    bool held = false;
    Task* waiter = nullptr;
    std::string log;
    simulation.Spawn(nullptr, "owner", [&] {
      S().SwitchPoint();
      held = true;
      Scheduler::Current()->held.push_back({&lock, false});
      for (int i = 0; i < 6; ++i) S().SwitchPoint();
      S().Stall(10);
      held = false;
      Scheduler::Current()->held.clear();
      if (waiter != nullptr) S().Wake(*waiter);
      for (log += "released ";; log += "owner ") S().SwitchPoint();
    });
    simulation.Spawn(nullptr, "other", [&] {
      for (;; log += "other ") S().SwitchPoint();
    });
    ASSERT_EQ(simulation.RunUntil({}), Outcome::StepReached);
    const std::uint64_t hash = simulation.TraceHash();
    waited += held;
    log = held ? "" : "free ";
    EXPECT_TRUE(simulation.RunAlone(nullptr, "look", [&] {
      waiter = Scheduler::Current();
      while (held) S().Park("a lock", &lock);
      log += "look";
    }));
    EXPECT_TRUE(log == "released look" || log == "free look") << log;
    EXPECT_FALSE(simulation.RunAlone(nullptr, "look", [&] { S().Park("an event", &log); }));
    EXPECT_FALSE(simulation.RunAlone(nullptr, "look", [&] { simulation.Report(Rule::BugCheck, "planted"); }));
    EXPECT_TRUE(simulation.violations().empty()) << "who looks is not the run";
    EXPECT_EQ(simulation.TraceHash(), hash);
    EXPECT_EQ(simulation.Step(), 5u);
    EXPECT_TRUE(simulation.Stopped());
  }
  EXPECT_GT(waited, 5u);
}

TEST(FaultPlan, FailsTheNthOnceFromThereOnOrByChanceAndCountsUnarmedSites) {
  FaultPlan plan(1);
  EXPECT_FALSE(plan.Fires("quiet"));
  plan.FailNth("nth", 2);
  plan.FailFrom("from", 2);
  std::string nth, from;
  for (int i = 0; i < 4; ++i) nth += plan.Fires("nth") ? 'x' : '.', from += plan.Fires("from") ? 'x' : '.';
  EXPECT_EQ(nth, ".x..");
  EXPECT_EQ(from, ".xxx");
  plan.Heal("from");
  EXPECT_FALSE(plan.Fires("from"));
  plan.FailWithChance("chance", 1, 4);
  int fired = 0;
  for (int i = 0; i < 4000; ++i) fired += plan.Fires("chance");
  EXPECT_NEAR(fired, 1000, 150);
  EXPECT_EQ(plan.Passed("quiet"), 1u);
  EXPECT_EQ(plan.Sites(), (std::vector<std::string>{"chance", "from", "nth", "quiet"}));
}

}  // namespace
}  // namespace platform
