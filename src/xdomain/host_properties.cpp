// The host's own property tree.
#include "xdomain/host_properties.h"

#include <utility>

#include "include/locks.h"
#include "include/trace.h"
#include "xdomain/property_tree.h"

namespace {

constexpr std::uint32_t kVendorId = 0x1F3A;
constexpr const char* kVendorName = "Kiverra Systems Inc.";
constexpr std::uint32_t kDeviceId = 2;
constexpr std::uint32_t kDeviceRevision = 0x80000100;

// Peers that saw an earlier start of this host must not take the new block for one that they have.
std::uint32_t FirstGeneration() {
  ULONG seed = KeQueryPerformanceCounter(nullptr).LowPart;
  return RtlRandom(&seed);
}

KIV_RESULT FillRoot(USB4_PROPERTY_DIR* root) {
  KIV_RESULT result = KivUsb4PropertyAddImmediate(root, "vendorid", kVendorId);
  if (result == kKivOk) result = KivUsb4PropertyAddText(root, "vendorid", kVendorName);
  if (result == kKivOk) result = KivUsb4PropertyAddImmediate(root, "deviceid", kDeviceId);
  if (result == kKivOk) result = KivUsb4PropertyAddImmediate(root, "devicerv", kDeviceRevision);
  return result;
}

_Requires_lock_held_(hostInterface->PropertyLock) KIV_RESULT
    RegisterLocked(USB4_HOST_INTERFACE* hostInterface, const char* key, USB4_PROPERTY_DIR* directory) {
  _Analysis_assume_lock_held_(hostInterface->PropertyLock);
  USB4_PROPERTY_DIR* root = hostInterface->RootDirectory;
  if (root == nullptr) return kKivTryAgain;
  if (!KivUsb4PropertyKeyValid(key)) return kKivInvalid;
  if (KivUsb4PropertyFind(root, key, USB4_PROPERTY_DIRECTORY) != nullptr) return kKivExists;
  const KIV_RESULT result = KivUsb4PropertyAddDir(root, key, directory);
  if (result == kKivOk) ++hostInterface->PropertyGeneration;
  return result;
}

}  // namespace

KIV_RESULT KivUsb4XdomainInit(USB4_HOST_INTERFACE* hostInterface) {
  hostInterface->PropertyLock.Initialise();
  USB4_PROPERTY_DIR* root = KivUsb4PropertyCreateDir(nullptr);
  if (root == nullptr) return kKivFailed;
  const KIV_RESULT result = FillRoot(root);
  if (result != kKivOk) {
    KivUsb4PropertyFreeDir(root);
    return result;
  }
  const std::uint32_t generation = FirstGeneration();
  const SpinLockGuard guard(hostInterface->PropertyLock);
  hostInterface->RootDirectory = root;
  hostInterface->PropertyGeneration = generation;
  return kKivOk;
}

void KivUsb4XdomainExit(USB4_HOST_INTERFACE* hostInterface) {
  USB4_PROPERTY_DIR* root = nullptr;
  {
    const SpinLockGuard guard(hostInterface->PropertyLock);
    hostInterface->NetworkDirectory = nullptr;
    root = std::exchange(hostInterface->RootDirectory.Change(), nullptr);
  }
  KivUsb4PropertyFreeDir(root);
}

KIV_RESULT KivUsb4PropertyRegisterDir(USB4_HOST_INTERFACE* hostInterface, const char* key,
                                      USB4_PROPERTY_DIR* directory) {
  KIV_RESULT result = kKivOk;
  {
    const SpinLockGuard guard(hostInterface->PropertyLock);
    result = RegisterLocked(hostInterface, key, directory);
  }
  TraceInfo("property directory registered", "key", key, "result", AsResult(result));
  return result;
}

void KivUsb4PropertyUnregisterDir(USB4_HOST_INTERFACE* hostInterface, const char* key,
                                  const USB4_PROPERTY_DIR* directory) {
  const SpinLockGuard guard(hostInterface->PropertyLock);
  USB4_PROPERTY_DIR* root = hostInterface->RootDirectory;
  if (root == nullptr || !KivUsb4PropertyKeyValid(key)) return;
  USB4_PROPERTY* entry = KivUsb4PropertyFind(root, key, USB4_PROPERTY_DIRECTORY);
  if (entry == nullptr || entry->Value.Directory != directory) return;
  KivUsb4PropertyRemove(root, entry);
  ++hostInterface->PropertyGeneration;
}

std::uint32_t HostPropertyGeneration(USB4_HOST_INTERFACE* hostInterface) {
  const SpinLockGuard guard(hostInterface->PropertyLock);
  return hostInterface->PropertyGeneration;
}

USB4_PROPERTY_DIR* CopyHostProperties(USB4_HOST_INTERFACE* hostInterface, std::uint32_t* generation) {
  const SpinLockGuard guard(hostInterface->PropertyLock);
  *generation = hostInterface->PropertyGeneration;
  USB4_PROPERTY_DIR* root = hostInterface->RootDirectory;
  return root == nullptr ? nullptr : KivUsb4PropertyCopyDir(root);
}
