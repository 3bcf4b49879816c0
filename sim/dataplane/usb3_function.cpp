// USB3 adapters.
#include "sim/dataplane/usb3_function.h"

#include "sim/dataplane/path_probe.h"
#include "sim/dataplane/protocol_adapters.h"
#include "sim/router/adapter.h"
#include "sim/router/router.h"

namespace sim {
namespace {

constexpr DelayRange kAcknowledge{"sim.usb3.acknowledge", 1 * kMs, 1 * kMs / 10, 40 * kMs};

constexpr std::uint32_t kEnable = 1u << 31;        // dword 0
constexpr std::uint32_t kAcknowledged = 1u << 31;  // dword 1
constexpr std::uint32_t kRequest = 1u << 31;       // dword 2
constexpr std::uint32_t kAllocation = 0xFFFFFF;    // dword 2
constexpr std::uint32_t kBandwidth = 0xFFFFFF;     // dword 1
constexpr std::uint32_t kScale = 0x3F;             // dword 3
constexpr std::uint32_t kActualRate = 0xFF;        // dword 4: code, bit 7 valid
constexpr std::uint32_t kActualValid = 0x80;
constexpr std::uint32_t kMaxRate = 0x7Fu << 12;
constexpr unsigned kFastMbps = 20000;
constexpr unsigned kSlowMbps = 10000;
constexpr unsigned kPathHop = 8;

std::uint64_t UnitBits(unsigned scale) {
  return std::uint64_t{512} << (scale & 31);
}

unsigned Mbps(unsigned units, unsigned scale) {
  return static_cast<unsigned>((units * UnitBits(scale) * 8000 + 500000) / 1000000);
}

unsigned RateOf(std::uint32_t code) {
  return code == 1 ? kFastMbps : kSlowMbps;
}

std::uint32_t CodeOf(unsigned mbps) {
  return mbps == kFastMbps ? 1 : 0;
}

unsigned MaxRate(const Adapter& adapter) {
  return RateOf((adapter.space().Get(adapter.protocolCapability + 4) & kMaxRate) >> 12);
}

// The link of USB devices through a tunnel runs once packets arrive both ways.
unsigned TunnelledRate(Adapter& adapter) {
  if (adapter.usb3.actualRateMbps) return *adapter.usb3.actualRateMbps;
  Adapter* far = Probe(adapter, kPathHop).arrived;
  if (far == nullptr || !far->isUsb3() || Probe(*far, kPathHop).arrived != &adapter) return 0;
  return std::min(MaxRate(adapter), MaxRate(*far));
}

std::uint32_t ShowActualRate(Adapter& adapter) {
  const unsigned rate = TunnelledRate(adapter);
  const unsigned at = adapter.protocolCapability + 4;
  adapter.space().SetBits(at, kActualRate, rate == 0 ? 0 : kActualValid | CodeOf(rate));
  return adapter.space().Get(at);
}

void RequestWritten(Adapter& adapter) {
  if (adapter.usb3.refusesRequests) return;
  if (adapter.router().fabric().simulation().faults().Fires("usb3.no-acknowledge")) return;
  const auto delay = adapter.usb3.ackDelay;
  Later(adapter, delay ? *delay : adapter.router().fabric().timing().Draw(kAcknowledge), "USB3 acknowledge",
        [&adapter, at = adapter.protocolCapability] {
          const bool asked = (adapter.space().Get(at + 2) & kRequest) != 0;
          adapter.space().SetBits(at + 1, kAcknowledged, asked ? kAcknowledged : 0);
        });
}

}  // namespace

unsigned Usb3Units(unsigned mbps, unsigned scale) {
  const std::uint64_t bits = std::uint64_t{mbps} * 125;  // in 125 us
  return static_cast<unsigned>((bits + UnitBits(scale) - 1) / UnitBits(scale));
}

void WatchUsb3(Adapter& adapter) {
  const unsigned at = adapter.protocolCapability;
  adapter.space().OnWrite(at + 2, [&adapter, at](const ConfigSpace::Access& access) {
    const bool held = (adapter.space().Get(at + 1) & kAcknowledged) != 0 && (access.old & kRequest) != 0;
    // A packet that comes late or twice is not the manager's mistake.
    const bool disturbed = adapter.router().fabric().simulation().faults().Fired();
    if (((access.old ^ access.now) & kAllocation) != 0 && !held && !disturbed) {
      adapter.router().Misuse(adapter.number(), Complaint::Usb3Consent, {.value = access.now & kAllocation});
    }
    // An adapter that owes an answer is asked anew by every write.
    const bool acknowledged = (adapter.space().Get(at + 1) & kAcknowledged) != 0;
    if (((access.now & kRequest) != 0) != acknowledged || ((access.old ^ access.now) & kRequest) != 0) {
      RequestWritten(adapter);
    }
  });
  adapter.space().OnRead(at + 4, [&adapter](std::uint32_t) { return ShowActualRate(adapter); });
}

void RestoreUsb3(Adapter& adapter) {
  ConfigSpace& space = adapter.space();
  const unsigned at = adapter.protocolCapability;
  const Usb3Facts& facts = adapter.usb3;
  const unsigned scale = facts.scale.value_or(adapter.model().usb3Scale);
  space.SetBits(at + 3, kScale, scale);
  space.SetBits(at + 4, kMaxRate, CodeOf(facts.maxRateMbps.value_or(adapter.model().usb3RateMbps)) << 12);
  space.SetBits(
      at + 1, kBandwidth,
      (Usb3Units(facts.consumed.downMbps, scale) & 0xFFF) << 12 | (Usb3Units(facts.consumed.upMbps, scale) & 0xFFF));
}

void SetUsb3Facts(Adapter& adapter, const Usb3Facts& facts) {
  adapter.usb3 = facts;
  RestoreUsb3(adapter);
}

Usb3Book ReadUsb3(const Adapter& adapter) {
  auto word = [&adapter](unsigned n) { return adapter.space().Get(adapter.protocolCapability + n); };
  Usb3Book book;
  book.enabled = (word(0) & kEnable) != 0;
  book.requested = (word(2) & kRequest) != 0;
  book.acknowledged = (word(1) & kAcknowledged) != 0;
  book.scale = word(3) & kScale;
  book.allocatedUpUnits = word(2) & 0xFFF;
  book.allocatedDownUnits = (word(2) >> 12) & 0xFFF;
  book.allocated = {Mbps(book.allocatedUpUnits, book.scale), Mbps(book.allocatedDownUnits, book.scale)};
  book.consumed = {Mbps(word(1) & 0xFFF, book.scale), Mbps((word(1) >> 12) & 0xFFF, book.scale)};
  book.maxRateMbps = MaxRate(adapter);
  book.actualRateMbps = (word(4) & kActualValid) == 0 ? 0 : RateOf(word(4) & 0x7F);
  return book;
}

}  // namespace sim
