// What runs inside a router beside its registers.
#include "sim/router/router_services.h"

#include "sim/router/adapter.h"
#include "sim/router/router.h"

namespace sim {
namespace {

constexpr DelayRange kPosting{"sim.tmu.posting", 15 * kMs, 1 * kMs, 120 * kMs};
constexpr unsigned kPostLocalTime = 22;  // two dwords
constexpr unsigned kPostTime = 24;       // two dwords
constexpr unsigned kEepromLines = 4;     // of the plug-events capability
constexpr unsigned kDromOffset = 12;
constexpr unsigned kSinks = 16;  // of the link controller capability
constexpr unsigned kBlockAttributes = 141;
constexpr unsigned kBlockControl = 150;
constexpr std::uint32_t kBondingPossible = 1u << 12;
constexpr std::uint32_t kEnterSleepBit = 1u << 31;

}  // namespace

void RouterServices::Define() {
  Reset();
  if (tmuCapability != 0) DefineTmu();
  if (plugEventsCapability != 0) DefineEeprom();
  if (linkControllerCapability != 0) WatchSinks();
}

// A manager knows two states, free and its own.
void RouterServices::WatchSinks() {
  router_.space().OnWrite(linkControllerCapability + kSinks, [this](const ConfigSpace::Access& access) {
    for (unsigned sink = 0; sink < 2; ++sink) {
      const std::uint32_t mask = 0xFu << (4 * sink);
      if (((access.old ^ access.now) & mask) == 0) continue;
      const std::uint32_t state = (access.now & mask) >> (4 * sink);
      if (state > 1) router_.Misuse(0, Complaint::SinkState, {.value = state, .index = sink});
    }
  });
}

// Each router's clock starts somewhere else: a manager that does not post the time is seen.
void RouterServices::Reset() {
  posted_ = false;
  const auto spread = static_cast<std::int64_t>(platform::HashText(router_.name()) % 1'000'000'000'000);
  clockOffset_ = router_.isHost() ? 0 : spread;
}

std::uint64_t RouterServices::LocalTime() const {
  return static_cast<std::uint64_t>(router_.fabric().simulation().Now() * 100 + clockOffset_);
}

void RouterServices::DefineTmu() {
  ConfigSpace& space = router_.space();
  space.OnRead(tmuCapability + 1, [this](std::uint32_t) { return static_cast<std::uint32_t>(LocalTime() << 16); });
  space.OnRead(tmuCapability + 2, [this](std::uint32_t) { return static_cast<std::uint32_t>(LocalTime() >> 16); });
  space.OnRead(tmuCapability + 3, [this](std::uint32_t stored) {
    return (stored & 0xFFFF0000) | static_cast<std::uint32_t>(LocalTime() >> 48);
  });
  space.OnWrite(tmuCapability + kPostTime + 1, [this](const ConfigSpace::Access&) { PostTimeWritten(); });
}

void RouterServices::DefineEeprom() {
  const unsigned lines = plugEventsCapability + kEepromLines;
  router_.space().OnWrite(lines, [this, lines](const ConfigSpace::Access& access) {
    const bool high = eeprom_.Lines(access.old, access.now);
    router_.space().SetBits(lines, Eeprom::kDataOut, high ? Eeprom::kDataOut : 0);
  });
}

void RouterServices::SetDrom(const std::vector<std::uint8_t>& image) {
  if (plugEventsCapability == 0) return;
  std::vector<std::uint8_t> content(router_.space().Get(plugEventsCapability + kDromOffset), 0xFF);
  content.insert(content.end(), image.begin(), image.end());
  eeprom_.SetContent(std::move(content));
}

void RouterServices::PostTimeWritten() {
  ConfigSpace& space = router_.space();
  const unsigned at = tmuCapability + kPostTime;
  if ((space.Get(at) | space.Get(at + 1)) == 0) return;
  Surroundings& fabric = router_.fabric();
  if (fabric.simulation().faults().Fires("tmu.never-posts")) return;
  const platform::Time time = postingTime_ >= 0 ? postingTime_ : fabric.timing().Draw(kPosting);
  fabric.simulation().After(time, "time posting", [this, at, life = router_.life()] {
    if (life != router_.life()) return;
    ConfigSpace& registers = router_.space();
    const unsigned from = tmuCapability + kPostLocalTime;
    const std::uint64_t time64 = static_cast<std::uint64_t>(registers.Get(from + 1)) << 32 | registers.Get(from);
    clockOffset_ = static_cast<std::int64_t>(time64) - router_.fabric().simulation().Now() * 100;
    posted_ = true;
    registers.Set(at, 0);
    registers.Set(at + 1, 0);
  });
}

unsigned RouterServices::PortBlock(unsigned index) const {
  const std::uint32_t descriptor = router_.space().Get(linkControllerCapability + 2);
  if (linkControllerCapability == 0 || index >= (descriptor & 0xF)) return 0;
  return linkControllerCapability + ((descriptor >> 8) & 0xFF) + index * ((descriptor >> 16) & 0xFFF);
}

void RouterServices::ShowBondingPossible(const Adapter& port, bool possible) {
  const unsigned block = PortBlock((port.number() - 1) / 2);
  if (block != 0) router_.space().SetBits(block + kBlockAttributes, kBondingPossible, possible ? kBondingPossible : 0);
}

// A router without a link controller has no say in it and follows its host.
bool RouterServices::sleepArmed() const {
  for (unsigned index = 0; PortBlock(index) != 0; ++index) {
    if ((router_.space().Get(PortBlock(index) + kBlockControl) & kEnterSleepBit) == 0) return false;
  }
  return true;
}

void RouterServices::ClearSleep() {
  for (unsigned index = 0; PortBlock(index) != 0; ++index) {
    router_.space().SetBits(PortBlock(index) + kBlockControl, kEnterSleepBit, 0);
  }
}

unsigned RouterServices::sinkState(unsigned sink) const {
  if (linkControllerCapability == 0) return 0;
  return (router_.space().Get(linkControllerCapability + kSinks) >> (4 * sink)) & 0xF;
}

void RouterServices::SetSinkState(unsigned sink, unsigned state) {
  router_.space().SetBits(linkControllerCapability + kSinks, 0xFu << (4 * sink), state << (4 * sink));
}

std::uint32_t RouterServices::PortControl(const Adapter& port) const {
  const unsigned block = PortBlock((port.number() - 1) / 2);
  return block == 0 ? 0 : router_.space().Get(block + kBlockControl);
}

}  // namespace sim
