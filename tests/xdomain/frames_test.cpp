// Goal: what a host puts into a ring arrives in the other host's ring byte for byte while both have approved the paths,
// and never otherwise. Method: two hosts that have met; rings of the driver on hop 1, polled by hand.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <numeric>

#include "hostif/host_interface.h"
#include "hostif/ring.h"
#include "sim/dataplane/frame_transport.h"
#include "tests/support/meeting.h"
#include "tunnel/dma_tunnel.h"

namespace tests {
namespace {

using platform::kMillisecond;
using platform::kSecond;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kFrameBytes = 4096;
constexpr std::size_t kFrames = 7;
// Far hop IDs 8 and 9 as the first host sees them, ring 1 at either end.
constexpr USB4_DMA_HOPS kFirst = {8, 1, 9, 1}, kOther = {9, 1, 8, 1};

struct OneFrame {
  USB4_RING_FRAME frame{};
  DMA_BUFFER buffer{};
};

void Ignore(USB4_RING*, USB4_RING_FRAME*, bool) {}

// The two rings of hop 1 of a host, with their buffers. The receive ring has all of its buffers posted.
class Rings {
 public:
  Rings(Meeting& meeting, std::size_t host) : meeting_(meeting), place_{host, 0} {
    meeting_.InDriver(
        [this](USB4_DOMAIN& domain) {
          transmit_ = Make(domain, {1, 8, true, kRingFrameMode, 0, 0, 0}, sent_);
          receive_ = Make(domain, {1, 8, false, kRingFrameMode, 0, 0xFFFF, 0xFFFF}, received_);
          for (OneFrame& frame : received_) EXPECT_EQ(KivUsb4RingRx(receive_, &frame.frame), 0);
        },
        place_);
  }
  // Before the host is removed.
  void Free() {
    meeting_.InDriver(
        [this](USB4_DOMAIN&) {
          End(transmit_, sent_);
          End(receive_, received_);
        },
        place_);
  }
  void Send(const Bytes& bytes) {
    meeting_.InDriver(
        [&](USB4_DOMAIN&) {
          while (KivUsb4RingPoll(transmit_) != nullptr) {
          }
          OneFrame& frame = sent_[next_++ % kFrames];
          std::memcpy(frame.buffer.Address, bytes.data(), bytes.size());
          frame.frame.Word = FrameWord::Size::Of(static_cast<std::uint32_t>(bytes.size()) & 0xFFF) |
                             FrameWord::StartPdf::Of(1) | FrameWord::EndPdf::Of(2);
          EXPECT_EQ(KivUsb4RingFrameEnqueue(transmit_, &frame.frame), 0);
        },
        place_);
  }
  // What has come since the last call, oldest first.
  std::vector<Bytes> Take() {
    std::vector<Bytes> taken;
    meeting_.InDriver(
        [&](USB4_DOMAIN&) {
          while (USB4_RING_FRAME* polled = KivUsb4RingPoll(receive_)) {
            const auto* frame = reinterpret_cast<const OneFrame*>(polled);
            const auto* at = static_cast<const std::uint8_t*>(frame->buffer.Address);
            const std::uint32_t size = FrameWord::Size::Get(polled->Word);
            taken.emplace_back(at, at + (size == 0 ? kFrameBytes : size));
            EXPECT_EQ(KivUsb4RingRx(receive_, polled), 0);
          }
        },
        place_);
    return taken;
  }

 private:
  using Frames = std::array<OneFrame, kFrames>;

  static USB4_RING* Make(USB4_DOMAIN& domain, const USB4_RING_PARAMETERS& parameters, Frames& frames) {
    for (OneFrame& frame : frames) {
      EXPECT_EQ(CreateDmaBuffer(*domain.HostInterface, kFrameBytes, &frame.buffer), 0);
      frame.frame.BufferBusAddress = frame.buffer.BusAddress;
      frame.frame.Completion = Ignore;
    }
    USB4_RING* ring = Usb4_ring_alloc(domain.HostInterface, parameters);
    Usb4RingStart(ring);
    return ring;
  }
  static void End(USB4_RING* ring, Frames& frames) {
    USb4RingStop(ring);
    while (KivUsb4RingPoll(ring) != nullptr) {
    }
    const WDFCOMMONBUFFER table = ring->DescriptorTable;
    Usb4RingFree(ring);
    WdfObjectDelete(table);
    for (OneFrame& frame : frames) WdfObjectDelete(frame.buffer.Handle);
  }

