// The path entries of an adapter: what they hold after reset, what is wrong with a written one, and draining.
#include "sim/router/adapter.h"
#include "sim/router/router.h"

namespace sim {
namespace {

using enum BitKind;

// Packets on their way leave a switched-off path within this time for each read that they may outlast.
constexpr platform::Time kDrainPerRead = 100 * platform::kMillisecond;

constexpr RegisterRules kPathWord0{{31, 0, ReadWrite}, {30, 25, ReservedZero}};
constexpr RegisterRules kPathWord1{{27, 0, ReadWrite}, {7, 4, ReservedZero}, {28, 28, Status}, {31, 29, ReservedZero}};
// The entry that carries control packets belongs to the hardware.
constexpr RegisterRules kControlEntry{{31, 0, Preserve}};

// What unused entries hold after reset.
PathEntry UnusedEntry(std::uint32_t type, unsigned hop) {
  if (type == kTypeHostInterface) return {0x00200000, 0x05000000};
  if ((type == kTypePcieDown || type == kTypePcieUp) && hop == 8) return {0x000E0000, 0x01000000};
  if ((type == kTypeDpIn || type == kTypeDpOut) && hop == 8) return {0x00060000, 0x01000000};
  if ((type == kTypeDpIn || type == kTypeDpOut) && hop == 9) return {0x001A0000, 0};
  return {0, 0};
}

}  // namespace

void Adapter::DefinePaths() {
  if (model_.type == kTypeInactive) return;
  for (unsigned hop = 0; hop <= model_.hop; ++hop) {
    PathEntry entry = UnusedEntry(model_.type, hop);
    const bool control = isControlEntry(hop);
    if (control) entry = {0x80040000 | model_.number, 0x21000001};
    pathSpace_.Define(2 * hop, entry.word0, control ? kControlEntry : kPathWord0);
    pathSpace_.Define(2 * hop + 1, entry.word1, control ? kControlEntry : kPathWord1);
    if (!control) WatchPathEntry(hop);
  }
}

bool Adapter::isControlEntry(unsigned hop) const {
  return hop == 0 && (model_.type == kTypeLane || model_.type == kTypeHostInterface);
}

PathEntry Adapter::pathEntry(unsigned hop) const {
  return {pathSpace_.Get(2 * hop), pathSpace_.Get(2 * hop + 1)};
}

void Adapter::SetPathEntry(unsigned hop, const PathEntry& entry) {
  pathSpace_.Set(2 * hop, entry.word0);
  pathSpace_.Set(2 * hop + 1, entry.word1);
}

// A path that is switched off stays pending until what is on its way has drained.
void Adapter::WatchPathEntry(unsigned hop) {
  const unsigned word1 = 2 * hop + 1;
  pathSpace_.OnWrite(2 * hop, [this, hop, word1](const ConfigSpace::Access& access) {
    if ((access.now & kPathValid) != 0) {
      CheckValidEntry(hop);
      StopDraining(hop);
    } else if ((access.old & kPathValid) != 0) {
      const unsigned reads = router_.fabric().timing().DrawCount("sim.path.pending", 1, 0, 20);
      draining_[hop] = {reads, router_.fabric().simulation().Now() + kDrainPerRead * static_cast<int>(reads)};
      pathSpace_.SetBits(word1, kPathPending, kPathPending);
    }
  });
  pathSpace_.OnRead(word1, [this, hop, word1](std::uint32_t stored) {
    auto draining = draining_.find(hop);
    if (draining == draining_.end()) return stored;
    if (router_.fabric().simulation().faults().Fires("path.never-drains")) return stored;
    const bool early = router_.fabric().simulation().Now() < draining->second.until;
    if (early && draining->second.reads-- > 0) return stored;
    StopDraining(hop);
    return pathSpace_.Get(word1);
  });
}

void Adapter::StopDraining(unsigned hop) {
  if (draining_.erase(hop) != 0) pathSpace_.SetBits(2 * hop + 1, kPathPending, 0);
}

void Adapter::Drain() {
  while (!draining_.empty()) StopDraining(draining_.begin()->first);
}

bool Adapter::pathPending(unsigned hop) const {
  auto draining = draining_.find(hop);
  return draining != draining_.end() && router_.fabric().simulation().Now() < draining->second.until;
}

// A manager whose wait for an entry was cut short by a lost packet cannot know that it is still busy.
void Adapter::CheckValidEntry(unsigned hop) {
  const PathEntry entry = pathEntry(hop);
  const Adapter* out = router_.adapter(entry.outAdapter());
  const auto complain = [&](Complaint rule, ComplaintArguments arguments) {
    arguments.hop = hop;
    router_.Misuse(number(), rule, std::move(arguments));
  };
  if (hop < kFirstPathHop && model_.type != kTypeHostInterface) {
    complain(Complaint::EntryReserved, {.limit = kFirstPathHop});
  }
  if (pathPending(hop) && !router_.fabric().simulation().faults().Fired()) complain(Complaint::EntryPending, {});
  if (entry.counts() && entry.counter() >= model_.counterSets) {
    complain(Complaint::EntryCounter, {.index = entry.counter(), .limit = model_.counterSets});
  }
  if (out == nullptr || !out->implemented()) {
    complain(Complaint::EntryAdapter, {.index = entry.outAdapter()});
  } else if (entry.outHop() > out->model().hop) {
    complain(Complaint::EntryHopLimit, {.index = entry.outHop(), .limit = out->model().hop, .other = out->Name()});
  } else if (entry.outHop() < kFirstPathHop && out->type() != kTypeHostInterface) {
    complain(Complaint::EntryHopReserved, {.index = entry.outHop(), .other = out->Name()});
  }
}

}  // namespace sim
