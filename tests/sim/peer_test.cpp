// Goal: scripted peers say what the packet tables say, truthful or as wrong as they were told, and talk a link into two
// lanes in both roles.
// Method: a host by hand that asks literal packets, and peers that talk to each other; no driver anywhere.
#include <gtest/gtest.h>

#include "sim/peer/property_block.h"
#include "sim/peer/scripted_peer.h"
#include "sim/router/cable.h"
#include "tests/sim/rig.h"

namespace sim::test {
namespace {

using Words = std::vector<std::uint32_t>;

constexpr Uuid kHost{0x89ABCD01, 0x01234567, 0xFFFFFFFF, 0xFFFFFFFF};  // of model H1
constexpr Uuid kPeer{0x00000005, 0x00000001, 0xFFFFFFFF, 0xFFFFFFFF};

RouterModel HostModel(std::uint64_t uid, const char* name = "H3") {
  RouterModel model = *FindModel(name);
  model.uid = uid;
  return model;
}

// H1:1, managed by hand, and a peer at the other end of its cable.
struct Asker : Rig {
  explicit Asker(PeerConfig config) : Rig("H1"), model(HostModel(0x100000005)) {
    config.name = "peer";
    if (config.lanes == 1) model.laneWidths = 1;
    fabric.AddPeer(model, std::move(config));
    fabric.Connect("H1:1", "peer:3");
    ManageDomain();
    Unlock(0, 1);
    Run(20 * kMs);
    RepostCompleted();
  }
  // The words of the answer to a discovery request of this type with sequence number 2; none when none came within
  // `within`.
  Words Ask(unsigned type, const Words& payload = {}, platform::Time within = 50 * kMs) {
    const std::size_t before = log().entries().size();
    Words data{0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0, type};
    data.insert(data.end(), payload.begin(), payload.end());
    Send(Pdf::InterDomainRequest, 1, 0x10000000 | static_cast<std::uint32_t>(data.size()), data);
    Run(within);
    RepostCompleted();
    for (std::size_t i = before; i < log().entries().size(); ++i) {
      if (log().entries()[i].up && log().entries()[i].pdf == 7) {
        return DecodePacket(Pdf::InterDomainResponse, log().entries()[i].bytes)->packet.dwords;
      }
    }
    return {};
  }
  Words AskBlock(std::uint32_t offset) {
    return Ask(3, {kHost[0], kHost[1], kHost[2], kHost[3], kPeer[0], kPeer[1], kPeer[2], kPeer[3], offset});
  }