  Meeting& meeting_;
  lab::Place place_;
  USB4_RING* transmit_ = nullptr;
  USB4_RING* receive_ = nullptr;
  Frames sent_, received_;
  std::size_t next_ = 0;
};

Bytes Payload(std::size_t size, unsigned first) {
  Bytes bytes(size);
  std::iota(bytes.begin(), bytes.end(), static_cast<std::uint8_t>(first));
  return bytes;
}

void Approve(Meeting& meeting, std::size_t host, const USB4_DMA_HOPS& hops) {
  meeting.WithPeer(host,
                   [&](USB4_XDOMAIN& peer) { EXPECT_EQ(KivUsb4ApproveXdomainPaths(peer.Domain, &peer, hops), 0); });
}

void Disconnect(Meeting& meeting, std::size_t host, const USB4_DMA_HOPS& hops) {
  meeting.WithPeer(host, [&](USB4_XDOMAIN& peer) { KivUsb4DisconnectXdomainPaths(peer.Domain, &peer, hops); });
}

WORLD_TEST(PeerFrames, ArriveWhileBothHostsHaveApprovedTheirPaths) {
  Meeting meeting("a/H1, b/H3");
  meeting.StartAll();
  meeting.Quiet();
  meeting.Plug("a/H1:1 - b/H3:1");
  meeting.Pass(9 * kSecond);
  Rings first(meeting, 0), second(meeting, 1);
  unsigned sent = 0;
  // One frame each way; how many arrived.
  const auto exchange = [&] {
    const Bytes there = Payload(100 + sent, sent), back = Payload(200 + sent, sent + 1);
    ++sent;
    first.Send(there);
    second.Send(back);
    meeting.Pass(50 * kMillisecond);
    const std::vector<Bytes> arrivedThere = second.Take(), arrivedBack = first.Take();
    for (const Bytes& arrived : arrivedThere) EXPECT_EQ(arrived, there);
    for (const Bytes& arrived : arrivedBack) EXPECT_EQ(arrived, back);
    return std::to_string(arrivedThere.size()) + " there, " + std::to_string(arrivedBack.size()) + " back";
  };
  EXPECT_EQ(exchange(), "0 there, 0 back");
  Approve(meeting, 0, kFirst);
  EXPECT_EQ(exchange(), "0 there, 0 back") << "the other host has not approved";
  Approve(meeting, 1, kOther);
  EXPECT_EQ(exchange(), "1 there, 1 back");
  for (const std::size_t size :
       {std::size_t{1}, std::size_t{60}, std::size_t{256}, std::size_t{257}, std::size_t{4095}, std::size_t{4096}}) {
    first.Send(Payload(size, 7));
    meeting.Pass(50 * kMillisecond);
    EXPECT_EQ(second.Take(), std::vector<Bytes>{Payload(size, 7)}) << size << " bytes";
  }
  std::vector<Bytes> many;
  for (unsigned frame = 0; frame < 6; ++frame) {
    many.push_back(Payload(1000 + frame, frame));
    second.Send(many.back());
  }
  meeting.Pass(50 * kMillisecond);
  EXPECT_EQ(first.Take(), many) << "in order";
  Disconnect(meeting, 1, kOther);
  EXPECT_EQ(exchange(), "0 there, 0 back") << "no longer approved by the other host";
  Approve(meeting, 1, kOther);
  EXPECT_EQ(exchange(), "1 there, 1 back");
  meeting.Unplug("a/H1:1");
  meeting.Pass(3 * kSecond);
  EXPECT_EQ(exchange(), "0 there, 0 back");
  meeting.Plug("a/H1:1 - b/H3:1");
  meeting.Pass(9 * kSecond);
  EXPECT_EQ(exchange(), "0 there, 0 back") << "the paths went with the peer";
  first.Free();
  second.Free();
}

}  // namespace
}  // namespace tests
