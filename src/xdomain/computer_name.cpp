// The host's name, as the registry tells it.
#include "xdomain/computer_name.h"

#include <cstring>

#include "include/pool.h"
#include "include/status.h"

namespace {

constexpr ULONG kQueryTag = PoolTag("REG1");
constexpr ULONG kFirstQueryBytes = 8;  // too few for any value: the query answers with the size

// A key that is open until the end of the scope.
class OpenKey {
 public:
  OpenKey() = default;
  ~OpenKey() {
    if (handle_ != nullptr) IgnoreResult(ZwClose(handle_));  // fails only for a handle that is not open
  }
  OpenKey(const OpenKey&) = delete;
  OpenKey& operator=(const OpenKey&) = delete;

  // A full path, or one below `root`.
  [[nodiscard]] NTSTATUS Open(HANDLE root, PCWSTR path) {
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, path);
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, root, nullptr);
    return ZwOpenKey(&handle_, KEY_READ, &attributes);
  }
  HANDLE Handle() const { return handle_; }

 private:
  HANDLE handle_ = nullptr;
};

bool SaysTheSize(NTSTATUS status) {
  return status == STATUS_BUFFER_TOO_SMALL || status == STATUS_BUFFER_OVERFLOW;
}

// The characters of a text value, without the NUL that usually ends them.
UNICODE_STRING TextOf(const KEY_VALUE_FULL_INFORMATION& value) {
  auto* start = reinterpret_cast<const std::uint8_t*>(&value) + value.DataOffset;
  auto* characters = reinterpret_cast<PWSTR>(const_cast<std::uint8_t*>(start));
  ULONG count = value.DataLength / sizeof(WCHAR);
  while (count != 0 && characters[count - 1] == 0) --count;
  UNICODE_STRING text;
  text.Buffer = characters;
  text.Length = static_cast<USHORT>(count * sizeof(WCHAR));
  text.MaximumLength = text.Length;
  return text;
}

NTSTATUS StoreName(USB4_DOMAIN* domain, const UNICODE_STRING& wide) {
  if (domain->ComputerName != nullptr) return kStatusOk;
  ANSI_STRING narrow = {};
  const NTSTATUS status = RtlUnicodeStringToAnsiString(&narrow, &wide, TRUE);
  if (!NT_SUCCESS(status)) return status;
  char* name = PoolNewArray<char>(narrow.Length + 1u, USB4_DOMAIN::kComputerNameTag);
  if (name != nullptr) std::memcpy(name, narrow.Buffer, narrow.Length);
  RtlFreeAnsiString(&narrow);
  domain->ComputerName = name;
  return name == nullptr ? kStatusNoResources : kStatusOk;
}

NTSTATUS QueryName(USB4_DOMAIN* domain, HANDLE key) {
  UNICODE_STRING name;
  RtlInitUnicodeString(&name, L"ComputerName");
  std::uint8_t first[kFirstQueryBytes];
  ULONG bytes = 0;
  NTSTATUS status = ZwQueryValueKey(key, &name, KeyValueFullInformation, first, sizeof first, &bytes);
  if (!SaysTheSize(status)) return status;
  const PoolArray<std::uint8_t, kQueryTag> buffer(bytes);
  if (!buffer) return kStatusNoResources;
  ULONG answered = 0;
  status = ZwQueryValueKey(key, &name, KeyValueFullInformation, buffer.Get(), bytes, &answered);
  if (!NT_SUCCESS(status)) return status;
  if (answered != bytes) return kStatusNotFound;  // changed in between
  return StoreName(domain, TextOf(*reinterpret_cast<const KEY_VALUE_FULL_INFORMATION*>(buffer.Get())));
}

}  // namespace

NTSTATUS KivUsb4ReadActiveComputerNameFromRegistry(USB4_DOMAIN* domain) {
  OpenKey computerName;
  NTSTATUS status =
      computerName.Open(nullptr, L"\\Registry\\Machine\\SYSTEM\\CurrentControlSet\\Control\\ComputerName");
  if (!NT_SUCCESS(status)) return status;
  OpenKey active;
  status = active.Open(computerName.Handle(), L"ActiveComputerName");
  if (!NT_SUCCESS(status)) return status;
  return QueryName(domain, active.Handle());
}