  RouterModel model;
};

PeerConfig Passive() {
  return PeerThatIs("passive");
}

// What stands behind words 0 to 2 of every answer.
Words Response(std::uint32_t lengthAndSequence, Words rest) {
  Words words{0x80000000, 1, lengthAndSequence, 0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0};
  words.insert(words.end(), rest.begin(), rest.end());
  return words;
}

TEST(PropertyBlock, TheWorkedExample) {
  const PropertyDirectory root{{},
                               {{.key = "vendorid", .number = 0x1F3A},
                                {.key = "vendorid", .text = "Kiverra Systems Inc."},
                                {.key = "deviceid", .number = 2},
                                {.key = "devicerv", .number = 0x80000100},
                                {.key = "network",
                                 .directory = {{Uuid{0xCA8961C6, 0x9541CE1C, 0x5949B8BD, 0x4F5A5F2E},
                                                {{.key = "prtcid", .number = 1},
                                                 {.key = "prtcvers", .number = 1},
                                                 {.key = "prtcrevs", .number = 1},
                                                 {.key = "prtcstns", .number = 6}}}}},
                                {.key = "deviceid", .text = "DESKTOP1"},
                                {.key = "maxhopid", .number = 22}}};
  EXPECT_EQ(PropertyBlockOf(root), (Words{0x55584401, 28,                                                 //
                                          0x76656E64, 0x6F726964, 0x76000001, 0x00001F3A,                 // vendorid
                                          0x76656E64, 0x6F726964, 0x74000006, 30,                         //
                                          0x64657669, 0x63656964, 0x76000001, 2,                          // deviceid
                                          0x64657669, 0x63657276, 0x76000001, 0x80000100,                 // devicerv
                                          0x6E657477, 0x6F726B00, 0x44000014, 40,                         // network
                                          0x64657669, 0x63656964, 0x74000003, 36,                         //
                                          0x6D617868, 0x6F706964, 0x76000001, 22,                         // maxhopid
                                          0x4B697665, 0x72726120, 0x53797374, 0x656D7320, 0x496E632E, 0,  //
                                          0x4445534B, 0x544F5031, 0,                                      //
                                          0,                                                              //
                                          0xCA8961C6, 0x9541CE1C, 0x5949B8BD, 0x4F5A5F2E,                 //
                                          0x70727463, 0x69640000, 0x76000001, 1,                          //
                                          0x70727463, 0x76657273, 0x76000001, 1,                          //
                                          0x70727463, 0x72657673, 0x76000001, 1,                          //
                                          0x70727463, 0x73746E73, 0x76000001, 6}));
}

TEST(Peer, AnswersEveryRequestAsThePacketTableSays) {
  Asker rig(Passive());
  const Words uuid = Response(0x1000000B, {2, kPeer[0], kPeer[1], kPeer[2], kPeer[3], 0, 3});
  EXPECT_EQ(rig.Ask(12), uuid);
  EXPECT_EQ(rig.Ask(1), uuid);
  EXPECT_EQ(rig.Ask(5, {kHost[0], kHost[1], kHost[2], kHost[3]}), Response(0x10000005, {6}));
  EXPECT_EQ(rig.Ask(15), Response(0x10000007, {16, 0, 0x0C0C0103})) << "x1 and x2, target x1, both speeds";
  EXPECT_EQ(rig.Ask(17, {0x0C03}), Response(0x10000006, {18, 0}));
  EXPECT_EQ(rig.Ask(9), Response(0x10000006, {7, 3})) << "a type that there is not";
  EXPECT_EQ(rig.Errors(), "H1 (route 0): discovery packet of unknown type 9 [discovery-type]\n");
}

TEST(Peer, ServesItsBlockInPiecesOf45Words) {
  PeerConfig config = Passive();
  config.generation = 7;
  for (std::uint32_t i = 0; i < 60; ++i) config.block.push_back(0x1000 + i);
  Asker rig(config);
  Words first{4, kPeer[0], kPeer[1], kPeer[2], kPeer[3], kHost[0], kHost[1], kHost[2], kHost[3], 0x003C0000, 7};
  for (std::uint32_t i = 0; i < 45; ++i) first.push_back(0x1000 + i);
  EXPECT_EQ(rig.AskBlock(0), Response(0x1000003C, first));
  Words second{4, kPeer[0], kPeer[1], kPeer[2], kPeer[3], kHost[0], kHost[1], kHost[2], kHost[3], 0x003C002D, 7};
  for (std::uint32_t i = 45; i < 60; ++i) second.push_back(0x1000 + i);
  EXPECT_EQ(rig.AskBlock(45), Response(0x1000001E, second));
  EXPECT_EQ(rig.AskBlock(60), Words{}) << "nothing stands there";
  EXPECT_EQ(rig.Ask(3, Words(9, 1)), Response(0x10000006, {7, 2})) << "for another host";
}

TEST(Peer, LiesAsItWasTold) {
  struct Case {
    const char* what;
    std::function<void(PeerConfig&)> lie;
    std::uint32_t length, offsetWord;
    std::size_t words;
  };
  const Case cases[] = {
      {"no words in all", [](PeerConfig& c) { c.total = 0; }, 0x1000003C, 0x00000002, 63},
      {"one word too many", [](PeerConfig& c) { c.total = 501; }, 0x1000003C, 0x01F50002, 63},
      {"as many as can be said", [](PeerConfig& c) { c.total = 65535; }, 0x1000003C, 0xFFFF0002, 63},
      {"a piece past the total", [](PeerConfig& c) { c.pieceWords = 10; }, 0x10000019, 0x00040002, 28},
      {"an empty piece", [](PeerConfig& c) { c.pieceWords = 0; }, 0x1000000F, 0x00040002, 18},
      {"another offset", [](PeerConfig& c) { c.offsetShift = 5; }, 0x10000011, 0x00040007, 20},
      {"a length that is none", [](PeerConfig& c) { c.lengthShift = 3; }, 0x10000014, 0x00040002, 20},
  };
  for (const Case& c : cases) {
    PeerConfig config = Passive();
    config.block = {1, 2, 3, 4};
    c.lie(config);
    Asker rig(config);
    const Words answer = rig.AskBlock(2);
    ASSERT_EQ(answer.size(), c.words) << c.what;
    EXPECT_EQ(answer[2], c.length) << c.what;
    EXPECT_EQ(answer[16], c.offsetWord) << c.what;
  }
}

TEST(Peer, ChangesItsUuidRefusesWithEveryCodeAndTakesItsTime) {
  PeerConfig fickle = Passive();
  fickle.changesUuidAfter = 2;
  Asker rig(fickle);
  EXPECT_EQ(rig.Ask(12)[8], kPeer[0]);
  EXPECT_EQ(rig.Ask(12)[8], kPeer[0]);
  EXPECT_NE(rig.Ask(12)[8], kPeer[0]);

  Asker refusing(PeerThatIs("refusing"));
  for (std::uint32_t code = 0; code < 6; ++code) EXPECT_EQ(refusing.Ask(12), Response(0x10000006, {7, code}));

  PeerConfig slow = Passive();
  slow.answerAfter = PeerThatIs("slow").answerAfter;
  Asker late(slow);
  EXPECT_EQ(late.Ask(12, {}, 1000 * kMs), Words{});
  EXPECT_NE(late.Ask(12, {}, 1000 * kMs), Words{}) << "that of the first request";

  Asker silent(PeerThatIs("silent"));
  for (unsigned type : {1u, 5u, 12u, 15u}) EXPECT_EQ(silent.Ask(type), Words{}) << type;
}

TEST(Peer, StormsOnTopOfItsDiscovery) {
  PeerConfig config = Passive();
  config.stormRequests = 100;
  config.stormType = 15;
  Asker rig(config);
  rig.Wire();
  rig.Run(200 * kMs);
  const std::string wire = rig.Wire();
  std::size_t requests = 0;
  for (std::size_t at = 0; (at = wire.find("<- LINK-STATUS-REQUEST route=1", at)) != std::string::npos; ++at) {
    ++requests;
  }
  EXPECT_EQ(requests, 100u);
}

// What a host's manager must not send, as the model says it.
TEST(PeerPackets, WhatACorrectPeerWouldRejectIsAComplaint) {
  struct Case {
    const char* complaint;
    Pdf pdf;
    std::uint32_t length;
    Words rest;
  };
  const Words header{0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0};
  const auto discovery = [&](Words rest) {
    Words words = header;
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
  };
  const Case cases[] = {
      {"UUID-REQUEST: length 6 where 5 words follow [inter-domain-length]", Pdf::InterDomainRequest, 6,
       discovery({12})},
      {"UUID-REQUEST: length word 0x20000005 with reserved bits [inter-domain-reserved]", Pdf::InterDomainRequest,
       0x20000005, discovery({12})},
      {"UUID-REQUEST sent with PDF 7, not 6 [discovery-pdf]", Pdf::InterDomainResponse, 5, discovery({12})},
      {"link change to target width 2; it is 1 or 3 [target-width]", Pdf::InterDomainRequest, 6, discovery({17, 2})},
      {"UUID-RESPONSE of 9 words; it has 14 [discovery-words]", Pdf::InterDomainResponse, 6, discovery({2, 1})},
      {"UUID response says that its request came on route 3 [arrived-on]", Pdf::InterDomainResponse, 11,
       discovery({2, kHost[0], kHost[1], kHost[2], kHost[3], 0, 3})},
      {"PROPERTIES-CHANGED-REQUEST with a UUID that is not the host's [discovery-uuid]", Pdf::InterDomainRequest, 9,
       discovery({5, 1, 2, 3, 4})},
      {"PROPERTIES-CHANGED-RESPONSE answers no request [discovery-unasked]", Pdf::InterDomainResponse, 5,
       discovery({6})},
      {"inter-domain packet of unknown protocol 00000001-00000002-00000003-00000004 [inter-domain-protocol]",
       Pdf::InterDomainRequest,
       5,
       {1, 2, 3, 4, 12}},
      {"inter-domain packet of 4 words; the header has 8 [inter-domain-words]", Pdf::InterDomainRequest, 1, {1}},
      {"properties request with reserved bits in its offset word 0x00010000 [offset-reserved]", Pdf::InterDomainRequest,
       14, discovery({3, kHost[0], kHost[1], kHost[2], kHost[3], 1, 2, 3, 4, 0x00010000})},
      {"block words 4 to 6 of a block of 5 [block-range]", Pdf::InterDomainResponse, 17,
       discovery({4, kHost[0], kHost[1], kHost[2], kHost[3], 1, 2, 3, 4, 0x00050004, 1, 8, 9})},
      {"0 block words in a packet; it carries 1 to 45 [block-piece]", Pdf::InterDomainResponse, 15,
       discovery({4, kHost[0], kHost[1], kHost[2], kHost[3], 1, 2, 3, 4, 0x00050004, 1})},
  };
  for (const Case& c : cases) {
    Asker rig(PeerThatIs("silent"));
    rig.Send(c.pdf, 1, c.length, c.rest);
    rig.Run(1 * kMs);
    EXPECT_EQ(rig.Errors(), std::string("H1 (route 0): ") + c.complaint + "\n");
  }
  Asker rig(PeerThatIs("silent"));
  rig.Send(Pdf::InterDomainRequest, 0x8000000000000001, 5, discovery({12}));
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Errors(),
            "H1 (route 0): UUID-REQUEST: bits 0x00000200 in 31:22 of the first dword [inter-domain-header]\n");
}

TEST(PeerPackets, AnAnswerSettlesOneRequestOfItsSequenceNumber) {
  PeerConfig config = PeerThatIs("silent");
  config.asks = true;
  Asker rig(config);
  rig.Run(120 * kMs);
  ASSERT_NE(rig.Wire().find("<- UUID-REQUEST route=1 seq=2"), std::string::npos);
  const Words answer{0x0ED738B6, 0xBB40FF42, 0xE290C297, 0x07FFB2C0, 2, kHost[0], kHost[1], kHost[2], kHost[3], 0, 1};
  rig.Send(Pdf::InterDomainResponse, 1, 0x1800000B, answer);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Errors(), "H1 (route 0): UUID-RESPONSE answers no request [discovery-unasked]\n")
      << "another sequence number";
  rig.fabric.errors().Clear();
  rig.Send(Pdf::InterDomainResponse, 1, 0x1000000B, answer);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Errors(), "");
  rig.Send(Pdf::InterDomainResponse, 1, 0x1000000B, answer);
  rig.Run(1 * kMs);
  EXPECT_EQ(rig.Errors(), "H1 (route 0): UUID-RESPONSE answers no request [discovery-unasked]\n") << "a second time";
}

