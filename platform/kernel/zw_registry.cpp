// Registry calls of the kernel. PASSIVE_LEVEL.
#include <cstring>

#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/kernel/registry.h"
#include "platform/kernel/text.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

HANDLE AsHandle(std::uint64_t number) {
  return reinterpret_cast<HANDLE>(number);
}

std::uint64_t AsNumber(HANDLE handle) {
  return reinterpret_cast<std::uint64_t>(handle);
}

bool CheckAttributes(KernelCall& call, const OBJECT_ATTRIBUTES* attributes) {
  if (!attributes || attributes->Length != sizeof *attributes || !attributes->ObjectName) {
    call.Report(Rule::InvalidArgument, "object attributes are missing, of the wrong length or without a name");
    return false;
  }
  if ((attributes->Attributes & ~(OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE)) != 0 || attributes->SecurityDescriptor ||
      attributes->SecurityQualityOfService) {
    call.Report(Rule::NotModelled, "object attributes other than OBJ_CASE_INSENSITIVE and OBJ_KERNEL_HANDLE");
  }
  return true;
}

}  // namespace

// A full path, or a path relative to an open key. For reading only.
NTSTATUS ZwOpenKey(PHANDLE KeyHandle, ACCESS_MASK DesiredAccess, POBJECT_ATTRIBUTES ObjectAttributes) {
  KernelCall call("ZwOpenKey", PASSIVE_LEVEL);
  if (!KeyHandle || !CheckAttributes(call, ObjectAttributes)) return STATUS_INVALID_PARAMETER;
  if ((DesiredAccess & ~ULONG{KEY_READ}) != 0) call.Report(Rule::NotModelled, "access other than KEY_READ");
  *KeyHandle = nullptr;
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  Registry& registry = call.kernel().registry();
  const std::string path = Narrow(*ObjectAttributes->ObjectName);
  RegistryKey* key = nullptr;
  if (ObjectAttributes->RootDirectory) {
    RegistryKey* root = registry.FromHandle(AsNumber(ObjectAttributes->RootDirectory));
    if (!root) {
      call.Report(Rule::HandleStale, "the root directory is no open key");
      return STATUS_INVALID_HANDLE;
    }
    key = root->Find(path);
  } else if (path.starts_with('\\')) {
    key = registry.Find(path);
  } else {
    return STATUS_OBJECT_NAME_INVALID;
  }
  if (!key) return STATUS_OBJECT_NAME_NOT_FOUND;
  *KeyHandle = AsHandle(registry.Open(*key));
  return STATUS_SUCCESS;
}

// Full information only. Too small for the fixed part: STATUS_BUFFER_TOO_SMALL; for name and data:
// STATUS_BUFFER_OVERFLOW with the fixed part filled in. ResultLength is the whole size in either case.
NTSTATUS ZwQueryValueKey(HANDLE KeyHandle, PUNICODE_STRING ValueName,
                         KEY_VALUE_INFORMATION_CLASS KeyValueInformationClass, PVOID KeyValueInformation, ULONG Length,
                         PULONG ResultLength) {
  KernelCall call("ZwQueryValueKey", PASSIVE_LEVEL);
  if (!ValueName || !ResultLength || (!KeyValueInformation && Length != 0)) {
    call.Report(Rule::InvalidArgument, "no value name, no buffer or nowhere to put the length");
    return STATUS_INVALID_PARAMETER;
  }
  if (KeyValueInformationClass != KeyValueFullInformation) {
    call.Report(Rule::NotModelled, "an information class other than KeyValueFullInformation");
    return STATUS_INVALID_PARAMETER;
  }
  const RegistryKey* key = call.kernel().registry().FromHandle(AsNumber(KeyHandle));
  if (!key) {
    call.Report(Rule::HandleStale, "the handle is no open key");
    return STATUS_INVALID_HANDLE;
  }
  if (call.Fails()) return STATUS_INSUFFICIENT_RESOURCES;
  const RegistryValue* value = key->Value(Narrow(*ValueName));
  if (!value) return STATUS_OBJECT_NAME_NOT_FOUND;
  constexpr ULONG kFixed = FIELD_OFFSET(KEY_VALUE_FULL_INFORMATION, Name);
  KEY_VALUE_FULL_INFORMATION fixed{};
  fixed.Type = value->type;
  fixed.NameLength = ValueName->Length;
  fixed.DataOffset = (kFixed + ULONG{ValueName->Length} + 7) / 8 * 8;
  fixed.DataLength = static_cast<ULONG>(value->data.size());
  *ResultLength = fixed.DataOffset + fixed.DataLength;
  if (Length < kFixed) return STATUS_BUFFER_TOO_SMALL;
  std::memcpy(KeyValueInformation, &fixed, kFixed);
  if (Length < *ResultLength) return STATUS_BUFFER_OVERFLOW;
  auto* bytes = static_cast<std::byte*>(KeyValueInformation);
  std::memcpy(bytes + kFixed, ValueName->Buffer, ValueName->Length);
  std::memcpy(bytes + fixed.DataOffset, value->data.data(), value->data.size());
  return STATUS_SUCCESS;
}

NTSTATUS ZwClose(HANDLE Handle) {
  KernelCall call("ZwClose", PASSIVE_LEVEL);
  if (call.kernel().registry().Close(AsNumber(Handle))) return STATUS_SUCCESS;
  call.Report(Rule::HandleStale, "the handle is not open");
  return STATUS_INVALID_HANDLE;
}
