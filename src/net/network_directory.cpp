// The "network" directory among this host's properties: peers see by it that this host takes network frames.
#include <utility>

#include "include/domain_record.h"
#include "include/host_interface_record.h"
#include "include/locks.h"
#include "xdomain/host_properties.h"
#include "xdomain/property_tree.h"
#include "xdomain/upcalls.h"

namespace {

constexpr const char* kDirectoryKey = "network";

struct Setting {
  const char* Key;
  std::uint32_t Value;
};
constexpr Setting kSettings[] = {{"prtcid", 1}, {"prtcvers", 1}, {"prtcrevs", 1}, {"prtcstns", 6}};

USB4_PROPERTY_DIR* BuildDirectory(const USB4_DOMAIN* domain) {
  USB4_PROPERTY_DIR* directory = KivUsb4PropertyCreateDir(domain->NetworkDirectoryUuid);
  if (directory == nullptr) return nullptr;
  for (const Setting& setting : kSettings) {
    if (KivUsb4PropertyAddImmediate(directory, setting.Key, setting.Value) == kKivOk) continue;
    KivUsb4PropertyFreeDir(directory);
    return nullptr;
  }
  return directory;
}

USB4_PROPERTY_DIR* ForgetDirectory(USB4_HOST_INTERFACE* hostInterface) {
  const SpinLockGuard guard(hostInterface->PropertyLock);
  return std::exchange(hostInterface->NetworkDirectory.Change(), nullptr);
}

}  // namespace

// Asked for at every step that makes a peer usable, so it is often there already.
KIV_RESULT KivUsb4NetDriverInit(USB4_DOMAIN* domain) {
  if (domain == nullptr || domain->HostInterface == nullptr) return kKivFailed;
  USB4_PROPERTY_DIR* directory = BuildDirectory(domain);
  if (directory == nullptr) return kKivNoMemory;
  const KIV_RESULT result = KivUsb4PropertyRegisterDir(domain->HostInterface, kDirectoryKey, directory);
  if (result == kKivOk) {
    const SpinLockGuard guard(domain->HostInterface->PropertyLock);
    domain->HostInterface->NetworkDirectory = directory;
  } else {
    KivUsb4PropertyFreeDir(directory);
  }
  return result;
}

KIV_RESULT KIvUsb4NetDriverExit(USB4_DOMAIN* domain) {
  if (domain == nullptr || domain->HostInterface == nullptr) return kKivFailed;
  // Forgotten first: another peer's work may register a new one as soon as this one is gone.
  const USB4_PROPERTY_DIR* directory = ForgetDirectory(domain->HostInterface);
  KivUsb4PropertyUnregisterDir(domain->HostInterface, kDirectoryKey, directory);
  return kKivOk;
}
