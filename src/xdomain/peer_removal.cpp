// The end of a peer.
#include "xdomain/peer_removal.h"

#include "hostif/upcalls.h"
#include "hostif/work_items.h"
#include "include/device_context.h"
#include "include/domain_record.h"
#include "include/locks.h"
#include "include/trace.h"
#include "topology/upcalls.h"
#include "xdomain/peer.h"
#include "xdomain/peer_state.h"
#include "xdomain/upcalls.h"

namespace {

using ReapList = ListView<USB4_XDOMAIN, offsetof(USB4_XDOMAIN, ReapLink), By<LockPlace::Topology>>;

USB4_XDOMAIN* TakePeerToReap(DEVICE_EXTENSION* context) {
  const SpinLockGuard guard(context->Domain->TopologyLock);
  return ReapList(context->ReapListHead).TakeFirst();
}

}  // namespace

bool ClosePeer(USB4_XDOMAIN* xdomain) {
  const SpinLockGuard guard(xdomain->Domain->TopologyLock);
  if (xdomain->Closing.IsSet()) return false;
  xdomain->Closing.Set(true);
  return true;
}

void LetGoOfPeer(USB4_XDOMAIN* xdomain) {
  USB4_DOMAIN* domain = xdomain->Domain;
  DEVICE_EXTENSION* context = ContextOf(xdomain->Domain);
  {
    const MutexGuard guard(context->XDomainMutex);
    if (domain->PluggedEthernetControllers != 0) {
      // A child that is gone already is as good.
      IgnoreResult(KivUsb4UnplugEthernetController(domain, xdomain->EthernetControllerIndex));
    }
    {
      const SpinLockGuard topology(domain->TopologyLock);
      USB4_PORT* facing = xdomain->FacingAdapter;
      if (facing != nullptr && facing->XDomain == xdomain) facing->XDomain = nullptr;
    }
    LeaveDevice(context, xdomain);
    TraceInfo("peer gone", "name", xdomain->Info.Name);
  }
  ReleasePeer(xdomain);
}

void KivUsb4XdomainRemove(USB4_XDOMAIN* xdomain) {
  if (!ClosePeer(xdomain)) return;
  TraceStep("remove peer", "name", xdomain->Info.Name);
  StopInterDomainHandshake(xdomain);
  const MutexGuard guard(ContextOf(xdomain->Domain)->XDomainMutex);
  EndPeerDataPath(xdomain);
  LetGoOfPeer(xdomain);
}

void RemovePeerLater(USB4_XDOMAIN* xdomain) {
  DEVICE_EXTENSION* context = ContextOf(xdomain->Domain);
  if (context->ReaperWorkItem == nullptr) return;  // it goes with its cable
  {
    const SpinLockGuard guard(xdomain->Domain->TopologyLock);
    if (xdomain->Closing.IsSet() || xdomain->IsToBeReaped != 0) return;
    xdomain->IsToBeReaped = 1;
    ReferencePeer(xdomain);
    ReapList(context->ReapListHead).Append(*xdomain);
  }
  // Never refused: this kind may be queued at any time.
  IgnoreResult(
      KivUsb4QueueXDomainGenericWorkItemData(context->ReaperWorkItem, context, nullptr, KIV_WORK_UNCONDITIONAL));
}

void ReapPeers(WDFWORKITEM workItem) {
  const KIV_USB4_WORKER_ITEM_CONTEXT* itemContext = WorkItemContextOf(workItem);
  auto* context = itemContext == nullptr ? nullptr : static_cast<DEVICE_EXTENSION*>(itemContext->Owner);
  if (context == nullptr || context->Domain == nullptr) return;
  while (USB4_XDOMAIN* xdomain = TakePeerToReap(context)) {
    KivUsb4XdomainRemove(xdomain);
    ReleasePeer(xdomain);
  }
}
