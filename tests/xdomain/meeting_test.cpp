// Goal: two hosts find each other over a cable, in the time that the fixed waits take, and whatever happens at whatever
// packet of their meeting. Method: two kernels with a driver each, on one clock.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/meeting.h"

namespace tests {
namespace {

using platform::kMillisecond;
using platform::kSecond;

std::string Enumerated(const char* nameAndHops) {
  return std::string("ENUMERATED 20G x2 vendor 1f3a Kiverra Systems Inc. device 2 ") + nameAndHops;
}

void ExpectBothEnumerated(Meeting& meeting) {
  EXPECT_EQ(meeting.Peer(0), Enumerated("LAB-b hops 22 31"));
  EXPECT_EQ(meeting.Peer(1), Enumerated("LAB-a hops 31 22"));
}

WORLD_TEST(Meeting, OfTwoHostsThatAreSwitchedOnWithTheirCable) {
  Meeting meeting;
  meeting.StartAll();
  meeting.Pass(12 * kSecond);
  ExpectBothEnumerated(meeting);
}

constexpr const char* kAsks =
    " INIT +0\n UUID +100\n LINK_STATUS +200\n LINK_STATE_CHANGE +1000\n LINK_STATUS2 +1000\n BONDING_UUID_LOW +100\n"
    " PROPERTIES +1000\n ENUMERATED +2000\n";
// The request comes just after it looked for one, and the other end bonds just after it looked at the width: a second
// each.
constexpr const char* kIsAsked =
    " INIT +0\n UUID +100\n LINK_STATUS +200\n BONDING_UUID_HIGH +1000\n PROPERTIES +3000\n ENUMERATED +2000\n";

// Of one peer, without its name.
std::string StatesOf(const std::string& states, const std::string& peer) {
  std::string text;
  std::istringstream lines(states);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(peer)) text += line.substr(peer.size()) + "\n";
  }
  return text;
}

TEST(Meeting, TakesItsFixedWaitsAndLittleMore) {
  for (const bool firstAsks : {true, false}) {
    for (const char* cable : {"a/H1:1 - b/H3:1", "b/H3:1 - a/H1:1"}) {
      SCOPED_TRACE(std::string(firstAsks ? "the first host asks, " : "the second host asks, ") + cable);
      WorldOptions options;
      // UUIDs that differ in their first bytes only.
      options.configure = [firstAsks](lab::ControllerConfig& controller) {
        controller.uid = (controller.model == "H1") == firstAsks ? 0x1122334455667701 : 0x1122334455667702;
      };
      Meeting meeting("a/H1, b/H3", options);
      meeting.StartAll();
      meeting.Quiet();
      const platform::Time plugged = meeting.simulation().Now();
      meeting.Plug(cable);
      meeting.Pass(10 * kSecond);
      ExpectBothEnumerated(meeting);
      const std::string states = meeting.States();
      const std::string asks = firstAsks ? "0-1" : "1/0-1", isAsked = firstAsks ? "1/0-1" : "0-1";
      EXPECT_EQ(StatesOf(states, asks), kAsks);
      EXPECT_EQ(StatesOf(states, isAsked), kIsAsked);
      constexpr platform::Time kLinkReports = 20 * kMillisecond, kRoundTrips = 15 * kMillisecond;
      EXPECT_LE(meeting.LastChange(asks) - plugged, 5400 * kMillisecond + kLinkReports + kRoundTrips);
      EXPECT_LE(meeting.LastChange(isAsked) - plugged, 6300 * kMillisecond + kLinkReports + kRoundTrips);
    }
  }
}

// --- at every packet of the meeting

std::uint64_t Stride() {
  return std::getenv("EVERY_PACKET") != nullptr ? 1 : 13;
}

// Both run; the cable is plugged, and `what` happens just before the n-th packet from then on. False once the meeting
// is over before that packet.
bool Disturb(
    std::uint64_t n, const std::function<void(Meeting&)>& what, const std::function<void(Meeting&)>& then,
    const std::function<void(Meeting&)>& before = [](Meeting&) {}) {
  SCOPED_TRACE("packet " + std::to_string(n));
  Meeting meeting("a/H1, b/H3");
  meeting.StartAll();
  meeting.Quiet();
  before(meeting);
  meeting.Plug("a/H1:1 - b/H3:1");
  auto reached = std::make_shared<bool>(false);
  meeting.AtPacket(n, [&meeting, reached, &what] {
    *reached = true;
    what(meeting);
  });
  meeting.Pass(8 * kSecond);
  if (*reached) then(meeting);
  return *reached && !testing::Test::HasFailure();
}

