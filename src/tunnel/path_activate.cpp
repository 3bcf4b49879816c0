// Programming a path into the routers along it, and taking it out again.
#include "tunnel/path_activate.h"

#include "hostif/abort.h"
#include "include/trace.h"
#include "topology/router_access.h"
#include "tunnel/path_access.h"

namespace {

// Nearly three hours. A hop is never abandoned while its router still reports packets in it: they would come out of
// whatever path uses the hop ID next. A router that is gone, or a driver that powers down, fails the read and so ends
// the wait at once.
constexpr std::uint32_t kMostDrainPolls = 100001;
constexpr ULONG kDrainPollMs = 100;

bool Selects(std::uint32_t mask, std::uint32_t hop) {
  return (mask & hop) != 0;
}

// What the path asks of one hop. Ingress settings use kFirstHop on hop 0 and kInnerHops elsewhere; egress settings use
// kLastHop on the last hop and kInnerHops elsewhere.
USB4_PATH_ENTRY EntryOf(const USB4_PATH& path, std::uint32_t index) {
  const USB4_HOP& hop = path.Hops[index];
  const std::uint32_t ingress = index == 0 ? kFirstHop : kInnerHops;
  const std::uint32_t egress = index + 1 == path.HopCount ? kLastHop : kInnerHops;
  USB4_PATH_ENTRY entry;
  entry.Word0.Set<PathCs0::OutputHop>(hop.OutputHopId);
  entry.Word0.Set<PathCs0::OutputAdapter>(hop.OutputAdapter->Number);
  entry.Word0.Set<PathCs0::InitialCredits>(hop.InitialCredits);
  entry.Word0.Set<PathCs0::Valid>(1);
  entry.Word1.Set<PathCs1::Weight>(USB4_PATH::Weight::Get(path.PriorityWeight));
  entry.Word1.Set<PathCs1::Priority>(USB4_PATH::Priority::Get(path.PriorityWeight));
  entry.Word1.Set<PathCs1::DropPackets>(path.DropPackets);
  entry.Word1.Set<PathCs1::CounterIndex>(static_cast<std::uint32_t>(hop.CounterIndex));
  entry.Word1.Set<PathCs1::CounterEnable>(hop.CounterIndex != kNoCounter);
  entry.Word1.Set<PathCs1::IngressFlowControl>(Selects(path.IngressFlowControl, ingress));
  entry.Word1.Set<PathCs1::EgressFlowControl>(Selects(path.EgressFlowControl, egress));
  entry.Word1.Set<PathCs1::IngressSharedBuffering>(Selects(path.IngressSharedBuffering, ingress));
  entry.Word1.Set<PathCs1::EgressSharedBuffering>(Selects(path.EgressSharedBuffering, egress));
  return entry;
}

KIV_RESULT ClearCounters(const USB4_PATH& path) {
  for (std::uint32_t i = path.HopCount; i-- > 0;) {
    const USB4_HOP& hop = path.Hops[i];
    if (hop.CounterIndex == kNoCounter) continue;
    const KIV_RESULT result = KivUsb4PathClearCounter(hop.InputAdapter, static_cast<std::uint32_t>(hop.CounterIndex));
    if (result == kKivOk) continue;
    TraceErrorBy(NAME_OF(KivUsb4PathActivate), "counter not cleared", "path", path.Name, "hop", i, "result",
                 AsResult(result));
    return result;
  }
  return kKivOk;
}

// The hop that failed is taken back too: its record has been changed although its register may not.
KIV_RESULT AddCredits(const USB4_PATH& path) {
  for (std::uint32_t i = path.HopCount; i-- > 0;) {
    const KIV_RESULT result = KivUsb4PortAddNfcCredits(path.Hops[i].InputAdapter, path.NfcCredits);
    if (result == kKivOk) continue;
    TraceErrorBy(NAME_OF(KivUsb4PathActivate), "credits not added", "path", path.Name, "hop", i, "result",
                 AsResult(result));
    __KivUsb4PathDeallocateNfc(&path, i);
    return result;
  }
  return kKivOk;
}

KIV_RESULT WriteEntries(const USB4_PATH& path) {
  for (std::uint32_t i = path.HopCount; i-- > 0;) {
    const USB4_HOP& hop = path.Hops[i];
    const KIV_RESULT result = WritePathEntry(hop.InputAdapter, hop.InputHopId, EntryOf(path, i));
    if (result == kKivOk) continue;
    TraceErrorBy(NAME_OF(KivUsb4PathActivate), "entry not written", "path", path.Name, "hop", i, "result",
                 AsResult(result));
    KivUsb4PathDeactivateHopsFrom(&path, i);
    __KivUsb4PathDeallocateNfc(&path, 0);
    return result;
  }
  return kKivOk;
}

KIV_RESULT ClearFlowControl(const USB4_PORT* adapter, std::uint32_t inputHopId, USB4_PATH_ENTRY entry) {
  entry.Word1.Set<PathCs1::IngressFlowControl>(0);
  entry.Word1.Set<PathCs1::EgressFlowControl>(0);
  entry.Word1.Set<PathCs1::IngressSharedBuffering>(0);
  entry.Word1.Set<PathCs1::EgressSharedBuffering>(0);
  return WritePathEntry(adapter, inputHopId, entry);
}

// `entry` becomes what was read last.
KIV_RESULT WaitUntilDrained(const USB4_PORT* adapter, std::uint32_t inputHopId, USB4_PATH_ENTRY& entry) {
  for (std::uint32_t poll = 0; poll < kMostDrainPolls; ++poll) {
    entry = {};
    const KIV_RESULT result = ReadPathEntry(adapter, inputHopId, entry);
    if (result != kKivOk) return result;
    if (!entry.Word1.IsSet<PathCs1::Pending>()) return kKivOk;
    SleepMs(adapter->Router->Domain, kDrainPollMs);
  }
  return kKivFailed;
}

}  // namespace

