// Goal: what a peer asks is answered by the table of packets, and what it says wrongly is dropped, refused or not
// believed. Method: a peer played by hand that sends one packet, or lies in its answers.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "hostif/abort.h"
#include "tests/support/hand_peer.h"
#include "xdomain/request_handler.h"

namespace tests {
namespace {

using platform::kMillisecond;
using platform::kSecond;

// Known, and done with everything that it wanted to know.
class KnownPeer : public HandPeer {
 public:
  explicit KnownPeer() {
    widths = 1;
    Meet();
    Pass(8 * kSecond);
    EXPECT_EQ(Peer(0).substr(0, 10), "ENUMERATED");
    own = OwnUuid();
    InDriver([this](USB4_DOMAIN& domain) {
      const SpinLockGuard guard(domain.HostInterface->PropertyLock);
      hostGeneration = domain.HostInterface->PropertyGeneration;
    });
  }
  // A properties request from this offset on.
  Words AskFor(std::uint32_t offset, const Words& destination) const {
    Words payload = uuid;
    payload.insert(payload.end(), destination.begin(), destination.end());
    payload.push_back(offset);
    return Packet(3, payload, 1);
  }
  Words own;
  std::uint32_t hostGeneration = 0;
};

std::string Text(const Words& words) {
  std::string text;
  for (const std::uint32_t word : words) text += fmt::format(" {:x}", word);
  return text;
}

WORLD_TEST(Answers, ComeByTheTableOfPackets) {
  KnownPeer peer;
  const std::string uuidAnswer = "2/2:" + Text(peer.own) + " 0 1";
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(1, {}, 2)), uuidAnswer) << "the older form";
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(12, {}, 2)), uuidAnswer);
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(5, peer.uuid, 3)), "6/3");
  // Two lanes and 20 and 10 Gb/s are supported; one lane is the target, and both speeds.
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(15, {}, 1)), "16/1: 0 c0c0103");
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(17, {0x403}, 1)), "7/1: 4") << "nobody waits for it";
  for (const std::uint32_t type : {0u, 2u, 4u, 6u, 7u, 8u, 9u, 10u, 11u, 13u, 14u, 16u, 18u, 19u, 0xFFFFFFFFu}) {
    EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(type, {})), "7/0: 3") << type;
  }
}

WORLD_TEST(Answers, ServeTheBlockInPieces) {
  KnownPeer peer;
  const auto pieceAt = [&peer](std::uint32_t offset) { return peer.AskAndHear(peer.AskFor(offset, peer.own)); };
  const std::string head = "4/1:" + Text(peer.own) + Text(peer.uuid);
  const auto headAt = [&](std::uint32_t offset) { return head + Text({60u << 16 | offset, peer.hostGeneration}); };
  const auto words = [](const std::string& answer) { return std::count(answer.begin(), answer.end(), ' '); };
  EXPECT_EQ(pieceAt(0).substr(0, headAt(0).size() + 12), headAt(0) + " 55584401 1c");
  EXPECT_EQ(words(pieceAt(0)), 10 + 45);
  EXPECT_EQ(pieceAt(45).substr(0, headAt(45).size()), headAt(45));
  EXPECT_EQ(words(pieceAt(45)), 10 + 15);
  EXPECT_EQ(pieceAt(59), headAt(59) + " 6");
  EXPECT_EQ(pieceAt(60), "none");
  EXPECT_EQ(pieceAt(0xFFFF), "none");
  EXPECT_EQ(peer.AskAndHear(peer.AskFor(0, peer.uuid)), "7/1: 2") << "meant for another host";
}

WORLD_TEST(Answers, AreFewWhereThereIsNoPeer) {
  KnownPeer peer;
  constexpr std::uint64_t kNobody = 3;
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(12, {}), kNobody), "2/0:" + Text(peer.own) + " 0 3");
  EXPECT_EQ(peer.AskAndHear(peer.AskFor(0, peer.own), kNobody), "none");
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(5, peer.uuid), kNobody), "6/0");
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(15, {}), kNobody), "7/0: 4");
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(17, {3}), kNobody), "7/0: 4");
  peer.TakeProtocolErrors();  // answers to where no host is
}

