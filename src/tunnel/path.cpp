// The way between two adapters, and path records along it.
#include "tunnel/path.h"

#include "include/domain_record.h"
#include "include/locks.h"
#include "include/trace.h"
#include "topology/router_queries.h"
#include "tunnel/hop_id.h"

namespace {

// Paths to a peer are built without the run lock.
USB4_PORT* RemoteOf(const USB4_PORT* adapter) {
  const SpinLockGuard guard(adapter->Router->Domain->TopologyLock);
  return adapter->Remote;
}

// The previous adapter's router lies on the way down to the destination's.
USB4_PORT* TowardsLeaf(const USB4_PORT* previous, const USB4_SWITCH* destination) {
  USB4_PORT* next = KivUsb4SwitchPortForRoute(previous->Router, KivUsb4SwitchRoute(destination));
  if (next == nullptr) return next;
  const bool atLink = next == previous || next->DualLinkPartner == previous;
  USB4_PORT* remote = atLink ? RemoteOf(previous) : nullptr;
  return remote == nullptr ? next : remote;
}

USB4_PORT* TowardsHost(const USB4_PORT* previous) {
  if (KivUsb4PortIsUpstream(previous)) return RemoteOf(previous);
  USB4_PORT* upstream = KivUsb4SwitchUpstreamPort(previous->Router);
  USB4_PORT* partner = upstream->DualLinkPartner;
  return partner != nullptr && upstream->IsSecondLane() != previous->IsSecondLane() ? partner : upstream;
}

// 0 when the way does not lead from the source to the destination.
std::uint32_t CountHops(const USB4_ENDS& ends) {
  std::uint32_t adapters = 0;
  const USB4_PORT* last = nullptr;
  for (const USB4_PORT* next = KivUsb4NextPortOnPath(ends, nullptr); next != nullptr;
       next = KivUsb4NextPortOnPath(ends, next)) {
    last = next;
    ++adapters;
  }
  return last == ends.Destination ? adapters / 2 : 0;
}

std::uint32_t LinkNumberOf(const USB4_PORT* adapter) {
  return adapter->IsSecondLane() ? 1 : 0;
}

bool IsOtherSingleLane(const USB4_PORT* adapter, std::uint32_t linkNumber) {
  return adapter->Bonded == 0 && LinkNumberOf(adapter) != linkNumber;
}

USB4_PORT* InputLane(USB4_PORT* input, std::uint32_t linkNumber) {
  if (input->DualLinkPartner == nullptr) return input;
  return IsOtherSingleLane(input, linkNumber) ? input->DualLinkPartner : input;
}

// A bonded link carries everything on its first lane.
USB4_PORT* OutputLane(USB4_PORT* output, const USB4_PORT* input, std::uint32_t linkNumber) {
  if (output->DualLinkPartner == nullptr) return output;
  const bool fromSingleToSecond = input->Bonded == 0 && output->Bonded != 0 && LinkNumberOf(output) == 1;
  return fromSingleToSecond || IsOtherSingleLane(output, linkNumber) ? output->DualLinkPartner : output;
}

// Finds and reserves hop `index`, the ones before it being filled. What is reserved stands in the record at once, so
// that freeing the path gives it back.
bool FillHop(USB4_PATH* path, const USB4_PATH_REQUEST& request, std::uint32_t index) {
  const USB4_ENDS ends = {request.Source.Adapter, request.Destination.Adapter};
  const bool last = index + 1 == path->HopCount;
  const USB4_HOP* previous = index == 0 ? nullptr : &path->Hops[index - 1];
  USB4_HOP& hop = path->Hops[index];
  hop.InputHopId = previous == nullptr ? static_cast<std::uint32_t>(request.Source.HopId) : previous->OutputHopId;
  hop.CounterIndex = kNoCounter;

  USB4_PORT* input = KivUsb4NextPortOnPath(ends, previous == nullptr ? nullptr : previous->OutputAdapter);
  if (input == nullptr) return false;
  input = InputLane(input, request.LinkNumber);
  if (KivUsb4PortAllocInHopid(input, ExactHopId(static_cast<std::int32_t>(hop.InputHopId))) < 0) return false;
  hop.InputAdapter = input;

  USB4_PORT* output = KivUsb4NextPortOnPath(ends, input);
  if (output == nullptr) return false;
  output = OutputLane(output, input, request.LinkNumber);
  const USB4_HOP_ID_RANGE range = last ? ExactHopId(request.Destination.HopId) : kAnyHopId;
  const std::int32_t outputHopId = KivUsb4PortAllocOutHopid(output, range);
  if (outputHopId < 0) return false;
  hop.OutputAdapter = output;
  hop.OutputHopId = static_cast<std::uint32_t>(outputHopId);
  // On a link whose second lane leads nowhere the way turns back on itself and never arrives.
  return !last || output == ends.Destination;
}

bool FillHops(USB4_PATH* path, const USB4_PATH_REQUEST& request) {
  for (std::uint32_t i = 0; i < path->HopCount; ++i) {
    if (!FillHop(path, request, i)) return false;
  }
  return true;
}

}  // namespace

USB4_PORT* KivUsb4NextPortOnPath(const USB4_ENDS& ends, const USB4_PORT* previous) {
  if (previous == nullptr) return ends.Source;
  const USB4_SWITCH* target = ends.Destination->Router;
  if (previous->Router == target) return previous == ends.Destination ? nullptr : ends.Destination;
  const bool downwards = KivUsb4SwitchRouteMatches(previous->Router, target);
  USB4_PORT* next = downwards ? TowardsLeaf(previous, target) : TowardsHost(previous);
  return next == previous ? nullptr : next;
}

USB4_PATH* KivUsb4PathAlloc(USB4_DOMAIN* owner, const USB4_PATH_REQUEST& request) {
  const USB4_ENDS ends = {request.Source.Adapter, request.Destination.Adapter};
  if (ends.Source == nullptr || ends.Destination == nullptr) return nullptr;
  if (request.Source.HopId < 0 || request.Destination.HopId < 0) return nullptr;
  PoolPtr<USB4_PATH> path = PoolPtr<USB4_PATH>::New();
  if (!path) return nullptr;
  const std::uint32_t hops = CountHops(ends);
  if (hops == 0) {
    TraceError("no route between adapters", "path", request.Name, "from", AsAdapter(ends.Source), "to",
               AsAdapter(ends.Destination));
    return nullptr;
  }
  path->Hops = PoolNewArray<USB4_HOP>(hops, USB4_PATH::kHopsTag);
  if (path->Hops == nullptr) return nullptr;
  path->HopCount = hops;
  path->Owner = owner;
  path->Name = request.Name;
  if (!FillHops(path.Get(), request)) {
    TraceError("path not built", "path", request.Name, "hops", hops);
    KivUsb4PathFree(path.Release());
    return nullptr;
  }
  return path.Release();
}

void KivUsb4PathFree(USB4_PATH* path) {
  if (path == nullptr) return;
  for (std::uint32_t i = 0; i < path->HopCount; ++i) {
    const USB4_HOP& hop = path->Hops[i];
    if (hop.InputAdapter != nullptr) KivUsb4PortReleaseInHopid(hop.InputAdapter, hop.InputHopId);
    if (hop.OutputAdapter != nullptr) KivUsb4PortReleaseOutHopid(hop.OutputAdapter, hop.OutputHopId);
  }
  PoolDeleteArray(path->Hops, USB4_PATH::kHopsTag);
  PoolDeleteArray(path, path->Discovered != 0 ? USB4_PATH::kDiscoveredTag : USB4_PATH::kPoolTag);
}