KIV_RESULT KivUsb4PathActivate(USB4_PATH* path) {
  _Analysis_assume_lock_held_(path->Owner->PathLock);
  if (path->Active != 0) {
    TraceError("active already", "path", path->Name);
    return kKivFailed;
  }
  TraceStep("activate path", "path", path->Name, "hops", path->HopCount);
  KIV_RESULT result = ClearCounters(*path);
  if (result == kKivOk) result = AddCredits(*path);
  if (result == kKivOk) result = WriteEntries(*path);
  if (result == kKivOk) path->Active = 1;
  return result;
}

void KivUsb4PathDeactivate(USB4_PATH* path) {
  _Analysis_assume_lock_held_(path->Owner->PathLock);
  if (path->Active == 0) return;
  TraceStep("deactivate path", "path", path->Name, "hops", path->HopCount);
  KivUsb4PathDeactivateHopsFrom(path, 0);
  __KivUsb4PathDeallocateNfc(path, 0);
  path->Active = 0;
}

KIV_RESULT __KivUsb4PathDeactivateHop(const USB4_PORT* adapter, std::uint32_t inputHopId, bool clearFlowControl) {
  TraceStep("switch off hop", "adapter", AsAdapter(adapter), "hop", inputHopId);
  USB4_PATH_ENTRY entry;
  KIV_RESULT result = ReadPathEntry(adapter, inputHopId, entry);
  if (result != kKivOk) return result;
  if (!entry.Word0.IsSet<PathCs0::Valid>()) return kKivOk;
  entry.Word0.Set<PathCs0::Valid>(0);
  result = WritePathEntry(adapter, inputHopId, entry);
  if (result == kKivOk) result = WaitUntilDrained(adapter, inputHopId, entry);
  if (result != kKivOk || !clearFlowControl) return result;
  return ClearFlowControl(adapter, inputHopId, entry);
}

void KivUsb4PathDeactivateHopsFrom(const USB4_PATH* path, std::uint32_t firstHop) {
  for (std::uint32_t i = firstHop; i < path->HopCount; ++i) {
    const USB4_HOP& hop = path->Hops[i];
    const KIV_RESULT result = __KivUsb4PathDeactivateHop(hop.InputAdapter, hop.InputHopId, path->ClearFlowControl != 0);
    if (result != kKivOk) TraceError("hop not switched off", "path", path->Name, "hop", i, "result", AsResult(result));
  }
}

void __KivUsb4PathDeallocateNfc(const USB4_PATH* path, std::uint32_t firstHop) {
  for (std::uint32_t i = firstHop; i < path->HopCount; ++i) {
    const KIV_RESULT result = KivUsb4PortAddNfcCredits(path->Hops[i].InputAdapter, -path->NfcCredits);
    if (result != kKivOk) {
      TraceError("credits not given back", "path", path->Name, "hop", i, "result", AsResult(result));
    }
  }
}

KIV_RESULT KivUsb4PathClearCounter(const USB4_PORT* adapter, std::uint32_t counterIndex) {
  return WriteArray<CounterSet>(adapter, std::uint64_t{kCounterSetDwords} * counterIndex, {0, 0, 0});
}