WORLD_TEST(Answers, AreNoneForPacketsThatAreNoneOfThisProtocol) {
  KnownPeer peer;
  const auto with = [](std::size_t word, std::uint32_t value) {
    Words packet = HandPeer::Packet(12, {});
    packet[word] = value;
    return packet;
  };
  Words tooShort = HandPeer::Packet(12, {});
  tooShort.pop_back();
  tooShort[2] = 4;
  EXPECT_EQ(peer.AskAndHear(with(2, 4)), "none") << "one word less than it has";
  EXPECT_EQ(peer.AskAndHear(with(2, 6)), "none") << "one word more";
  EXPECT_EQ(peer.AskAndHear(with(2, 0x07FFFFC5)), "2/0:" + Text(peer.own) + " 0 1") << "the bits above it say nothing";
  EXPECT_EQ(peer.AskAndHear(tooShort), "none") << "without a type";
  EXPECT_EQ(peer.AskAndHear({0, 0, 0}), "none");
  EXPECT_EQ(peer.AskAndHear(with(3, 0x0ED738B7)), "none") << "an unknown protocol";
  Words login = HandPeer::Packet(1, {1, 2, 3, 4, 5, 6});
  std::copy_n(Words{0x9E588F79, 0x478A1636, 0x6456C697, 0xDDC820A9}.begin(), 4, login.begin() + 3);
  EXPECT_EQ(peer.AskAndHear(login), "none") << "there is no network yet";
}

// A storm of requests is answered one after the other, as far as it was kept.
WORLD_TEST(Answers, OutlastAStorm) {
  KnownPeer peer;
  peer.At(0, [&peer] {
    for (int request = 0; request < 1000; ++request) peer.Ask(HandPeer::Packet(12, {}, request % 4));
  });
  peer.Pass(5 * kSecond);
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(5, peer.uuid, 3)), "6/3");
  peer.At(0, [&peer] {
    for (int request = 0; request < 1000; ++request) peer.Ask(HandPeer::Packet(12, {}, request % 4));
  });
  peer.Stop();
}

// While nobody answers, as many as a work item can catch up with are kept.
WORLD_TEST(Answers, WaitForTheirTurnUpToABound) {
  KnownPeer peer;
  peer.Wire();
  peer.InDevice([&peer](DEVICE_EXTENSION& context) {
    const RequestPause pause(&context);
    for (int request = 0; request < 300; ++request) {
      peer.Ask(HandPeer::Packet(5, peer.uuid));
      SleepMs(context.Domain, 1);
    }
    EXPECT_EQ(context.XDomainRequestCount.Peek(), 256u);
  });
  peer.Pass(1 * kSecond);
  peer.InDevice([](DEVICE_EXTENSION& context) { EXPECT_EQ(context.XDomainRequestCount.Peek(), 0u); });
  EXPECT_EQ(peer.AskAndHear(HandPeer::Packet(5, peer.uuid, 3)), "6/3");
}

// --- a peer that lies in its answers

const std::string kOneLane = "0-1 LINK_STATUS -45\n";  // and nothing about lanes from then on

struct Piece {
  std::uint32_t total, words;
  std::uint32_t offsetShift = 0;  // added to the offset that was asked for
  std::uint32_t length = 0;       // in the header, unless it is 0
};

// The block's words from where the request asks, and what the peer says about them.
Words AnswerWith(const HandPeer& peer, const Words& request, const Piece& piece) {
  Words block = peer.block;
  block.resize(600);
  const std::uint32_t offset = request[16] & 0xFFFF;
  Words answer = peer.Piece(request, offset + piece.offsetShift, piece.total,
                            {block.begin() + offset, block.begin() + offset + piece.words});
  if (piece.length != 0) answer[2] = (answer[2] & ~0x3Fu) | piece.length;
  return answer;
}

