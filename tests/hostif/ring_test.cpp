// Goal: rings claim their hops, program their registers, and keep every frame on exactly one list whatever the device
// writes back. Method: rings of hop 1 and up on a started host (nothing else uses them), completion called by hand; the
// registers are read from the model.
#include "hostif/ring.h"

#include <gtest/gtest.h>

#include <array>

#include "hostif/host_interface.h"
#include "tests/support/world.h"

namespace {

using tests::World;

// Frees a ring and, since nobody replaces it here, its descriptor table.
void FreeWithTable(USB4_RING* ring) {
  const WDFCOMMONBUFFER table = ring->DescriptorTable;
  Usb4RingFree(ring);
  WdfObjectDelete(table);
}

constexpr std::uint32_t kDone = 1u << 21;

std::vector<int> g_finished;  // frame numbers in order of completion; 100 more: cancelled

struct NumberedFrame {
  USB4_RING_FRAME frame{};
  int number = 0;
  DMA_BUFFER buffer{};
};

void Finished(USB4_RING*, USB4_RING_FRAME* frame, bool cancelled) {
  const auto* numbered = reinterpret_cast<NumberedFrame*>(frame);
  g_finished.push_back(numbered->number + (cancelled ? 100 : 0));
}

// A ring with frames of its own. Everything inside runs on a task of the driver.
class RingUnderTest {
 public:
  RingUnderTest(USB4_DOMAIN& domain, const USB4_RING_PARAMETERS& parameters, std::size_t frames)
      : ring(Usb4_ring_alloc(domain.HostInterface, parameters)), frames_(frames) {
    g_finished.clear();
    for (std::size_t i = 0; i < frames; ++i) {
      frames_[i].number = static_cast<int>(i);
      frames_[i].frame.Completion = Finished;
      EXPECT_EQ(CreateDmaBuffer(*domain.HostInterface, 4096, &frames_[i].buffer), 0);
      frames_[i].frame.BufferBusAddress = frames_[i].buffer.BusAddress;
    }
  }
  USB4_RING_FRAME* Frame(std::size_t i) { return &frames_[i].frame; }
  // Stopped, emptied and freed; what it still held is forgotten.
  void Free() {
    USb4RingStop(ring);
    while (KivUsb4RingPoll(ring) != nullptr) {
    }
    FreeWithTable(ring);
    for (NumberedFrame& frame : frames_) WdfObjectDelete(frame.buffer.Handle);
  }

  USB4_RING* ring;

