// Goal: two hosts find each other over a cable, in the time that the fixed waits take, and whatever happens at whatever
// packet of their meeting. Method: two devices of this driver on one fabric.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/meeting.h"

namespace tests {
namespace {

using platform::kMillisecond;
using platform::kSecond;

std::string Enumerated(const char* hops) {
  return std::string("ENUMERATED 20G x2 vendor 1f3a Kiverra Systems Inc. device 2 LAB-HOST hops ") + hops;
}

void ExpectBothEnumerated(Meeting& meeting) {
  EXPECT_EQ(meeting.Peer(0), Enumerated("22 31"));
  EXPECT_EQ(meeting.Peer(1), Enumerated("31 22"));
}

WORLD_TEST(Meeting, OfTwoHostsThatAreSwitchedOnWithTheirCable) {
  Meeting meeting;
  meeting.StartBoth();
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
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(peer)) text += line.substr(peer.size()) + "\n";
  return text;
}

TEST(Meeting, TakesItsFixedWaitsAndLittleMore) {
  // The first host has the lower UUID; the one with the higher one is the first and the second to be plugged.
  for (const char* cable : {"A:1 - B:1", "B:1 - A:1"}) {
    Meeting meeting("A=H1, B=H3");
    meeting.StartBoth();
    meeting.Quiet();
    const platform::Time plugged = meeting.simulation().Now();
    meeting.Plug(cable);
    meeting.Pass(10 * kSecond);
    ExpectBothEnumerated(meeting);
    const std::string states = meeting.States();
    EXPECT_EQ(StatesOf(states, "0-1"), kAsks);
    EXPECT_EQ(StatesOf(states, "1-1"), kIsAsked);
    constexpr platform::Time kLinkReports = 20 * kMillisecond, kRoundTrips = 15 * kMillisecond;
    EXPECT_LE(meeting.LastChange("0-1") - plugged, 5400 * kMillisecond + kLinkReports + kRoundTrips);
    EXPECT_LE(meeting.LastChange("1-1") - plugged, 6300 * kMillisecond + kLinkReports + kRoundTrips);
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
  Meeting meeting("A=H1, B=H3");
  meeting.StartBoth();
  meeting.Quiet();
  before(meeting);
  meeting.Plug("A:1 - B:1");
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
  for (std::size_t controller : {0, 1}) {
    meeting.InDevice(
        [hold](DEVICE_EXTENSION& context) {
          if (hold)
            EXPECT_EQ(WdfDeviceStopIdle(context.Device, TRUE), 0);
          else
            WdfDeviceResumeIdle(context.Device);
        },
        {0, controller});
  }
}

TEST(MeetingAtEveryPacket, TheCableIsPulledAndPluggedASecondLater) {
  std::uint64_t n = 1;
  while (Disturb(
      n,
      [](Meeting& meeting) {
        meeting.fabric().Unplug("A:1");
        meeting.At(kSecond, [&meeting] { meeting.fabric().Plug("A:1", "B:1"); });
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

TEST(MeetingAtEveryPacket, ThePowerGoesDown) {
  std::uint64_t n = 1;
  while (Disturb(
      n, [](Meeting& meeting) { meeting.kernel().SystemSleepAsync(platform::SystemPowerAction::Sleep); },
      [](Meeting& meeting) {
        meeting.Resume();
        meeting.Pass(12 * kSecond);
        ExpectBothEnumerated(meeting);
      })) {
    n += Stride();
  }
  EXPECT_GT(n, 60u);
}

TEST(MeetingAtEveryPacket, OneDeviceIsGone) {
  for (std::size_t controller : {0, 1}) {
    std::uint64_t n = 1;
    while (Disturb(
        n,
        [controller](Meeting& meeting) {
          meeting.kernel().SurpriseRemoveAsync(meeting.machine().device({0, controller}));
        },
        [controller](Meeting& meeting) {
          meeting.ExpectIncomplete();
          EXPECT_NE(meeting.kernel().State(meeting.machine().device({0, controller})), platform::PnpState::Started);
        })) {
      n += 2 * Stride();
    }
    EXPECT_GT(n, 60u);
  }
}

TEST(MeetingAtEveryPacket, OneDeviceIsRemovedInOrder) {
  for (std::size_t controller : {0, 1}) {
    std::uint64_t n = 1;
    while (Disturb(
        n,
        [controller](Meeting& meeting) {
          meeting.kernel().RemoveAsync(meeting.machine().device({0, controller}));
        },
        [](Meeting& meeting) { meeting.ExpectIncomplete(); })) {
      n += 2 * Stride();
    }
    EXPECT_GT(n, 60u);
  }
}

}  // namespace
}  // namespace tests
