// Goal: a configuration access comes to the right end whatever answers it: repeats, refusals, lies, silence, a channel
// that stops under it. Method: single accesses of a started host H1; the wire between host interface and router
// replaces answers; expected are wire text, result and virtual time.
#include "hostif/config_access.h"

#include <gtest/gtest.h>

#include "hostif/config_request.h"
#include "hostif/control_channel.h"
#include "tests/support/world.h"

namespace {

using platform::kMillisecond;
using sim::ControlPacket;
using sim::ControlWire;
using tests::World;

struct Outcome {
  USB4_CFG_RESULT result;
  std::vector<std::uint32_t> words;
  platform::Time took;
  std::string wire;
};

constexpr std::uint32_t kUntouched = 0x55AA55AA;

// A read of the host router; `during` may happen at any time meanwhile.
Outcome Read(World& world, const USB4_CFG_TARGET& target) {
  world.Wire();
  const platform::Time start = world.simulation().Now();
  Outcome outcome = world.InDriver([&](USB4_DOMAIN& domain) {
    std::vector<std::uint32_t> words(64, kUntouched);
    const USB4_CFG_RESULT result = Usb4CfgReadRaw(domain.ControlChannel, words.data(), target, 200);
    words.resize(target.Range.Length & 63);
    return Outcome{result, words, 0, ""};
  });
  outcome.took = world.simulation().Now() - start;
  outcome.wire = world.Wire();
  return outcome;
}

USB4_CFG_TARGET RouterWord(std::uint64_t offset, std::uint32_t length = 1, USB4_ROUTE route = 0) {
  return {route, 0, {USB4_CFG_SPACE_ROUTER, offset, length}};
}

std::vector<int> SequencesOfReads(const std::string& wire) {
  std::vector<int> sequences;
  for (std::size_t at = 0; (at = wire.find("-> READ", at)) != std::string::npos; ++at) {
    sequences.push_back(wire[wire.find("seq=", at) + 4] - '0');
  }
  return sequences;
}

WORLD_TEST(ConfigAccess, AWriteCarriesItsWordsAndReachesTheRegister) {
  World world;
  world.Start();
  world.Quiet();
  world.Wire();
  const KIV_RESULT result = world.InDriver([](USB4_DOMAIN& domain) {
    const std::uint32_t word = 0xCAFE0001;  // first data word of router operations
    return KivUsb4CfgWrite(domain.ControlChannel, &word, RouterWord(9));
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(world.Wire(),
            "-> WRITE route=0 adapter=0 space=router offset=0x009 length=1 seq=0 data=cafe0001\n"
            "<- WRITE route=0 adapter=7 space=router offset=0x009 length=1 seq=0\n");
  EXPECT_NE(world.Registers("H1").find("0x09 = 0xcafe0001"), std::string::npos);
}

// What an answer may look like, and what becomes of the access.
struct AnswerCase {
  const char* what;
  std::function<std::optional<sim::RawPacket>(const ControlPacket&)> bend;
  KIV_RESULT err;
  std::int32_t code;
  std::vector<int> sequences;  // of the requests sent
};

ControlPacket WithWord(ControlPacket packet, std::size_t index, std::uint32_t flip) {
  packet.dwords[index] ^= flip;
  return packet;
}

std::optional<sim::RawPacket> CorruptLastByte(const ControlPacket& answer) {
  sim::RawPacket raw = ControlWire::Raw(answer);
  raw.bytes.back() ^= 1;
  return raw;
}

std::optional<sim::RawPacket> StartOfFrame(const ControlPacket& answer) {
  sim::RawPacket raw = ControlWire::Raw(answer);
  raw.forgery.startPdf = 1;
  return raw;
}

std::vector<AnswerCase> AnswerCases() {
  using sim::ErrorCode;
  using sim::ErrorPacket;
  const auto raw = [](ControlPacket packet) { return std::optional(ControlWire::Raw(packet)); };
  return {
      {"lost", [](const ControlPacket&) { return std::nullopt; }, 0, 0, {0, 1}},
      {"bad CRC", CorruptLastByte, 0, 0, {0, 1}},
      {"sequence number 1", [=](const auto& a) { return raw(WithWord(a, 2, 1u << 27)); }, 0, 0, {0, 1}},
      {"other route", [=](const auto& a) { return raw(WithWord(a, 1, 1)); }, 0, 0, {0, 1}},
      {"a dword too many",
       [=](ControlPacket a) {
         a.dwords.push_back(0);
         return raw(a);
       },
       0,
       0,
       {0, 1}},
      {"a dword short",
       [=](ControlPacket a) {
         a.dwords.pop_back();
         return raw(a);
       },
       0,
       0,
       {0, 1}},
      {"answer to a write",
       [=](ControlPacket a) {
         a.pdf = sim::Pdf::Write;
         return raw(a);
       },
       0,
       0,
       {0, 1}},
      {"mark of a received packet missing", [=](const auto& a) { return raw(WithWord(a, 0, 1u << 31)); }, -5, 0, {0}},
      {"start of frame set", StartOfFrame, -5, 0, {0}},
      {"other offset", [=](const auto& a) { return raw(WithWord(a, 2, 1)); }, -1, 0, {0}},
      {"other length field", [=](const auto& a) { return raw(WithWord(a, 2, 1u << 13)); }, -1, 0, {0}},
      {"other space", [=](const auto& a) { return raw(WithWord(a, 2, 1u << 25)); }, -1, 0, {0}},
      {"reserved bit", [=](const auto& a) { return raw(WithWord(a, 2, 1u << 29)); }, -1, 0, {0}},
      {"other adapter", [=](const auto& a) { return raw(WithWord(a, 2, 1u << 19)); }, 0, 0, {0}},
      {"error packet", [=](const auto&) { return raw(ErrorPacket(0, 3, ErrorCode::NoSuchAddress)); }, 1, 2, {0}},
      {"error packet of another route",
       [=](const auto&) { return raw(ErrorPacket(0x301, 3, ErrorCode::NotConnected)); },
       1,
       0,
       {0}},
      {"error code 12", [=](const auto&) { return raw(ErrorPacket(0, 3, ErrorCode::FlowControl)); }, 1, -4, {0}},
      {"error packet of 16 bytes",
       [=](const auto&) {
         ControlPacket packet = ErrorPacket(0, 3, ErrorCode::NoSuchAddress);
         packet.dwords.push_back(0);
         return raw(packet);
       },
       -5,
       0,
       {0}},
  };
}

WORLD_TEST(ConfigAccess, EachAnswerHasItsEnd) {
  for (const AnswerCase& test : AnswerCases()) {
    World world;
    world.Start();
    world.Quiet();
    world.wire().ReplaceAnswer(1, test.bend);
    const Outcome read = Read(world, RouterWord(0));
    EXPECT_EQ(read.result.Err, test.err) << test.what;
    EXPECT_EQ(read.result.Code, test.code) << test.what;
    EXPECT_EQ(SequencesOfReads(read.wire), test.sequences) << test.what << "\n" << read.wire;
    EXPECT_EQ(read.words[0] == kUntouched, test.err != 0) << test.what;
    EXPECT_EQ(read.words[0] >> 16 == 0x200B, test.err == 0) << test.what;
  }
}

WORLD_TEST(ConfigAccess, SilenceIsAskedFourTimesAndThenEnds) {
  for (unsigned lost = 1; lost <= 4; ++lost) {
    World world;
    world.Start();
    world.Quiet();
    for (unsigned n = 1; n <= lost; ++n) {
      world.wire().ReplaceAnswer(n, [](const ControlPacket&) { return std::nullopt; });
    }
    const Outcome read = Read(world, RouterWord(0));
    EXPECT_EQ(read.result.Err, lost == 4 ? -258 : 0) << lost;
    std::vector<int> sequences = {0, 1, 2, 3};
    sequences.resize(std::min(lost + 1, 4u));
    EXPECT_EQ(SequencesOfReads(read.wire), sequences) << lost;
    EXPECT_GE(read.took, lost * 200 * kMillisecond) << lost;
    EXPECT_LE(read.took, lost * 250 * kMillisecond) << lost;
  }
}

WORLD_TEST(ConfigAccess, LateAnswersDoNotAnswerTheNextAttempt) {
  World world;
  world.Start();
  world.Quiet();
  // The answer to attempt 0 arrives while attempt 1 waits, whose own answer is lost.
  world.wire().ReplaceAnswer(1, [&world](const ControlPacket& answer) {
    const sim::RawPacket late = ControlWire::Raw(answer);
    world.At(250 * kMillisecond, [&world, late] { world.wire().Inject(late); });
    return std::optional<sim::RawPacket>();
  });
  world.wire().ReplaceAnswer(2, [](const ControlPacket&) { return std::nullopt; });
  const Outcome read = Read(world, RouterWord(0));
  EXPECT_EQ(read.result.Err, 0);
  EXPECT_EQ(SequencesOfReads(read.wire), (std::vector<int>{0, 1, 2}));
}

WORLD_TEST(ConfigAccess, LengthsThatCannotBeAskedForFail) {
  const struct {
    std::uint32_t length;
    KIV_RESULT err;
    const char* why;
  } cases[] = {
      {64, 1, "six bits hold 0, and the router refuses to read nothing"},
      {65, -1, "six bits hold 1, which the answer echoes"},
  };
  for (const auto& test : cases) {
    World world;
    world.Start();
    world.Quiet();
    EXPECT_EQ(Read(world, RouterWord(0, test.length)).result.Err, test.err) << test.why;
    world.TakeProtocolErrors();  // a request of no registers is wrong on the wire
  }
}

WORLD_TEST(ConfigAccess, AWriteThatFitsNoPacketIsNotSent) {
  World world;
  world.Start();
  world.Quiet();
  world.Wire();
  const USB4_CFG_RESULT result = world.InDriver([](USB4_DOMAIN& domain) {
    const std::uint32_t words[63] = {};
    return KivUsb4CfgWriteRaw(domain.ControlChannel, words, RouterWord(9, 61), 200);
  });
  EXPECT_EQ(result.Err, -4);
  EXPECT_EQ(world.Wire(), "");
}

WORLD_TEST(ConfigAccess, WithoutAChannelReadsSucceedAndWritesFail) {
  World world;
  world.Start();
  world.Quiet();
  world.InDriver([](USB4_DOMAIN&) {
    std::uint32_t word = kUntouched;
    EXPECT_EQ(KivUsb4CfgRead(nullptr, &word, RouterWord(0)), 0);
    EXPECT_EQ(word, kUntouched);
    EXPECT_EQ(KivUsb4CfgWrite(nullptr, &word, RouterWord(9)), -1);
    EXPECT_EQ(KivUsb4CfgGetUpstreamPort(nullptr, 0), -1);
  });
}

WORLD_TEST(ConfigAccess, TheUpstreamAdapterIsTheOneThatAnswers) {
  World world;
  world.Start();
  world.Quiet();
  const auto upstream = [&world] {
    return world.InDriver([](USB4_DOMAIN& domain) { return KivUsb4CfgGetUpstreamPort(domain.ControlChannel, 0); });
  };
  EXPECT_EQ(upstream(), 7);
  world.wire().ReplaceAnswer(1, [](const ControlPacket&) {
    return std::optional(ControlWire::Raw(sim::ErrorPacket(0, 0, sim::ErrorCode::NotEnumerated)));
  });
  EXPECT_EQ(upstream(), -5) << "an error packet";
  world.wire().ReplaceAnswer(
      1, [](const ControlPacket& answer) { return std::optional(ControlWire::Raw(WithWord(answer, 2, 1))); });
  EXPECT_EQ(upstream(), -1) << "an answer to another question";
}

WORLD_TEST(ConfigAccess, APoweredDownDeviceIsNotAsked) {
  World world;
  world.Start();
  world.Quiet();
  world.InDevice([](DEVICE_EXTENSION& context) { context.PoweredDown.Set(true); });
  const Outcome refused = Read(world, RouterWord(0));
  EXPECT_EQ(refused.result.Err, -1);
  EXPECT_EQ(refused.words[0], kUntouched);
  EXPECT_EQ(refused.wire, "");
  const Outcome nothing = Read(world, {0, 0, {USB4_CFG_SPACE_PATH, 0, 0}});
  EXPECT_EQ(nothing.result.Err, 0) << "no register of the path space at 0 is what an answer of zeros would echo";
  world.InDevice([](DEVICE_EXTENSION& context) { context.PoweredDown.Set(false); });
}

WORLD_TEST(ConfigAccess, GoingDownEndsTheRepeats) {
  World world;
  world.Start();
  world.Quiet();
  for (unsigned n = 1; n <= 4; ++n) world.wire().ReplaceAnswer(n, [](const ControlPacket&) { return std::nullopt; });
  const Outcome read = [&] {
    DEVICE_EXTENSION* device = nullptr;
    world.InDevice([&](DEVICE_EXTENSION& context) { device = &context; });
    world.At(300 * kMillisecond, [device] { device->PoweredDown.Set(true); });
    return Read(world, RouterWord(0));
  }();
  EXPECT_EQ(read.result.Err, -258) << "the result of the last attempt stands";
  EXPECT_EQ(SequencesOfReads(read.wire), (std::vector<int>{0, 1}));
  world.InDevice([](DEVICE_EXTENSION& context) { context.PoweredDown.Set(false); });
}

// Starts a read on a task of its own, stops the channel while it waits, and starts it again.
WORLD_TEST(ConfigAccess, AChannelThatStopsUnderAWaiterLeavesItsRequestAlone) {
  World world;
  world.Start();
  world.Quiet();
  for (unsigned n = 1; n <= 4; ++n) world.wire().ReplaceAnswer(n, [](const ControlPacket&) { return std::nullopt; });
  bool ended = false;
  USB4_CFG_RESULT result{};
  USB4_CTL* channel = world.InDriver([](USB4_DOMAIN& domain) { return domain.ControlChannel; });
  world.simulation().Spawn(&world.kernel(), "reader", [&] {
    std::uint32_t word = kUntouched;
    result = Usb4CfgReadRaw(channel, &word, RouterWord(0), 200);
    ended = true;
  });
  world.Pass(50 * kMillisecond);
  const platform::Time stopped = world.simulation().Now();
  world.InDriver([](USB4_DOMAIN& domain) { KivUsb4CtlStop(domain.ControlChannel); });
  EXPECT_FALSE(ended) << "the waiter is not woken";
  world.simulation().RunUntil([&] { return ended; }, stopped + 400 * kMillisecond);
  EXPECT_TRUE(ended);
  EXPECT_EQ(result.Err, -4) << "its own time-out, then an attempt that the stopped channel refuses";
  world.InDriver([](USB4_DOMAIN& domain) { KivUsb4CtlStart(domain.ControlChannel); });
  const Outcome again = Read(world, RouterWord(0));
  EXPECT_EQ(again.result.Err, 0);
  EXPECT_EQ(SequencesOfReads(again.wire), (std::vector<int>{0, 1, 2, 3})) << "three answers were still to be lost";
}

// Four tasks read the type of four adapters of one router at once: same route, size and sequence number.
WORLD_TEST(ConfigAccess, ParallelReadersGetTheirOwnAnswers) {
  const struct {
    std::uint32_t adapter;
    std::uint32_t type;
  } readers[] = {{1, 0x000001}, {3, 0x100101}, {4, 0x200101}, {5, 0x0E0101}};
  World world;
  world.Start();
  world.Quiet();
  USB4_CTL* channel = world.InDriver([](USB4_DOMAIN& domain) { return domain.ControlChannel; });
  int running = 0;
  for (const auto& reader : readers) {
    ++running;
    world.simulation().Spawn(&world.kernel(), "reader", [&, reader] {
      for (int round = 0; round < 3; ++round) {
        std::uint32_t word = kUntouched;
        const USB4_CFG_TARGET target = {0, reader.adapter, {USB4_CFG_SPACE_ADAPTER, 2, 1}};
        EXPECT_EQ(Usb4CfgReadRaw(channel, &word, target, 200).Err, 0) << "adapter " << reader.adapter;
        EXPECT_EQ(word & 0xFFFFFF, reader.type) << "adapter " << reader.adapter;
      }
      --running;
    });
  }
  world.simulation().RunUntil([&] { return running == 0; }, world.simulation().Now() + 10 * platform::kSecond);
  EXPECT_EQ(running, 0);
}

// The older request is a configuration read, the younger one a request to a peer host, which waits for no turn.
WORLD_TEST(ConfigAccess, AnErrorPacketEndsTheOldestOfTwoRequests) {
  World world;
  world.Start();
  world.Quiet();
  world.wire().ReplaceAnswer(1, [](const ControlPacket&) { return std::nullopt; });
  USB4_CTL* channel = world.InDriver([](USB4_DOMAIN& domain) { return domain.ControlChannel; });
  USB4_CFG_RESULT read{}, asked{};
  int ended = 0;
  world.simulation().Spawn(&world.kernel(), "reader", [&] {
    std::uint32_t word = 0;
    read = Usb4CfgReadRaw(channel, &word, RouterWord(0), 200);
    ++ended;
  });
  world.Pass(20 * kMillisecond);
  world.simulation().Spawn(&world.kernel(), "peer request", [&] {
    USB4_CFG_REQUEST* request = AllocateRequest();
    request->RequestBytes = request->ResponseBytes = 12;
    request->RequestPdf = USB4_PDF_XDOMAIN_REQUEST;
    request->ResponsePdf = USB4_PDF_XDOMAIN_RESPONSE;
    request->Match = KivUsb4CfgMatch;
    request->Copy = KivUsb4CfgRequestCopy;
    asked = KivUsb4CfgRequestSync(channel, request, 100);
    KivUsb4CfgRequestDequeue(channel, request);
    ReleaseRequest(request);
    ++ended;
  });
  world.Pass(20 * kMillisecond);
  world.wire().Inject(ControlWire::Raw(sim::ErrorPacket(0x303, 5, sim::ErrorCode::NoSuchAdapter)));
  world.Pass(20 * kMillisecond);
  EXPECT_EQ(ended, 1);
  EXPECT_EQ(read.Err, 1);
  EXPECT_EQ(read.Code, 4);
  EXPECT_EQ(read.Route, 0x303u);
  world.Pass(400 * kMillisecond);
  EXPECT_EQ(ended, 2);
  EXPECT_EQ(asked.Err, -258) << "nobody answers it";
  EXPECT_EQ(world.TakeProtocolErrors(),
            "H1 (route 0): inter-domain packet of 3 words; the header has 8 [inter-domain-words]\n"
            "H1 (route 0): inter-domain packet to the host's own router [inter-domain-itself]\n");
}

}  // namespace