 private:
  std::vector<NumberedFrame> frames_;
};

USB4_RING_PARAMETERS Parameters(std::int32_t hop, std::uint32_t size, bool transmit, std::uint32_t flags) {
  return {hop, size, transmit, flags, 0, 0x0002, 0x0004};
}

WORLD_TEST(Ring, ClaimsTheHopItWantsOrTheLowestFreeOneFromOne) {
  World world;  // 12 hops; hop 0 is the control channel's
  world.Start();
  world.InDriver([](USB4_DOMAIN& domain) {
    std::vector<USB4_RING*> rings;
    for (int hop = 1; hop < 12; ++hop) {
      rings.push_back(Usb4TxRingAlloc(domain.HostInterface, -1, 4, 2));
      ASSERT_NE(rings.back(), nullptr);
      EXPECT_EQ(rings.back()->Hop, hop);
    }
    const struct {
      std::int32_t hop;
      KIV_RESULT result;
    } cases[] = {{-1, -22}, {12, -22}, {0, -16}, {5, -16}};
    for (const auto& test : cases) {
      USB4_RING* ring = Usb4TxRingAlloc(domain.HostInterface, test.hop, 4, 2);
      ASSERT_NE(ring, nullptr) << "a ring without a hop is returned all the same";
      ring->Hop = test.hop;
      EXPECT_EQ(KivUsb4AllocHop(domain.HostInterface, ring), test.result) << test.hop;
      Usb4RingStart(ring);
      EXPECT_EQ(ring->Running.Peek(), 0) << test.hop;
      FreeWithTable(ring);
    }
    FreeWithTable(rings[2]);  // hop 3
    rings[2] = Usb4TxRingAlloc(domain.HostInterface, -1, 4, 2);
    EXPECT_EQ(rings[2]->Hop, 3) << "a hop given back is the lowest free one";
    USB4_RING* receive = Usb4RxRingAlloc(domain.HostInterface, Parameters(-1, 4, false, 2));
    EXPECT_EQ(receive->Hop, 1) << "the two directions have hops of their own";
    FreeWithTable(receive);
    for (USB4_RING* ring : rings) FreeWithTable(ring);
  });
}

struct RegisterCase {
  const char* what;
  bool transmit;
  std::uint32_t flags;
  std::uint32_t size;
  std::uint32_t control;
  std::uint32_t masks;
};

WORLD_TEST(Ring, ProgramsItsRegistersAndClearsThem) {
  const RegisterCase cases[] = {
      {"raw transmit", true, 1, 0x00000010, 0xC0000000, 0},
      {"frame transmit", true, 2, 0x00000010, 0x80000000, 0},
      {"frame transmit, end to end", true, 6, 0x00000010, 0x90000000, 0},
      {"raw receive", false, 1, 0x01000010, 0xC0000000, 0x00020004},
      {"frame receive", false, 2, 0x00000010, 0x80000000, 0x00020004},
      {"frame receive, end to end to hop 5", false, 6, 0x00000010, 0x90005000, 0x00020004},
  };
  for (const RegisterCase& test : cases) {
    World world;
    world.Start();
    const auto read = [&world](std::uint32_t offset) { return world.hardware().ReadRegister(offset); };
    const std::uint32_t base = test.transmit ? 0x00030 : 0x08030;  // hop 3
    const std::uint32_t control = test.transmit ? 0x19860 : 0x29860;
    USB4_RING* ring = nullptr;
    const std::uint64_t table = world.InDriver([&](USB4_DOMAIN& domain) {
      USB4_RING_PARAMETERS parameters = Parameters(3, 16, test.transmit, test.flags);
      parameters.EndToEndHop = 5;
      ring = Usb4_ring_alloc(domain.HostInterface, parameters);
      Usb4RingStart(ring);
      return ring->DescriptorsBusAddress;
    });
    EXPECT_EQ(read(base), static_cast<std::uint32_t>(table)) << test.what;
    EXPECT_EQ(read(base + 4), static_cast<std::uint32_t>(table >> 32)) << test.what;
    EXPECT_EQ(read(base + 12), test.size) << test.what;
    EXPECT_EQ(read(control), test.control) << test.what;
    EXPECT_EQ(read(control + 4), test.masks) << test.what;
    world.InDriver([&](USB4_DOMAIN&) { USb4RingStop(ring); });
    for (std::uint32_t offset : {base, base + 4, base + 8, base + 12, control}) {
      EXPECT_EQ(read(offset), 0u) << test.what;
    }
    world.InDriver([&](USB4_DOMAIN&) { FreeWithTable(ring); });
  }
}

struct InterruptCase {
  const char* host;
  bool transmit;
  std::int32_t hop;
  std::uint32_t maskRegister;
  std::uint32_t maskBit;
  std::uint32_t vectorRegister;
  std::uint32_t vectorMask;
  std::uint32_t vector;
};

WORLD_TEST(Ring, HasItsInterruptBitAndVector) {
  // H1 has 12 hops: receive interrupts are numbers 12 to 23. H2 has 21: 21 to 41, across a dword of the mask.
  const InterruptCase cases[] = {
      {"H1", true, 1, 0x38200, 1u << 1, 0x38C40, 0x000000F0, 0x00000020},
      {"H1", false, 1, 0x38200, 1u << 13, 0x38C44, 0x00F00000, 0x00300000},
      {"H1", true, 7, 0x38200, 1u << 7, 0x38C40, 0xF0000000, 0xE0000000},
      {"H1", false, 4, 0x38200, 1u << 16, 0x38C48, 0x0000000F, 0x00000009},
      {"H2", false, 10, 0x38200, 1u << 31, 0x38C4C, 0xF0000000, 0x50000000},
      {"H2", false, 11, 0x38204, 1u << 0, 0x38C50, 0x0000000F, 0x00000007},
  };
  for (const InterruptCase& test : cases) {
    World world(test.host);
    world.Start();
    world.Quiet();
    const auto read = [&world](std::uint32_t offset) { return world.hardware().ReadRegister(offset); };
    const std::uint32_t maskBefore = read(test.maskRegister);
    const std::uint32_t vectorsBefore = read(test.vectorRegister);
    USB4_RING* ring = nullptr;
    world.InDriver([&](USB4_DOMAIN& domain) {
      ring = Usb4_ring_alloc(domain.HostInterface, Parameters(test.hop, 16, test.transmit, 2));
      Usb4RingStart(ring);
    });
    EXPECT_EQ(read(test.maskRegister), maskBefore | test.maskBit) << test.host << " " << test.hop;
    EXPECT_EQ(read(test.vectorRegister), (vectorsBefore & ~test.vectorMask) | test.vector) << test.host << test.hop;
    world.InDriver([&](USB4_DOMAIN&) { USb4RingStop(ring); });
    EXPECT_EQ(read(test.maskRegister), maskBefore);
    EXPECT_EQ(read(test.vectorRegister), vectorsBefore);
    world.InDriver([&](USB4_DOMAIN&) { FreeWithTable(ring); });
  }
}

WORLD_TEST(Ring, HoldsOneFrameLessThanItsSizeAndKeepsTheRest) {
  World world;
  world.Start();
  std::unique_ptr<RingUnderTest> test;
  world.InDriver([&](USB4_DOMAIN& domain) {
    test = std::make_unique<RingUnderTest>(domain, Parameters(1, 10, false, 2), 12);
    EXPECT_EQ(KivUsb4RingRx(test->ring, test->Frame(0)), -1) << "not started yet";
    Usb4RingStart(test->ring);
    for (std::size_t i = 0; i < 12; ++i) EXPECT_EQ(KivUsb4RingRx(test->ring, test->Frame(i)), 0);
  });
  EXPECT_EQ(world.hardware().ReadRegister(0x08018), 9u) << "consumer index of receive hop 1";
  // Two frames arrive: PDF 1 starts, PDF 2 ends. Their descriptors make room for the two that wait.
  world.hardware().Receive(1, {1, 2, std::vector<std::uint8_t>(100)});
  world.hardware().Receive(1, {1, 2, std::vector<std::uint8_t>(4)});
  world.Pass(1 * platform::kMillisecond);
  world.InDriver([&](USB4_DOMAIN&) { ProcessRingData(test->ring); });
  EXPECT_EQ(g_finished, (std::vector<int>{0, 1}));
  EXPECT_EQ(world.hardware().ReadRegister(0x08018), 1u) << "eleven posted in all, the index has wrapped";
  EXPECT_EQ(test->Frame(0)->Word & 0xFF000FFF, 0x12000064u) << "100 bytes, end PDF 2, start PDF 1";
  EXPECT_EQ(test->Frame(1)->Word & 0x00000FFF, 4u);
  world.InDriver([&](USB4_DOMAIN&) {
    USb4RingStop(test->ring);
    EXPECT_EQ(KivUsb4RingRx(test->ring, test->Frame(0)), -1) << "stopped";
    EXPECT_EQ(g_finished.size(), 2u) << "a ring other than the control ring keeps its frames when it stops";
    test->Free();
  });
}

WORLD_TEST(Ring, CompletesInOrderAndOnlyUpToTheFirstThatIsNotDone) {
  World world;
  world.Start();
  std::unique_ptr<RingUnderTest> test;
  world.InDriver([&](USB4_DOMAIN& domain) {
    test = std::make_unique<RingUnderTest>(domain, Parameters(1, 8, false, 2), 4);
    Usb4RingStart(test->ring);
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(KivUsb4RingRx(test->ring, test->Frame(i)), 0);
  });
  const auto process = [&] {
    world.InDriver([&](USB4_DOMAIN&) { ProcessRingData(test->ring); });
    return std::exchange(g_finished, {});
  };
  world.hardware().ForgeDescriptor(false, 1, 1, kDone | 8);
  world.hardware().ForgeDescriptor(false, 1, 6, kDone | 8);
  EXPECT_EQ(process(), std::vector<int>{}) << "descriptor 1 is done, 0 is not; 6 was never posted";
  world.hardware().ForgeDescriptor(false, 1, 0, kDone | 8);
  EXPECT_EQ(process(), (std::vector<int>{0, 1}));
  EXPECT_EQ(process(), std::vector<int>{}) << "completed once";
  for (unsigned index = 0; index < 8; ++index) world.hardware().ForgeDescriptor(false, 1, index, kDone | 0xFFFF);
  EXPECT_EQ(process(), (std::vector<int>{2, 3})) << "done bits beyond what was posted complete nothing";
  EXPECT_EQ(process(), std::vector<int>{});
  world.InDriver([&](USB4_DOMAIN&) { test->Free(); });
}

WORLD_TEST(Ring, PollTakesOneFrameAndPostsNothing) {
  World world;
  world.Start();
  std::unique_ptr<RingUnderTest> test;
  world.InDriver([&](USB4_DOMAIN& domain) {
    test = std::make_unique<RingUnderTest>(domain, Parameters(1, 3, false, 2), 3);
    Usb4RingStart(test->ring);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(KivUsb4RingRx(test->ring, test->Frame(i)), 0);
  });
  world.hardware().ForgeDescriptor(false, 1, 0, kDone | 0x00012008);
  world.hardware().ForgeDescriptor(false, 1, 1, kDone | 0x00012010);
  world.InDriver([&](USB4_DOMAIN&) {
    EXPECT_EQ(KivUsb4RingPoll(test->ring), test->Frame(0));
    EXPECT_EQ(test->Frame(0)->Word, 0x12002008u) << "8 bytes, PDFs 2 and 1, status done";
    EXPECT_EQ(KivUsb4RingPoll(test->ring), test->Frame(1));
    EXPECT_EQ(KivUsb4RingPoll(test->ring), nullptr);
  });
  EXPECT_EQ(world.hardware().ReadRegister(0x08018), 2u) << "the third frame still waits";
  world.InDriver([&](USB4_DOMAIN&) {
    USb4RingStop(test->ring);
    EXPECT_EQ(KivUsb4RingPoll(test->ring), nullptr);
    EXPECT_TRUE(g_finished.empty());
    test->Free();
  });
}

WORLD_TEST(Ring, TransmitsFramesAsGivenAndGoesRound) {
  World world;
  world.Start();
  std::unique_ptr<RingUnderTest> test;
  world.InDriver([&](USB4_DOMAIN& domain) {
    test = std::make_unique<RingUnderTest>(domain, Parameters(2, 3, true, 2), 7);
    Usb4RingStart(test->ring);
    EXPECT_EQ(KivUsb4RingRx(test->ring, test->Frame(0)), -1) << "a transmit ring receives nothing";
    for (std::size_t i = 0; i < 7; ++i) {
      test->Frame(i)->Word = 0x21000000u | static_cast<std::uint32_t>(64 + i);  // start PDF 2, end PDF 1
      EXPECT_EQ(KivUsb4RingFrameTxNetEnqueue(test->ring, test->Frame(i)), 0);
    }
    EXPECT_EQ(test->ring->Descriptors[0].Attributes & 0x00CFFFFF, 0x00C21040u);
    EXPECT_EQ(test->ring->Descriptors[1].Attributes & 0x00CFFFFF, 0x00C21041u);
  });
  EXPECT_EQ(world.hardware().ReadRegister(0x00028), 2u << 16) << "producer index of transmit hop 2";
  for (int i = 0; i < 7; ++i) {
    world.Pass(1 * platform::kMillisecond);
    world.InDriver([&](USB4_DOMAIN&) { ProcessRingData(test->ring); });
  }
  EXPECT_EQ(g_finished, (std::vector<int>{0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(world.hardware().ReadRegister(0x00028), 1u << 16) << "seven frames over three descriptors";
  world.InDriver([&](USB4_DOMAIN&) { test->Free(); });
}

WORLD_TEST(Ring, AHandlersReferenceOutlivesTheRing) {
  World world;
  world.Start();
  world.InDriver([](USB4_DOMAIN& domain) {
    EXPECT_EQ(RingReference(domain.HostInterface, 1, false), nullptr);
    EXPECT_EQ(RingReference(domain.HostInterface, 12, false), nullptr) << "beyond the last hop";
    USB4_RING* ring = Usb4RxRingAlloc(domain.HostInterface, Parameters(-1, 4, false, 2));
    EXPECT_EQ(RingReference(domain.HostInterface, 1, true), nullptr) << "the other direction";
    USB4_RING* held = RingReference(domain.HostInterface, 1, false);
    EXPECT_EQ(held, ring);
    FreeWithTable(ring);
    EXPECT_EQ(RingReference(domain.HostInterface, 1, false), nullptr);
    EXPECT_EQ(held->Size, 4u);
    RingRelease(held);
  });
}

}  // namespace
