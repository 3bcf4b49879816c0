// Router operations of a USB4 router.
#include "sim/router/router_operations.h"

#include "sim/router/router.h"

namespace sim {
namespace {

using enum BitKind;

constexpr DelayRange kBusy{"sim.router.operation", kMs / 2, kMs / 10, 3 * kMs};
constexpr platform::Time kSlow = 350 * kMs;

constexpr unsigned kFirstDataDword = 9;
constexpr unsigned kDataDwords = 16;
constexpr unsigned kMetadata = 25;
constexpr unsigned kControl = 26;
constexpr std::uint32_t kStart = 1u << 31;
constexpr std::uint32_t kNotSupported = 1u << 30;

constexpr std::uint16_t kQueryDisplay = 0x10;
constexpr std::uint16_t kAllocateDisplay = 0x11;
constexpr std::uint16_t kReleaseDisplay = 0x12;
constexpr std::uint16_t kReadDrom = 0x24;

}  // namespace

void RouterOperations::Define() {
  ConfigSpace& space = router_.space();
  for (unsigned i = 0; i < kDataDwords; ++i) space.Define(kFirstDataDword + i, 0, kAllReadWrite);
  space.Define(kMetadata, 0, kAllReadWrite);
  space.Define(kControl, 0, {{31, 0, ReservedZero}, {15, 0, ReadWrite}, {31, 24, ReadWrite}});
  space.OnWrite(kControl, [this](const ConfigSpace::Access& access) {
    if ((access.now & kStart) != 0) Start(access.now);
  });
}

void RouterOperations::Start(std::uint32_t control) {
  const auto opcode = static_cast<std::uint16_t>(control);
  if (busy_) {
    // A manager whose answer got lost asks again.
    if (opcode != running_) router_.Misuse(0, Complaint::OperationBusy, {.value = opcode, .expected = running_});
    return;
  }
  Surroundings& fabric = router_.fabric();
  busy_ = true;
  running_ = opcode;
  metadata_ = router_.space().Get(kMetadata);  // a manager that gives up may write the next one while this one runs
  if (fabric.simulation().faults().Fires("router.operation-stuck")) return;
  const bool slow = fabric.simulation().faults().Fires("router.operation-slow");
  const platform::Time time = slow ? kSlow : fabric.timing().Draw(kBusy);
  fabric.simulation().After(time, "router operation", [this, opcode, life = router_.life()] {
    if (life != router_.life()) return;
    busy_ = false;
    const Outcome outcome = Run(opcode);
    const std::uint32_t status =
        outcome.supported ? static_cast<std::uint32_t>(outcome.result & 0x3F) << 24 : kNotSupported;
    router_.space().Set(kControl, opcode | status);
  });
}

RouterOperations::Outcome RouterOperations::Run(std::uint16_t opcode) {
  if (refused_.contains(opcode) || router_.fabric().simulation().faults().Fires("router.operation-refused")) {
    return {.supported = false};
  }
  if (forcedResult_ != 0) return {.result = forcedResult_};
  if (const std::uint8_t result = opcodeResults_[opcode]; result != 0) return {.result = result};
  if (opcode == kReadDrom) return ReadDrom();
  if (opcode == kQueryDisplay || opcode == kAllocateDisplay || opcode == kReleaseDisplay) {
    return DisplayResource(opcode);
  }
  return {.supported = false};
}

// Metadata: dword address in bits 14:2, count in bits 19:15.
RouterOperations::Outcome RouterOperations::ReadDrom() {
  if (drom_.empty()) return {.supported = false};
  const std::uint32_t metadata = metadata_;
  const std::uint32_t address = metadata & 0x7FFC;
  const std::uint32_t count = (metadata >> 15) & 0x1F;
  if (count == 0 || count > kDataDwords || (metadata & ~0xFFFFCu) != 0) {
    router_.Misuse(0, Complaint::DromMetadata, {.value = metadata});
    return {.result = 1};
  }
  for (unsigned i = 0; i < count; ++i) {
    std::uint32_t word = 0;
    for (unsigned byte = 0; byte < 4; ++byte) {
      const std::size_t at = address + 4 * i + byte;
      if (at < drom_.size()) word |= static_cast<std::uint32_t>(drom_[at]) << (8 * byte);
    }
    router_.space().Set(kFirstDataDword + i, word);
  }
  return {};
}

// A source that drives as many displays as the model says; the metadata names the DP IN adapter.
RouterOperations::Outcome RouterOperations::DisplayResource(std::uint16_t opcode) {
  if (router_.model().dpInResources == 0) return {.supported = false};
  const unsigned number = metadata_;
  const Adapter* adapter = router_.adapter(number);
  if (adapter == nullptr || adapter->type() != kTypeDpIn) {
    router_.Misuse(0, Complaint::DisplayResource, {.index = number});
    return {.result = 1};
  }
  if (opcode == kReleaseDisplay) {
    dpReservations_.erase(number);
    return {};
  }
  const bool free = !dpReservations_.contains(number) && dpReservations_.size() < router_.model().dpInResources;
  if (free && opcode == kAllocateDisplay) dpReservations_.insert(number);
  return {.result = static_cast<std::uint8_t>(free ? 0 : 1)};
}

}  // namespace sim
