// Goal: events, mutexes, spin locks and time do what the driver relies on. Method: a few tasks of one host, their steps
// as text, in first-come order and, where the outcome must not depend on it, under seeds.
#include <gtest/gtest.h>
#include <ntddk.h>

#include "platform/scheduler/scheduler.h"
#include "tests/platform/kernel_verbs.h"
#include "tests/platform/rule_tests.h"

namespace platform {
namespace {

Time Now() {
  return Scheduler::Active()->Now();
}

// The host with the records that its tasks share.
class Ke : public HostTest {
 protected:
  // Tasks named by the letters; each logs its name between what it does first and last.
  void Waiters(
      const char* names, std::function<void()> first, std::function<void()> last = [] {}) {
    for (const char* name = names; *name; ++name) {
      rig_.Beside(std::string(1, *name), [this, first, last, name] {
        first();
        Log(std::string(1, *name));
        last();
      });
    }
  }
  void Log(const std::string& step) { log_ += (log_.empty() ? "" : " ") + step; }

  std::string log_;
  KEVENT event_;
  KMUTEX mutex_;
  KSPIN_LOCK lock_ = 0;
};

TEST_F(Ke, ASynchronisationEventReleasesTheOldestWaiterOnlyAndResets) {
  OnTask([&] {
    KeInitializeEvent(&event_, SynchronizationEvent, FALSE);
    Waiters("ab", [&] { WaitForEver(&event_); });
    DelayMs(1);
    EXPECT_EQ(KeSetEvent(&event_, IO_NO_INCREMENT, FALSE), 0);
    DelayMs(1);
    EXPECT_EQ(log_, "a");
    EXPECT_EQ(KeReadStateEvent(&event_), 0) << "the release used the signal up";
    KeSetEvent(&event_, IO_NO_INCREMENT, FALSE);
    DelayMs(1);
    EXPECT_EQ(log_, "a b");
    EXPECT_EQ(KeSetEvent(&event_, IO_NO_INCREMENT, FALSE), 0);
    EXPECT_EQ(KeSetEvent(&event_, IO_NO_INCREMENT, FALSE), 1) << "signals do not add up";
    EXPECT_EQ(Wait(&event_, 0), STATUS_SUCCESS);
    EXPECT_EQ(Wait(&event_, 0), STATUS_TIMEOUT);
  });
}

TEST_F(Ke, ANotificationEventReleasesAllAndStaysSignalled) {
  OnTask([&] {
    KeInitializeEvent(&event_, NotificationEvent, FALSE);
    Waiters("ab", [&] { WaitForEver(&event_); });
    DelayMs(1);
    KeSetEvent(&event_, IO_NO_INCREMENT, FALSE);
    EXPECT_EQ(Wait(&event_, 0), STATUS_SUCCESS);
    EXPECT_EQ(Wait(&event_, 0), STATUS_SUCCESS);
    DelayMs(1);
    EXPECT_EQ(log_, "a b");
    EXPECT_EQ(KeResetEvent(&event_), 1);
    EXPECT_EQ(Wait(&event_, 0), STATUS_TIMEOUT);
    KeSetEvent(&event_, IO_NO_INCREMENT, FALSE);
    KeClearEvent(&event_);
    EXPECT_EQ(KeReadStateEvent(&event_), 0);
  });
}

TEST_F(Ke, ATimeOutIsExactAndATimedOutWaiterTakesNoLaterSignal) {
  OnTask([&] {
    KeInitializeEvent(&event_, SynchronizationEvent, FALSE);
    rig_.Beside("waits longer", [&] {
      EXPECT_EQ(Wait(&event_, 500), STATUS_SUCCESS);
      EXPECT_EQ(Now(), 300 * kMillisecond);
    });
    EXPECT_EQ(Wait(&event_, 200), STATUS_TIMEOUT);
    EXPECT_EQ(Now(), 200 * kMillisecond);
    DelayMs(100);
    KeSetEvent(&event_, IO_NO_INCREMENT, FALSE);
    DelayMs(1);
    EXPECT_EQ(KeReadStateEvent(&event_), 0);
  });
}

// The signal of one event ends the wait for both: a signal of the other one before the waiter has run again is not
// lost.
TEST_F(Ke, AWaitForEitherOfTwoEventsUsesUpOneSignal) {
  OnTask([&] {
    KEVENT other;
    KeInitializeEvent(&event_, SynchronizationEvent, FALSE);
    KeInitializeEvent(&other, SynchronizationEvent, FALSE);
    EXPECT_EQ(WaitForEither(&event_, &other, 0), STATUS_TIMEOUT);
    EXPECT_EQ(WaitForEither(&event_, &other, 20), STATUS_TIMEOUT);
    EXPECT_EQ(Now(), 20 * kMillisecond);
    rig_.Beside("a", [&] { EXPECT_EQ(WaitForEither(&event_, &other, 500), STATUS_WAIT_0 + 1); });
    DelayMs(1);
    KeSetEvent(&other, IO_NO_INCREMENT, FALSE);
    KeSetEvent(&event_, IO_NO_INCREMENT, FALSE);
    DelayMs(1);
    EXPECT_EQ(KeReadStateEvent(&event_), 1);
    EXPECT_EQ(KeReadStateEvent(&other), 0);
    KeSetEvent(&other, IO_NO_INCREMENT, FALSE);
    EXPECT_EQ(WaitForEither(&event_, &other, 500), STATUS_WAIT_0) << "of two that are signalled, the first";
    EXPECT_EQ(WaitForEither(&event_, &other, 500), STATUS_WAIT_0 + 1);
  });
}

TEST_F(Ke, AMutexIsRecursiveAndPassesToTheOldestWaiter) {
  OnTask([&] {
    KeInitializeMutex(&mutex_, 0);
    WaitForEver(&mutex_);
    WaitForEver(&mutex_);
    const auto take = [&] {
      EXPECT_EQ(Wait(&mutex_, 0), STATUS_TIMEOUT) << "a poll does not queue";
      WaitForEver(&mutex_);
    };
    Waiters("ab", take, [&] { KeReleaseMutex(&mutex_, FALSE); });
    DelayMs(1);
    EXPECT_EQ(KeReleaseMutex(&mutex_, FALSE), -1);
    DelayMs(1);
    EXPECT_EQ(log_, "") << "taken twice, released once";
    EXPECT_EQ(KeReleaseMutex(&mutex_, FALSE), 0);
    WaitForEver(&mutex_);
    EXPECT_EQ(log_, "a b") << "who releases and takes again waits behind the others";
    KeReleaseMutex(&mutex_, FALSE);
  });
}

TEST_F(Ke, AMutexWaitThatTimesOutLeavesTheMutexToItsOwner) {
  OnTask([&] {
    KeInitializeMutex(&mutex_, 0);
    rig_.Beside("owner", [&] {
      WaitForEver(&mutex_);
      DelayMs(50);
      EXPECT_EQ(KeReleaseMutex(&mutex_, FALSE), 0);
    });
    DelayMs(1);
    EXPECT_EQ(Wait(&mutex_, 20), STATUS_TIMEOUT);
    EXPECT_EQ(Now(), 21 * kMillisecond);
    EXPECT_EQ(Wait(&mutex_, 100), STATUS_SUCCESS);
    EXPECT_EQ(Now(), 50 * kMillisecond);
    KeReleaseMutex(&mutex_, FALSE);
  });
}

TEST_F(Ke, ASpinLockRaisesAndItsWaiterSpinsAtDispatchLevelWhileOthersRun) {
  OnTask([&] {
    KeInitializeSpinLock(&lock_);
    rig_.Beside("owner", [&] {
      KIRQL before;
      KeAcquireSpinLock(&lock_, &before);
      EXPECT_EQ(before, PASSIVE_LEVEL);
      EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
      KeStallExecutionProcessor(50);
      Log("owner");
      KeReleaseSpinLock(&lock_, before);
      EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
    });
    rig_.Beside("other", [&] {
      KeStallExecutionProcessor(20);
      Log("other");
    });
    KeStallExecutionProcessor(1);
    KIRQL before;
    KeAcquireSpinLock(&lock_, &before);
    Log("waiter");
    EXPECT_EQ(Now(), 50 * kMicrosecond);
    KeReleaseSpinLock(&lock_, before);
    EXPECT_EQ(log_, "other owner waiter");
  });
}

TEST_F(Ke, AQueuedSpinLockServesItsWaitersInOrder) {
  OnTask([&] {
    KeInitializeSpinLock(&lock_);
    KLOCK_QUEUE_HANDLE handle;
    KeAcquireInStackQueuedSpinLock(&lock_, &handle);
    for (const char* name : {"a", "b", "c"}) {
      rig_.Beside(name, [&, name] {
        KLOCK_QUEUE_HANDLE own;
        KeAcquireInStackQueuedSpinLock(&lock_, &own);
        Log(name);
        EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
        KeReleaseInStackQueuedSpinLock(&own);
      });
    }
    KeStallExecutionProcessor(10);
    EXPECT_EQ(log_, "");
    KeReleaseInStackQueuedSpinLock(&handle);
    KeAcquireInStackQueuedSpinLock(&lock_, &handle);
    EXPECT_EQ(log_, "a b c");
    KeReleaseInStackQueuedSpinLock(&handle);
    EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
  });
}

TEST_F(Ke, LocksTakenAgainInTheSameOrderOrByTryingAreNoCircle) {
  OnTask([&] {
    KMUTEX second;
    KeInitializeMutex(&mutex_, 0);
    KeInitializeMutex(&second, 0);
    for (int i = 0; i < 2; ++i) {
      WaitForEver(&mutex_);
      WaitForEver(&second);
      KeReleaseMutex(&mutex_, FALSE);  // not in the reverse order: nothing wrong with that
      KeReleaseMutex(&second, FALSE);
    }
    WaitForEver(&second);
    EXPECT_EQ(Wait(&mutex_, 0), STATUS_SUCCESS);
    KeReleaseMutex(&mutex_, FALSE);
    KeReleaseMutex(&second, FALSE);
    // New locks in old memory have no history.
    KeInitializeMutex(&mutex_, 0);
    KeInitializeMutex(&second, 0);
    WaitForEver(&second);
    WaitForEver(&mutex_);
    KeReleaseMutex(&mutex_, FALSE);
    KeReleaseMutex(&second, FALSE);
  });
}

TEST_F(Ke, DelaysStallsAndTheCounterFollowVirtualTime) {
  OnTask([&] {
    LARGE_INTEGER frequency;
    const LONGLONG before = KeQueryPerformanceCounter(&frequency).QuadPart;
    EXPECT_EQ(frequency.QuadPart, 10'000'000);
    EXPECT_GE(before, 3600 * kSecond) << "the host has been up for a while";
    DelayMs(10);
    KeStallExecutionProcessor(20);
    EXPECT_EQ(KeQueryPerformanceCounter(nullptr).QuadPart - before, 100'200);
  });
  HostKernel other(rig_.simulation, {.name = "other host"});
  LONGLONG first = 0, second = 0;
  OnTask([&] { first = KeQueryPerformanceCounter(nullptr).QuadPart; });
  rig_.simulation.RunTask(&other, "other", [&] { second = KeQueryPerformanceCounter(nullptr).QuadPart; });
  EXPECT_NE(first, second) << "two hosts were not switched on at the same moment";
}

TEST_F(Ke, ADeadlockIsReportedWithWhoWaitsForWhat) {
  const auto stuck = [&] {
    KeInitializeMutex(&mutex_, 0);
    WaitForEver(&mutex_);
    rig_.Beside("second", [&] { WaitForEver(&mutex_); });
    KeInitializeEvent(&event_, SynchronizationEvent, FALSE);
    WaitForEver(&event_);
  };
  EXPECT_EQ(rig_.OnTask(stuck), Outcome::Hang);
  EXPECT_EQ(rig_.simulation.RunUntil({}), Outcome::Hang) << "a stopped simulation runs no more";
  EXPECT_NE(rig_.simulation.HangReport().find("'second'"), std::string::npos);
  EXPECT_NE(rig_.simulation.HangReport().find("KeWaitForSingleObject: a mutex, held by task 'breaker'"),
            std::string::npos);
}

// Two tasks change one word: unprotected a seed must show the lost update, under each kind of lock none may.
enum class Protection { None, Interlocked, Spin, Queued, Mutex };

int LostUpdates(Protection protection, std::uint64_t seed) {
  RuleRig rig({.policy = Policy::Uniform, .seed = seed});
  volatile LONG word = 0;
  LONG unrelated = 0;
  KSPIN_LOCK spin = 0;
  KMUTEX mutex;
  int running = 0;
  const auto add = [&] {
    const LONG old = word;
    InterlockedIncrement(&unrelated);  // a platform call between read and write
    word = old + 1;
  };
  const auto work = [&] {
    for (int i = 0; i < 5; ++i) {
      KIRQL before;
      KLOCK_QUEUE_HANDLE handle;
      switch (protection) {
        case Protection::None:
          add();
          break;
        case Protection::Interlocked:
          InterlockedIncrement(&word);
          break;
        case Protection::Spin:
          KeAcquireSpinLock(&spin, &before);
          add();
          KeReleaseSpinLock(&spin, before);
          break;
        case Protection::Queued:
          KeAcquireInStackQueuedSpinLock(&spin, &handle);
          add();
          KeReleaseInStackQueuedSpinLock(&handle);
          break;
        case Protection::Mutex:
          WaitForEver(&mutex);
          add();
          KeReleaseMutex(&mutex, FALSE);
          break;
      }
    }
    --running;
  };
  rig.OnTask([&] {
    KeInitializeSpinLock(&spin);
    KeInitializeMutex(&mutex, 0);
  });
  for (const char* name : {"a", "b", "c"}) rig.Beside(name, (++running, work));
  EXPECT_EQ(rig.simulation.RunUntil([&] { return running == 0; }), Outcome::Done) << rig.simulation.HangReport();
  return 15 - word;
}

TEST(KeSeeds, LocksExcludeUnderEverySeedAndTheLackOfOneShows) {
  int shown = 0;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    shown += LostUpdates(Protection::None, seed) != 0;
    for (Protection kind : {Protection::Interlocked, Protection::Spin, Protection::Queued, Protection::Mutex}) {
      ASSERT_EQ(LostUpdates(kind, seed), 0) << "kind " << static_cast<int>(kind) << ", seed " << seed;
    }
  }
  EXPECT_GT(shown, 20);
}

// After a signal or a release the other task may run before the caller's next plain statement: that is how a record
// that is touched after its event was set, or after its reference was dropped, is found.
TEST(KeSeeds, TheOtherTaskMayActBeforeTheCallersNextStep) {
  enum { SetEvent, ReleaseMutex, ReleaseSpinLock, Decrement, kKinds };
  int actedFirst[kKinds] = {};
  for (int kind = 0; kind < kKinds; ++kind) {
    for (std::uint64_t seed = 1; seed <= 30; ++seed) {
      RuleRig rig({.policy = Policy::Uniform, .seed = seed});
      KEVENT event;
      KMUTEX mutex;
      KSPIN_LOCK lock;
      KIRQL before;
      LONG references = 2;
      bool acted = false;
      rig.OnTask([&] {
        KeInitializeEvent(&event, SynchronizationEvent, FALSE);
        KeInitializeMutex(&mutex, 0);
        KeInitializeSpinLock(&lock);
        WaitForEver(&mutex);
        KeAcquireSpinLock(&lock, &before);
        rig.Beside("other", [&, kind] {
          KIRQL own = PASSIVE_LEVEL;
          if (kind == SetEvent) WaitForEver(&event);
          if (kind == ReleaseMutex) WaitForEver(&mutex);
          if (kind == ReleaseSpinLock) KeAcquireSpinLock(&lock, &own);
          if (kind == Decrement) {
            while (InterlockedCompareExchange(&references, 1, 1) != 1) {
            }
          }
          acted = true;
          if (kind == ReleaseMutex) KeReleaseMutex(&mutex, FALSE);
          if (kind == ReleaseSpinLock) KeReleaseSpinLock(&lock, own);
        });
        for (LONG word = 0; word < 8;) InterlockedIncrement(&word);  // lets it begin
        if (kind == SetEvent) KeSetEvent(&event, IO_NO_INCREMENT, FALSE);
        if (kind == Decrement) InterlockedDecrement(&references);
        if (kind == ReleaseSpinLock) KeReleaseSpinLock(&lock, before);
        if (kind == ReleaseMutex) KeReleaseMutex(&mutex, FALSE);
        actedFirst[kind] += acted;
        if (kind != ReleaseSpinLock) KeReleaseSpinLock(&lock, before);
        if (kind != ReleaseMutex) KeReleaseMutex(&mutex, FALSE);
      });
      EXPECT_TRUE(rig.simulation.violations().empty());
    }
  }
  for (int kind = 0; kind < kKinds; ++kind) EXPECT_GT(actedFirst[kind], 3) << "kind " << kind;
}

}  // namespace
}  // namespace platform
