// Finding programmed paths: walks over path entries from adapter to adapter, which only read.
//
// What an entry says comes from a router that somebody else has programmed: an adapter number that the router does not
// have ends a walk like an entry that cannot be read, and a chain that bites its own tail ends with the hop limit.
#include "tunnel/path_discover.h"

#include "include/trace.h"
#include "tunnel/hop_id.h"
#include "tunnel/path_access.h"

namespace {

constexpr std::uint32_t kMostHops = 14;  // a longer chain is cut
constexpr std::int32_t kFirstProtocolHopId = 8;

// One step along the chain.
struct Step {
  USB4_PORT* Adapter;  // through which the hop is entered, with HopId
  std::uint32_t HopId;
  USB4_PORT* Output;
  std::uint32_t OutputHopId;
};

enum class StepResult { Taken, NotValid, Failed };

// Reads the entry at Adapter and HopId and fills in where it leads.
StepResult Follow(Step& step) {
  USB4_PATH_ENTRY entry;
  if (ReadPathEntry(step.Adapter, step.HopId, entry) != kKivOk) return StepResult::Failed;
  if (!entry.Word0.IsSet<PathCs0::Valid>()) return StepResult::NotValid;
  const USB4_SWITCH* router = step.Adapter->Router;
  const std::uint32_t number = entry.Word0.Get<PathCs0::OutputAdapter>();
  if (number > router->MaximumAdapter()) {
    TraceErrorBy(NAME_OF(KivUsb4PathDiscover), "entry leads to no adapter", "adapter", AsAdapter(step.Adapter), "hop",
                 step.HopId, "output", number);
    return StepResult::Failed;
  }
  step.Output = &router->Adapters[number];
  step.OutputHopId = entry.Word0.Get<PathCs0::OutputHop>();
  return StepResult::Taken;
}

struct Walk {
  StepResult End;      // Taken: the chain ended by itself, or at the hop limit
  std::uint32_t Hops;  // taken
  USB4_PORT* Last;     // the last hop's output, null without hops
  std::uint32_t LastHopId;
};

Walk FollowToTheEnd(const USB4_PATH_END& source) {
  Walk walk = {StepResult::Taken, 0, nullptr, 0};
  Step step = {source.Adapter, static_cast<std::uint32_t>(source.HopId), nullptr, 0};
  while (step.Adapter != nullptr && walk.Hops < kMostHops) {
    walk.End = Follow(step);
    if (walk.End != StepResult::Taken) break;
    ++walk.Hops;
    walk.Last = step.Output;
    walk.LastHopId = step.OutputHopId;
    step.Adapter = step.Output->Remote;
    step.HopId = step.OutputHopId;
  }
  return walk;
}

// The search's source with its hop ID, looked up by the destination if need be; false when it has none.
bool ResolveSource(const USB4_PATH_SEARCH& search, USB4_PATH_END& source) {
  source = search.Source;
  if (source.Adapter == nullptr) return false;
  if (source.HopId >= 0) return true;
  if (search.Destination.Adapter == nullptr) return false;
  source.HopId = KivUsb4PathFindSrcHopid(source.Adapter, search.Destination);
  return source.HopId != 0;
}

void StoreLast(const Walk& walk, USB4_PORT** lastAdapter) {
  if (lastAdapter != nullptr && walk.Last != nullptr) *lastAdapter = walk.Last;
}

USB4_PATH* NewDiscoveredPath(USB4_DOMAIN* owner, const char* name, std::uint32_t hops) {
  USB4_PATH* path = PoolNewArray<USB4_PATH>(1, USB4_PATH::kDiscoveredTag);
  if (path == nullptr) return nullptr;
  path->Discovered = 1;
  path->Name = name;
  path->Owner = owner;
  path->Active = 1;
  path->Hops = PoolNewArray<USB4_HOP>(hops, USB4_PATH::kHopsTag);
  if (path->Hops == nullptr) {
    KivUsb4PathFree(path);
    return nullptr;
  }
  path->HopCount = hops;
  return path;
}

// Reserves both hop IDs of a step, or none.
bool ReserveStep(const Step& step, USB4_HOP& hop) {
  if (KivUsb4PortAllocInHopid(step.Adapter, ExactHopId(static_cast<std::int32_t>(step.HopId))) < 0) return false;
  if (KivUsb4PortAllocOutHopid(step.Output, ExactHopId(static_cast<std::int32_t>(step.OutputHopId))) < 0) {
    KivUsb4PortReleaseInHopid(step.Adapter, step.HopId);
    return false;
  }
  hop = {step.Adapter, step.Output, step.HopId, kNoCounter, step.OutputHopId, 0};
  return true;
}

// The second walk: the same hops once more, reserved and recorded one by one.
bool AdoptHops(USB4_PATH* path, const USB4_PATH_END& source) {
  Step step = {source.Adapter, static_cast<std::uint32_t>(source.HopId), nullptr, 0};
  for (std::uint32_t i = 0; i < path->HopCount; ++i) {
    if (step.Adapter == nullptr || Follow(step) != StepResult::Taken) return false;
    if (!ReserveStep(step, path->Hops[i])) return false;
    step.Adapter = step.Output->Remote;
    step.HopId = step.OutputHopId;
  }
  return true;
}

}  // namespace

USB4_PATH* KivUsb4PathDiscover(const USB4_PATH_SEARCH& search, USB4_PORT** lastAdapter) {
  TraceStep("discover path", "path", search.Name);
  USB4_PATH_END source;
  if (!ResolveSource(search, source)) return nullptr;
  const Walk walk = FollowToTheEnd(source);
  StoreLast(walk, lastAdapter);
  if (walk.End == StepResult::Failed || walk.Hops == 0) return nullptr;
  USB4_PATH* path = NewDiscoveredPath(source.Adapter->Router->Domain, search.Name, walk.Hops);
  if (path == nullptr) return nullptr;
  if (!AdoptHops(path, source)) {
    TraceError("path not adopted", "path", search.Name, "hops", walk.Hops);
    KivUsb4PathFree(path);
    return nullptr;
  }
  TraceInfo("path found", "path", search.Name, "hops", walk.Hops);
  return path;
}

USB4_PORT* KivUsb4PathFindDstPort(const USB4_PATH_END& source, std::int32_t destinationHopId) {
  const Walk walk = FollowToTheEnd(source);
  if (walk.End != StepResult::Taken) return nullptr;
  return static_cast<std::int32_t>(walk.LastHopId) == destinationHopId ? walk.Last : nullptr;
}

std::int32_t KivUsb4PathFindSrcHopid(USB4_PORT* source, const USB4_PATH_END& destination) {
  const AdpCs5::Value cs5(source->Header[AdpCs5::kOffset]);
  const auto highest = static_cast<std::int32_t>(cs5.Get<AdpCs5::MaximumInputHop>());
  for (std::int32_t hopId = kFirstProtocolHopId; hopId <= highest; ++hopId) {
    const USB4_PATH_END start = {source, hopId};
    if (KivUsb4PathFindDstPort(start, destination.HopId) == destination.Adapter) return hopId;
  }
  return 0;
}

bool KivUsb4DiscoverInCompletePath(const USB4_PATH_SEARCH& search, USB4_PORT** lastAdapter) {
  USB4_PATH_END source;
  if (!ResolveSource(search, source)) return false;
  const Walk walk = FollowToTheEnd(source);
  StoreLast(walk, lastAdapter);
  if (walk.End == StepResult::NotValid) {
    TraceWarning("path breaks off", "path", search.Name, "hops", walk.Hops);
  }
  return walk.End == StepResult::NotValid;
}
