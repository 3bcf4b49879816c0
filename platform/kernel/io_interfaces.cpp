// Finding device interfaces. PASSIVE_LEVEL.
#include <cstring>

#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/kernel/kernel_state.h"
#include "platform/kernel/text.h"
#include "platform/memory/kernel_pool.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

constexpr std::uint32_t kListTag = 'I' | 'o' << 8 | 'D' << 16 | 'i' << 24;

std::size_t WriteLink(WCHAR* at, const std::string& link) {
  for (std::size_t i = 0; i < link.size(); ++i) at[i] = static_cast<WCHAR>(link[i]);
  return link.size() + 1;  // what follows is zero already
}

}  // namespace

// The symbolic links of a class, each with its NUL, one more NUL behind the last; without any, that one alone. Only
// interfaces that are present, of whatever device. The caller frees the list.
NTSTATUS IoGetDeviceInterfaces(CONST GUID* InterfaceClassGuid, PDEVICE_OBJECT PhysicalDeviceObject, ULONG Flags,
                               PWSTR* SymbolicLinkList) {
  KernelCall call("IoGetDeviceInterfaces", PASSIVE_LEVEL);
  if (!InterfaceClassGuid || !SymbolicLinkList) {
    call.Report(Rule::InvalidArgument, "a class and a place for the list are needed");
    return STATUS_INVALID_PARAMETER;
  }
  if (PhysicalDeviceObject || Flags != 0) {
    call.Report(Rule::NotModelled, "interfaces of one device, or ones that are not present");
  }
  *SymbolicLinkList = nullptr;
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  const std::vector<std::string> links = call.kernel().state().companions.LinksOf(GuidText(*InterfaceClassGuid));
  std::size_t characters = 1;
  for (const std::string& link : links) characters += link.size() + 1;
  void* list = call.kernel().pool().Allocate(characters * sizeof(WCHAR), kListTag, true, __builtin_return_address(0));
  if (!list) return STATUS_INSUFFICIENT_RESOURCES;
  auto* at = static_cast<WCHAR*>(list);
  for (const std::string& link : links) at += WriteLink(at, link);
  *SymbolicLinkList = static_cast<PWSTR>(list);
  return STATUS_SUCCESS;
}