TEST(Transfer, BelievesNoLengthOfAPeer) {
  const struct {
    const char* what;
    std::vector<Piece> pieces;  // the last one again and again
    int result;                 // of the transfer; 0: the block is taken
    int requests;
  } kCases[] = {
      {"the truth", {{48, 45}, {48, 3}}, 0, 2},
      {"pieces of three words", {{48, 3}}, 0, 16},
      {"another total later on", {{48, 45}, {400, 3}}, 0, 2},
      {"no words at all", {{0, 3}}, -22, 11},
      {"no words at first, many afterwards", {{0, 3}, {48, 45}}, -22, 11},
      {"500 words",
       {{500, 45},
        {500, 45},
        {500, 45},
        {500, 45},
        {500, 45},
        {500, 45},
        {500, 45},
        {500, 45},
        {500, 45},
        {500, 45},
        {500, 45},
        {500, 5}},
       0,
       12},
      {"501 words", {{501, 45}}, -7, 1},
      {"65535 words", {{65535, 45}}, -7, 1},
      {"a piece longer than the block", {{20, 45}}, -22, 1},
      {"a second piece past the end", {{48, 45}, {48, 45}}, -22, 2},
      {"an offset further on", {{48, 45, 1}}, -22, 1},
      {"an offset that stays", {{48, 45}, {48, 3, 0xFFFFu - 44}}, -22, 2},
      {"a last piece of two words", {{47, 45}, {47, 2}}, -22, 2},
      {"a last piece of one word", {{46, 45}, {46, 1}}, -22, 2},
      {"a piece of no words", {{48, 0}}, -22, 1},
      {"a length that hides its words", {{48, 45, 0, 17}}, -22, 1},
      {"a length of more words than a packet holds", {{400, 45, 0, 61}}, -22, 1},
      {"the longest length", {{400, 45, 0, 63}}, -22, 1},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    HandPeer peer;
    peer.widths = 1;
    std::size_t asked = 0;
    peer.script = [&](const Words& request) {
      if (request[7] != 3) return peer.BehaveWell(request);
      return std::optional(AnswerWith(peer, request, test.pieces[std::min(asked++, test.pieces.size() - 1)]));
    };
    peer.Meet();
    peer.Pass(6 * kSecond);
    const std::string failure = "0-1 block " + std::to_string(test.result) + "\n0-1 PROPERTIES -11\n";
    EXPECT_EQ(peer.Failures(), kOneLane + (test.result == 0 ? "" : failure));
    EXPECT_EQ(peer.Peer(0).substr(0, 5), test.result == 0 ? "ENUME" : "ERROR");
    EXPECT_EQ(static_cast<int>(asked), test.requests);
    if (::testing::Test::HasFailure()) return;
  }
}

// What cannot be read, or does not say what the peer is, leaves the peer without properties.
WORLD_TEST(Transfer, TakesNoBlockThatCannotBeRead) {
  const struct {
    const char* what;
    std::size_t word;
    std::uint32_t value;
    const char* outcome;
  } kCases[] = {{"another mark", 0, 0x55584402, "0-1 PROPERTIES -12\n"},
                {"a text behind the end", 9, 47, "0-1 PROPERTIES -12\n"},
                {"no device ID", 2, 0x65657669, "0-1 PROPERTIES -22\n"},
                {"no vendor ID", 10, 0x65656e64, "0-1 PROPERTIES -22\n"},
                {"no vendor name", 14, 0x65656e64, "0-1 PROPERTIES -19\n"}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.what);
    HandPeer peer;
    peer.widths = 1;
    peer.block[test.word] = test.value;
    peer.Meet();
    peer.Pass(6 * kSecond);
    EXPECT_EQ(peer.Failures(), kOneLane + test.outcome);
    EXPECT_EQ(peer.Peer(0).substr(0, 5), "ERROR");
  }
}

// Answers that come after their request has been given up are nobody's.
WORLD_TEST(Transfer, HearsNoLateAnswer) {
  HandPeer peer;
  peer.widths = 1;
  peer.script = [&peer](const Words& request) {
    peer.delay = (request[7] == 3 ? 1500 : 1) * kMillisecond;
    return peer.BehaveWell(request);
  };
  peer.Meet();
  peer.Pass(8 * kSecond);
  EXPECT_EQ(peer.Failures(), kOneLane + "0-1 block -258\n0-1 PROPERTIES -11\n");
  EXPECT_EQ(peer.Peer(0).substr(0, 5), "ERROR");
}

}  // namespace
}  // namespace tests