// A plug that is handled in one run of the work loop with the unplug before it does not hold the device awake.
void HoldAwake(Meeting& meeting, bool hold) {
  for (const lab::Place place : meeting.machine().Places()) {
    meeting.InDevice(
        [hold](DEVICE_EXTENSION& context) {
          if (hold) {
            EXPECT_EQ(WdfDeviceStopIdle(context.Device, TRUE), 0);
          } else {
            WdfDeviceResumeIdle(context.Device);
          }
        },
        place);
  }
}

TEST(MeetingAtEveryPacket, TheCableIsPulledAndPluggedASecondLater) {
  std::uint64_t n = 1;
  while (Disturb(
      n,
      [](Meeting& meeting) {
        meeting.fabric().Unplug("a/H1:1");
        meeting.At(kSecond, [&meeting] { meeting.fabric().Plug("a/H1:1", "b/H3:1"); });
      },
      [](Meeting& meeting) {
        meeting.Pass(25 * kSecond);
        ExpectBothEnumerated(meeting);
        HoldAwake(meeting, false);
      },
      [](Meeting& meeting) { HoldAwake(meeting, true); })) {
    n += Stride();
  }
  EXPECT_GT(n, 60u);
}

// Whatever lacks memory, the hosts live, and leave nothing behind.
TEST(Meeting, OutlivesAnyAllocationThatFails) {
  std::uint64_t n = 1;
  for (bool failed = true; failed && !testing::Test::HasFailure(); n += Stride()) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    Meeting meeting("a/H1, b/H3");
    meeting.StartAll();
    meeting.Quiet();
    meeting.Plug("a/H1:1 - b/H3:1");
    meeting.ExpectIncomplete();
    meeting.faults().FailNth("pool.allocate", n);
    meeting.Pass(8 * kSecond);
    failed = meeting.faults().Fired();
    meeting.faults().HealAll();
  }
  EXPECT_GT(n, 400u);
}

// Each of these at every packet, to either host.
void DisturbEither(
    const std::function<void(Meeting&, std::size_t host)>& what,
    const std::function<void(Meeting&, std::size_t host)>& then,
    const std::function<void(Meeting&)>& before = [](Meeting&) {}) {
  for (const std::size_t host : {0u, 1u}) {
    SCOPED_TRACE("host " + std::to_string(host));
    std::uint64_t n = 1;
    while (Disturb(
        n, [&what, host](Meeting& meeting) { what(meeting, host); },
        [&then, host](Meeting& meeting) { then(meeting, host); }, before)) {
      n += 2 * Stride();
    }
    EXPECT_GT(n, 60u);
  }
}

void FallAsleep(Meeting& meeting, std::size_t host) {
  meeting.kernel(host).SystemSleepAsync(platform::SystemPowerAction::Sleep);
}

TEST(MeetingAtEveryPacket, OneHostFallsAsleep) {
  const auto wake = [](Meeting& meeting, std::size_t host) {
    meeting.Resume(host);
    meeting.Pass(25 * kSecond);
    ExpectBothEnumerated(meeting);
    HoldAwake(meeting, false);
  };
  DisturbEither(FallAsleep, wake, [](Meeting& meeting) { HoldAwake(meeting, true); });
}

TEST(MeetingAtEveryPacket, OneDeviceIsGone) {
  DisturbEither(
      [](Meeting& meeting, std::size_t host) {
        meeting.kernel(host).SurpriseRemoveAsync(meeting.machine().device({host, 0}));
      },
      [](Meeting& meeting, std::size_t host) {
        meeting.ExpectIncomplete();
        EXPECT_NE(meeting.kernel(host).State(meeting.machine().device({host, 0})), platform::PnpState::Started);
      });
}

TEST(MeetingAtEveryPacket, OneDeviceIsRemovedInOrder) {
  DisturbEither(
      [](Meeting& meeting, std::size_t host) {
        meeting.kernel(host).RemoveAsync(meeting.machine().device({host, 0}));
      },
      [](Meeting& meeting, std::size_t) { meeting.ExpectIncomplete(); });
}

}  // namespace
}  // namespace tests