// Two peers on one cable.
struct Couple : FabricBench {
  Couple(PeerConfig first, PeerConfig second, std::uint64_t firstUid = 1, std::uint64_t secondUid = 2,
         std::uint64_t seed = 0)
      : FabricBench(seed), models{HostModel(firstUid), HostModel(secondUid)} {
    first.name = "P", second.name = "Q";
    if (first.lanes == 1) models[0].laneWidths = 1;
    if (second.lanes == 1) models[1].laneWidths = 1;
    fabric.AddPeer(models[0], std::move(first));
    fabric.AddPeer(models[1], std::move(second));
    fabric.Plug("P:1", "Q:3");
  }
  const PeerDiscovery& Of(const char* name) { return *fabric.peer(name)->conversation(name[0] == 'P' ? 1 : 3); }
  std::string Steps() { return std::string(PeerStepName(Of("P").step())) + " " + PeerStepName(Of("Q").step()); }
  unsigned Width() { return adapter("P:1").negotiatedWidth(); }

  RouterModel models[2];
};

TEST(PeerCouple, LearnsEverythingAndBondsTheLanesWhoeverHasTheLowerUuid) {
  for (std::uint64_t seed : {0, 1, 2, 3}) {
    for (const bool swapped : {false, true}) {
      Couple rig(PeerThatIs("good"), PeerThatIs("good"), swapped ? 2 : 1, swapped ? 1 : 2, seed);
      rig.Run(15000 * kMs);
      EXPECT_EQ(rig.Steps(), "known known");
      EXPECT_EQ(rig.Of("P").hostBlock(), rig.fabric.peer("Q")->block());
      EXPECT_EQ(rig.Of("Q").hostBlock(), rig.fabric.peer("P")->block());
      EXPECT_EQ(rig.Of("Q").hostUuid(), (Uuid{swapped ? 2u : 1u, 0, ~0u, ~0u}));
      EXPECT_EQ(rig.Width(), 2u);
      EXPECT_EQ(rig.adapter("Q:3").negotiatedWidth(), 2u);
      EXPECT_TRUE(rig.fabric.Quiet());
      EXPECT_EQ(rig.Errors(), "");
    }
  }
}

