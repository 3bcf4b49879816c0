// Goal: each type of packet goes where it belongs, with a good CRC and with a bad one; an answer that comes at the very
// end of the wait is taken or not, never half. Method: a request that waits for a packet of each type; packets put on
// the wire by hand.
#include <gtest/gtest.h>

#include "hostif/config_access.h"
#include "hostif/config_request.h"
#include "tests/support/step_log.h"

namespace {

using platform::kMicrosecond;
using platform::kMillisecond;
using sim::ControlPacket;
using sim::ControlWire;
using tests::World;

constexpr KIV_RESULT kUnanswered = -258;

// Sends a read that no router answers and waits for a packet of type `pdf` instead, 16 bytes long.
KIV_RESULT WaitForType(USB4_DOMAIN& domain, std::uint32_t pdf,
                       bool (*copy)(USB4_CFG_REQUEST*, const USB4_CTL_PKG*) = KivUsb4CfgRequestCopy) {
  USB4_CFG_REQUEST* request = AllocateRequest();
  request->RequestWords[2] = 0x04002000;
  request->RequestBytes = 12;
  request->RequestPdf = 1;
  request->ResponseBytes = 16;
  request->ResponsePdf = pdf;
  request->Match = KivUsb4CfgMatch;
  request->Copy = copy;
  const USB4_CFG_RESULT result = KivUsb4CfgRequestSync(domain.ControlChannel, request, 200);
  EXPECT_EQ(request->ResponseWords[3], result.Err == 0 ? 0xC0FFEE00u : 0u);
  KivUsb4CfgRequestDequeue(domain.ControlChannel, request);
  ReleaseRequest(request);
  return result.Err;
}

WORLD_TEST(ReceiveSorting, EachTypeGoesWhereItBelongsWhateverItsCrc) {
  constexpr KIV_RESULT kNo = kUnanswered;
  const struct {
    std::uint8_t pdf;
    KIV_RESULT good, bad;
    const char* why;
  } cases[] = {
      {0, 0, 0, "a type of nobody goes to the requests as it is"},
      {1, 0, kNo, "a bad answer is dropped"},
      {2, 0, kNo, "a bad answer is dropped"},
      {3, -5, kNo, "16 bytes are no error packet, yet end the oldest request"},
      {4, 0, 0, "a type of nobody"},
      {5, kNo, kNo, "an event is used up by the domain"},
      {6, 0, 0, "inter-domain packets are offered to the requests in any case"},
      {7, 0, 0, "inter-domain packets are offered to the requests in any case"},
      {8, 0, kNo, "like an answer"},
      {9, 0, kNo, "like an answer"},
      {10, kNo, kNo, "like an event"},
      {11, 0, 0, "a type of nobody"},
      {12, 0, 0, "the hand-over's answer has no CRC worth the name"},
      {15, 0, 0, "a type of nobody"},
  };
  for (const auto& test : cases) {
    for (const bool good : {true, false}) {
      World world;
      world.Start();
      world.Quiet();
      world.wire().ReplaceAnswer(1, [](const ControlPacket&) { return std::nullopt; });
      sim::RawPacket packet =
          ControlWire::Raw({static_cast<sim::Pdf>(test.pdf), {0x80000000, 0, 0x04002000, 0xC0FFEE00}});
      if (!good) packet.bytes.back() ^= 1;
      world.At(30 * kMillisecond, [&world, packet] { world.wire().Inject(packet); });
      const KIV_RESULT result = world.InDriver([&](USB4_DOMAIN& domain) { return WaitForType(domain, test.pdf); });
      EXPECT_EQ(result, good ? test.good : test.bad)
          << "type " << int{test.pdf} << (good ? "" : " bad") << ": " << test.why;
    }
  }
}

// The wait ends between any two steps of the answer's way in. Whoever wins, the words are whole.
WORLD_TEST(ReceiveSorting, AnAnswerAtTheEndOfTheWaitIsTakenWholeOrNotAtAll) {
  for (int offset = -60; offset <= 60; offset += 5) {
    World world;
    world.Start();
    world.Quiet();
    world.wire().ReplaceAnswer(1, [&world, offset](const ControlPacket& answer) {
      const sim::RawPacket late = ControlWire::Raw(answer);
      // The request was sent some 100 us before it was answered.
      world.At(200 * kMillisecond - 100 * kMicrosecond + offset * 2 * kMicrosecond,
               [&world, late] { world.wire().Inject(late); });
      return std::optional<sim::RawPacket>();
    });
    const USB4_CFG_RESULT result = world.InDriver([](USB4_DOMAIN& domain) {
      std::uint32_t words[5] = {};
      const USB4_CFG_RESULT read =
          Usb4CfgReadRaw(domain.ControlChannel, words, {0, 0, {USB4_CFG_SPACE_ROUTER, 0, 5}}, 200);
      EXPECT_EQ(words[0], 0x200B8086u);
      EXPECT_EQ(words[4] >> 24, 0x40u);
      return read;
    });
    EXPECT_EQ(result.Err, 0) << offset;
  }
}

// Who waits must not go while its answer is being copied: the copy takes longer than what is left of the wait.
bool CopySlowly(USB4_CFG_REQUEST* request, const USB4_CTL_PKG* packet) {
  LARGE_INTEGER pause;
  pause.QuadPart = -30 * 10000;
  KeDelayExecutionThread(KernelMode, FALSE, &pause);
  return KivUsb4CfgRequestCopy(request, packet);
}

WORLD_TEST(ReceiveSorting, AnAnswerThatIsBeingCopiedAtTheEndOfTheWaitIsWaitedFor) {
  World world;
  world.Start();
  world.Quiet();
  world.wire().ReplaceAnswer(1, [](const ControlPacket&) { return std::nullopt; });
  const sim::RawPacket late = ControlWire::Raw({sim::Pdf::Read, {0x80000000, 0, 0x04002000, 0xC0FFEE00}});
  world.At(190 * kMillisecond, [&world, late] { world.wire().Inject(late); });
  const platform::Time before = world.simulation().Now();
  EXPECT_EQ(world.InDriver([](USB4_DOMAIN& domain) { return WaitForType(domain, 1, CopySlowly); }), 0);
  EXPECT_GE(world.simulation().Now() - before, 210 * kMillisecond);
}

}  // namespace
