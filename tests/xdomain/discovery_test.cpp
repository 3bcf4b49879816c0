// Goal: every step of a peer's discovery follows from the one before by the state table, with its waits and its
// attempts, whatever the peer does. Method: a peer played by hand; states with their times, and the requests that came.
#include <gtest/gtest.h>

#include <regex>

#include "include/device_context.h"
#include "tests/support/hand_peer.h"
#include "xdomain/peer_state.h"

namespace tests {
namespace {

using platform::kMillisecond;
using platform::kSecond;

// With a seed, timers end at ticks: then only the order counts.
std::string Timed(const std::string& text) {
  return CurrentSeed() ? std::regex_replace(text, std::regex(R"( \+\d+)"), "") : text;
}

void ExpectTimed(const std::string& found, const std::string& expected) {
  EXPECT_EQ(Timed(found), Timed(expected));
}

// The further attempts of one step: the sequence number is what is left of ten.
std::string Attempts(unsigned type, unsigned count, const char* since) {
  std::string text;
  for (unsigned i = 1; i <= count; ++i) {
    text += std::to_string(type) + " seq=" + std::to_string((10 - i) % 4) + " +" + since + "\n";
  }
  return text;
}

constexpr const char* kToLinkStatus = "0-1 INIT +0\n0-1 UUID +100\n0-1 LINK_STATUS +200\n";

WORLD_TEST(Discovery, OfAnUpperUuidAsksForTheChangeOfTheLink) {
  HandPeer peer;
  peer.Meet();
  peer.Pass(20 * kSecond);
  // The peer only says that it changes its end: the lanes do not bond in 10 s.
  ExpectTimed(peer.States(), std::string(kToLinkStatus) +
                                 "0-1 LINK_STATE_CHANGE +1000\n0-1 LINK_STATUS2 +1000\n0-1 BONDING_UUID_LOW +100\n"
                                 "0-1 PROPERTIES +12000\n0-1 ENUMERATED +2000\n");
  ExpectTimed(peer.Requests(),
              "12 seq=2 +0\n5 seq=2 +100\n15 seq=2 +1000\n17 seq=2 +1000\n15 seq=2 +100\n3 seq=2 +13000\n3 seq=2 +0\n"
              "5 seq=2 +1000\n");
  EXPECT_EQ(peer.Peer(0), "ENUMERATED 20G x1 vendor 1234 maker device 2 peer hops 22 9");
}

WORLD_TEST(Discovery, OfALowerUuidWaitsToBeAskedAndGoesOnWhenItIsNot) {
  HandPeer peer(false);
  peer.Meet();
  peer.Pass(20 * kSecond);
  ExpectTimed(peer.States(), std::string(kToLinkStatus) +
                                 "0-1 BONDING_UUID_HIGH +1000\n0-1 PROPERTIES +11000\n0-1 ENUMERATED +2000\n");
  EXPECT_EQ(peer.Peer(0), "ENUMERATED 20G x1 vendor 1234 maker device 2 peer hops 22 9");
  EXPECT_EQ(peer.fabric().FindAdapter("A:2")->laneState(), sim::LaneState::Disabled)
      << "a second lane that is not bonded is off";
}

// Writes to word 1 of the lane capabilities that start a change of the width: "2=4814801c 1=4814801c ".
std::string WidthWrites(const std::string& wire) {
  std::string text;
  const std::regex write(
      R"(-> WRITE route=0 adapter=([12]) space=adapter offset=0x037 .* data=(\w+[89abcdef]\w{3})\n)");
  for (std::sregex_iterator found(wire.begin(), wire.end(), write), end; found != end; ++found) {
    text += (*found)[1].str() + "=" + (*found)[2].str() + " ";
  }
  return text;
}

// Asked while it waits; the answer is status 0, and the step runs at once.
WORLD_TEST(Discovery, OfALowerUuidChangesTheLinkWhenItIsAsked) {
  const struct {
    std::uint32_t width;
    const char* writes;
  } kCases[] = {{1, "2=4814801c 1=4814801c "}, {3, "2=4814803c 1=4814803c "}, {2, ""}};
  for (const auto& [width, writes] : kCases) {
    SCOPED_TRACE(width);
    HandPeer peer(false);
    peer.Meet();
    while (peer.States().find("BONDING_UUID_HIGH") == std::string::npos) peer.Pass(100 * kMillisecond);
    peer.Pass(3 * kSecond);
    EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(17, {width | 0x400}, 3)), "18/3: 0");
    peer.Wire();
    peer.Pass(20 * kSecond);
    const std::string states = peer.States();
    EXPECT_NE(states.find("0-1 ENUMERATED"), std::string::npos) << states;
    EXPECT_EQ(WidthWrites(peer.Wire()), writes);
  }
}

