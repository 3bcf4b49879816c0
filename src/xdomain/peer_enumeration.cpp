// UUID and properties of a peer, and what follows from them.
#include "xdomain/peer_enumeration.h"

#include <cstring>
#include <utility>

#include "hostif/abort.h"
#include "include/domain_record.h"
#include "include/locks.h"
#include "include/trace.h"
#include "include/wait.h"
#include "topology/link.h"
#include "xdomain/mac_address.h"
#include "xdomain/peer.h"
#include "xdomain/peer_bonding.h"
#include "xdomain/peer_properties.h"
#include "xdomain/peer_request.h"
#include "xdomain/peer_state.h"
#include "xdomain/properties_transfer.h"
#include "xdomain/property_block.h"
#include "xdomain/property_tree.h"
#include "xdomain/upcalls.h"

namespace {

constexpr ULONG kLaneSettleMs = 1000;
constexpr ULONG kNetworkDeviceMs = 5000;

bool UuidsMatch(const std::uint8_t* first, const std::uint8_t* second) {
  return std::memcmp(first, second, kUuidBytes) == 0;
}

KIV_RESULT KeepUuid(USB4_XDOMAIN* xdomain, const std::uint8_t (&uuid)[kUuidBytes]) {
  std::uint8_t* copy = PoolNewArray<std::uint8_t>(kUuidBytes, kUuidTag);
  if (copy == nullptr) return kKivNoMemory;
  std::memcpy(copy, uuid, kUuidBytes);
  xdomain->PeerUuid = copy;
  return kKivOk;
}

// Takes the tree over when it is good, and is newer than what there is.
KIV_RESULT UseBlock(USB4_XDOMAIN* xdomain, const USB4_PEER_BLOCK& block, std::uint32_t words, bool* isFirst) {
  const MutexGuard guard(xdomain->Lock);
  *isFirst = false;
  if (xdomain->PeerProperties != nullptr && block.Generation <= xdomain->PeerGeneration) return kKivOk;
  USB4_PROPERTY_DIR* root = KivUsb4PropertyParseDir(block.Words, words);
  if (root == nullptr) return kKivNoMemory;
  const KIV_RESULT result = KivUsb4XdomainParseProperties(xdomain, root);
  if (result != kKivOk) {
    KivUsb4PropertyFreeDir(root);
    return result;
  }
  USB4_PROPERTY_DIR* before = std::exchange(xdomain->PeerProperties.Change(), root);
  *isFirst = before == nullptr;
  KivUsb4PropertyFreeDir(before);
  xdomain->PeerGeneration = block.Generation;
  IgnoreResult(KivUsb4XdomainUpdateLinkAttributes(xdomain));  // traced; the older values stay
  return kKivOk;
}

// Transfers the block and uses it.
KIV_RESULT ReadProperties(USB4_XDOMAIN* xdomain, bool* isFirst) {
  USB4_PEER_BLOCK block = {};
  const KIV_RESULT words =
      KivUsb4XdpPropertiesRequest(xdomain->Domain->ControlChannel, xdomain, xdomain->RetryCount.Load(), &block);
  if (words < 0) return TakeRetry(xdomain->RetryCount, words);
  const KIV_RESULT result = UseBlock(xdomain, block, static_cast<std::uint32_t>(words), isFirst);
  PoolDeleteArray(block.Words, kReceivedBlockTag);
  return result;
}

// The link stays as it is from here on: a second lane that is not bonded carries nothing.
void FirstTransferDone(USB4_XDOMAIN* xdomain) {
  const USB4_PORT* facing = xdomain->FacingAdapter;
  if (facing->Bonded == 0 && facing->DualLinkPartner != nullptr) {
    const KIV_RESULT result = KivUsb4PortLaneDisable(facing->DualLinkPartner);
    if (result != kKivOk) {
      TraceWarningBy(NAME_OF(KivUsb4XDomainGetProperties), "second lane stays on", "name", xdomain->Info.Name, "result",
                     AsResult(result));
    }
  }
  SleepMs(xdomain->Domain, kLaneSettleMs);
  QueuePropertiesChangedWork(xdomain, ContextOf(xdomain->Domain));
  IgnoreResult(KivUsb4NetDriverInit(xdomain->Domain));  // registered already when the lanes are bonded
}

// Once for each peer, and nothing is tried a second time.
KIV_RESULT PlugInNetworkDevice(USB4_XDOMAIN* xdomain) {
  const MutexGuard guard(xdomain->NetworkLock);
  if (xdomain->EthernetPlugged.IsSet()) return kKivOk;
  xdomain->EthernetPlugged.Set(true);
  const NTSTATUS plugged = KivUsb4PlugInEthernetController(xdomain->Domain, xdomain);
  if (!NT_SUCCESS(plugged)) {
    TraceWarningBy(NAME_OF(KivUsb4XDomainGetProperties), "no network device", "name", xdomain->Info.Name, "status",
                   AsStatus(plugged));
    return kKivOk;
  }
  if (WaitForEventOrAbort(xdomain->Domain, xdomain->NetworkReadyEvent, kNetworkDeviceMs) != kStatusOk) {
    return kKivNoNetDevice;
  }
  if (xdomain->NetworkOpen.IsSet()) return kKivOk;
  const KIV_RESULT result = KivUsb4NetOpen(xdomain->Network);
  if (result == kKivOk) xdomain->NetworkOpen.Set(true);
  return result;
}

}  // namespace

KIV_RESULT KivUsb4XdomainGetUuid(USB4_XDOMAIN* xdomain, DEVICE_EXTENSION* context) {
  USB4_XDP_UUID_ANSWER answer = {};
  const KIV_RESULT result =
      KivUsb4XdpUuidRequest(context->Domain->ControlChannel, xdomain->Route, xdomain->RetryCount.Load(), &answer);
  if (result != kKivOk) return TakeRetry(xdomain->RetryCount, result);
  if (UuidsMatch(answer.Uuid, xdomain->OwnUuid)) {
    TraceInfo("the cable leads back to this host", "name", xdomain->Info.Name);
    xdomain->BondLanes.Set(false);
  }
  if (xdomain->PeerUuid == nullptr) return KeepUuid(xdomain, answer.Uuid);
  if (UuidsMatch(answer.Uuid, xdomain->PeerUuid)) return kKivOk;
  TraceWarning("another host stands behind the adapter", "name", xdomain->Info.Name);
  xdomain->Removed.Set(true);
  return kKivNoDevice;
}

KIV_RESULT KivUsb4XDomainGetProperties(USB4_XDOMAIN* xdomain) {
  bool isFirst = false;
  const KIV_RESULT result = ReadProperties(xdomain, &isFirst);
  if (result != kKivOk) return result;
  if (isFirst) FirstTransferDone(xdomain);
  if (xdomain->PeerVendorName == nullptr || xdomain->PeerDeviceName == nullptr) return kKivNoDevice;
  KivUsb4XdomainMacAddress(xdomain);
  return PlugInNetworkDevice(xdomain);
}