TEST(PeerCouple, WhatBecomesOfOddOnes) {
  struct Case {
    const char *first, *second;  // the first has the lower UUID
    const char* steps;
    unsigned width;
  };
  const Case cases[] = {
      {"one-lane", "good", "known known", 1},      {"good", "one-lane", "known known", 1},
      {"reluctant", "good", "known known", 1},     {"good", "reluctant", "known known", 2},
      {"good", "passive", "known identity", 2},    {"passive", "good", "identity known", 1},
      {"good", "old", "gave-up known", 1},         {"good", "silent", "gave-up identity", 1},
      {"slow", "good", "known gave-up", 1},        {"stormy", "good", "known known", 2},
      {"refusing", "good", "identity gave-up", 1},
  };
  for (const Case& c : cases) {
    Couple rig(PeerThatIs(c.first), PeerThatIs(c.second));
    rig.Run(90000 * kMs);
    EXPECT_EQ(rig.Steps(), c.steps) << c.first << " and " << c.second;
    EXPECT_EQ(rig.Width(), c.width) << c.first << " and " << c.second;
  }
}

TEST(PeerCouple, StartsAfreshWithEveryCable) {
  Couple rig(PeerThatIs("good"), PeerThatIs("good"));
  rig.Run(15000 * kMs);
  rig.fabric.Unplug("P:1");
  rig.Run(10 * kMs);
  EXPECT_EQ(rig.fabric.peer("P")->conversation(1), nullptr);
  EXPECT_EQ(rig.fabric.peer("Q")->conversation(3), nullptr);
  EXPECT_TRUE(rig.fabric.Quiet());
  rig.fabric.Plug("P:1", "Q:3");
  rig.Run(15000 * kMs);
  EXPECT_EQ(rig.Steps(), "known known");
  EXPECT_EQ(rig.Width(), 2u);
}

}  // namespace
}  // namespace sim::test