struct Twist {
  const char* what;
  unsigned type;  // of the requests that are answered otherwise
  std::function<std::optional<Words>(HandPeer&, const Words&)> answer;
  unsigned attempts;
  const char* since;   // between them
  std::string states;  // behind those that lead there
};

std::function<std::optional<Words>(HandPeer&, const Words&)> Error(std::uint32_t code) {
  return [code](HandPeer&, const Words& request) { return HandPeer::AnswerTo(request, 7, {code}); };
}

std::optional<Words> Silence(HandPeer&, const Words&) {
  return std::nullopt;
}

WORLD_TEST(Discovery, TriesEachStepElevenTimesAndGoesOnByTheTable) {
  const std::string link = kToLinkStatus;
  const std::string change = link + "0-1 LINK_STATE_CHANGE +1000\n";
  const std::string status2 = change + "0-1 LINK_STATUS2 +1000\n";
  const std::string low = status2 + "0-1 BONDING_UUID_LOW +100\n0-1 PROPERTIES +12000\n";
  const Twist kTwists[] = {
      {"UUID, unknown packet", 12, Error(1), 11, "1000", "0-1 INIT +0\n0-1 UUID +100\n0-1 ERROR +10100\n"},
      {"UUID, unknown domain", 12, Error(2), 11, "1000", "0-1 INIT +0\n0-1 UUID +100\n0-1 ERROR +10100\n"},
      {"UUID, not supported", 12, Error(3), 11, "1000", "0-1 INIT +0\n0-1 UUID +100\n0-1 ERROR +10100\n"},
      {"UUID, not ready", 12, Error(4), 11, "1000", "0-1 INIT +0\n0-1 UUID +100\n0-1 ERROR +10100\n"},
      {"status, silent", 15, Silence, 11, "2000", link + "0-1 PROPERTIES +22000\n0-1 ENUMERATED +2000\n"},
      {"status, not ready", 15, Error(4), 11, "1000", link + "0-1 PROPERTIES +11000\n0-1 ENUMERATED +2000\n"},
      {"status, says no", 15,
       [](HandPeer&, const Words& request) {
         return HandPeer::AnswerTo(request, 16, {1, 0xFFFFFFFF});
       },
       11, "1000", link + "0-1 PROPERTIES +11000\n0-1 ENUMERATED +2000\n"},
      {"status, one lane", 15,
       [](HandPeer&, const Words& request) {
         return HandPeer::AnswerTo(request, 16, {0, 0xFFFFFF01});
       },
       1, "", link + "0-1 PROPERTIES +1000\n0-1 ENUMERATED +2000\n"},
      {"change, silent", 17, Silence, 11, "2000", change + "0-1 PROPERTIES +22000\n0-1 ENUMERATED +2000\n"},
      {"change, not ready", 17, Error(4), 11, "1000", change + "0-1 PROPERTIES +11000\n0-1 ENUMERATED +2000\n"},
      {"change, says no", 17, [](HandPeer&, const Words& request) { return HandPeer::AnswerTo(request, 18, {2}); }, 11,
       "1000", change + "0-1 PROPERTIES +11000\n0-1 ENUMERATED +2000\n"},
      // Once, and a run that finds the error state and does nothing.
      {"properties, silent", 3, Silence, 1, "", low + "0-1 ERROR +2000\n"},
      // Too short for what counts as an answer to this request, so that it is not heard.
      {"properties, not ready", 3, Error(4), 1, "", low + "0-1 ERROR +2000\n"},
  };
  for (const Twist& twist : kTwists) {
    SCOPED_TRACE(twist.what);
    HandPeer peer;
    peer.script = [&](const Words& request) {
      return request[7] == twist.type ? twist.answer(peer, request) : peer.BehaveWell(request);
    };
    peer.Meet();
    peer.Pass(60 * kSecond);
    ExpectTimed(peer.States(), twist.states);
    std::string attempts;
    std::istringstream lines(peer.Requests());
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with(std::to_string(twist.type) + " ")) attempts += line + "\n";
    }
    const std::size_t first = attempts.find('\n') + 1;
    ExpectTimed(attempts.substr(first), Attempts(twist.type, twist.attempts - 1, twist.since));
    if (::testing::Test::HasFailure()) return;
  }
}

// A response of an error that nobody knows counts as the answer that was hoped for.
WORLD_TEST(Discovery, TakesAnErrorOfUnknownCodeForSuccess) {
  HandPeer peer;
  peer.script = [&peer](const Words& request) {
    return request[7] == 17 ? HandPeer::AnswerTo(request, 7, {5}) : peer.BehaveWell(request);
  };
  peer.Meet();
  peer.Pass(5 * kSecond);
  // The status of the change is the code, so the change itself has failed.
  EXPECT_NE(peer.Requests().find("17 seq=1"), std::string::npos);
}

WORLD_TEST(Discovery, GivesUpASilentPeerUntilThatAsks) {
  HandPeer peer;
  peer.script = [](const Words&) { return std::nullopt; };
  peer.Meet();
  peer.Pass(30 * kSecond);
  ExpectTimed(peer.States(), "0-1 INIT +0\n0-1 UUID +100\n0-1 ERROR +21100\n");
  ExpectTimed(peer.Requests(), "12 seq=2 +0\n" + Attempts(12, 10, "2000"));
  peer.Pass(60 * kSecond);
  EXPECT_EQ(peer.Requests(), "");
  peer.script = [&peer](const Words& request) { return peer.BehaveWell(request); };
  peer.widths = 1;
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(15, {})).substr(0, 7), "16/0: 0");
  EXPECT_EQ(peer.States(), "") << "a question about the link is none about the host";
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(1, {}))[0], '2') << "the older form of the question does as well";
  peer.Pass(10 * kSecond);
  ExpectTimed(peer.States(),
              "0-1 INIT +68980\n0-1 UUID +1000\n0-1 LINK_STATUS +200\n0-1 PROPERTIES +1000\n"
              "0-1 ENUMERATED +2000\n");
}

// Only a failed search for the UUID is begun anew.
WORLD_TEST(Discovery, IsNotRevivedWhenItWasThePropertiesThatFailed) {
  HandPeer peer;
  peer.widths = 1;
  peer.script = [&peer](const Words& request) {
    return request[7] == 3 ? std::optional<Words>() : peer.BehaveWell(request);
  };
  peer.Meet();
  peer.Pass(10 * kSecond);
  EXPECT_NE(peer.States().find("0-1 ERROR"), std::string::npos);
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(12, {}))[0], '2');
  peer.Pass(10 * kSecond);
  EXPECT_EQ(peer.States(), "");
}

WORLD_TEST(Discovery, OfACableThatLeadsBackHereSkipsTheLink) {
  HandPeer peer;
  Words own;
  peer.script = [&](const Words& request) {
    peer.uuid = own;
    return peer.BehaveWell(request);
  };
  ASSERT_EQ(peer.Start(), 0);
  own = peer.OwnUuid();
  peer.Plug("A:1 - B:1");
  peer.Pass(10 * kSecond);
  ExpectTimed(peer.States(), "0-1 INIT +0\n0-1 UUID +100\n0-1 PROPERTIES +200\n0-1 ENUMERATED +2000\n");
}

WORLD_TEST(Discovery, OfAHostThatHasBecomeAnotherOneStops) {
  HandPeer peer;
  peer.widths = 1;
  peer.Meet();
  peer.Pass(10 * kSecond);
  EXPECT_NE(peer.States().find("0-1 ENUMERATED"), std::string::npos);
  peer.uuid[0] = 0x12345678;
  peer.InDevice([](DEVICE_EXTENSION& context) { KivUsb4XdomainQueueUuid(context.XDomain.Peek(), &context); });
  peer.Pass(10 * kSecond);
  EXPECT_NE(peer.States().find("0-1 ERROR"), std::string::npos);
  peer.WithPeer(0, [](USB4_XDOMAIN& known) { EXPECT_TRUE(known.Removed.IsSet()); });
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(12, {}))[0], '2');
  peer.Pass(10 * kSecond);
  EXPECT_EQ(peer.States().find("UUID"), std::string::npos) << "its work has ended";
}

WORLD_TEST(Discovery, ReadsPropertiesAgainAndTakesNewerOnesOnly) {
  HandPeer peer;
  peer.widths = 1;
  peer.Meet();
  peer.Pass(10 * kSecond);
  const auto again = [&peer] {
    peer.InDevice([](DEVICE_EXTENSION& context) { QueueStateWork(context.XDomain.Peek(), &context); });
    peer.Pass(5 * kSecond);
    return peer.Peer(0);
  };
  peer.block[41] = 0x32000000;  // "peer2"
  EXPECT_EQ(again(), "ENUMERATED 20G x1 vendor 1234 maker device 2 peer hops 22 9") << "of the same generation";
  peer.generation = 2;
  EXPECT_EQ(again(), "ENUMERATED 20G x1 vendor 1234 maker device 2 peer2 hops 22 9");
  peer.generation = 1;
  peer.block[13] = 0x99;
  EXPECT_EQ(again(), "ENUMERATED 20G x1 vendor 1234 maker device 2 peer2 hops 22 9") << "older";
  peer.generation = 3;
  peer.block[2] = 0;
  EXPECT_EQ(again(), "ERROR 20G x1 vendor 1234 maker device 2 peer2 hops 22 9") << "no device ID";
}

}  // namespace
}  // namespace tests
