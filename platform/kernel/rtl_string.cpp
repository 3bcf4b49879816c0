// Counted strings and their conversion. Narrow strings are in the system's code page, whose first 256 characters are
// those of Unicode here; what it lacks becomes '?'.
#include <algorithm>

#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/memory/kernel_pool.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

constexpr ULONG kStringTag = 0x676e7453;  // 'Stng'
constexpr SIZE_T kMostBytes = 0xfffe;     // of a counted string with its terminator

template <class String, class Character>
void InitialiseString(String& destination, const Character* source) {
  destination.Buffer = const_cast<Character*>(source);
  destination.Length = destination.MaximumLength = 0;
  if (!source) return;
  SIZE_T bytes = 0;
  while (source[bytes / sizeof(Character)] != 0 && bytes + 2 * sizeof(Character) <= kMostBytes) {
    bytes += sizeof(Character);
  }
  destination.Length = static_cast<USHORT>(bytes);
  destination.MaximumLength = static_cast<USHORT>(bytes + sizeof(Character));
}

WCHAR Convert(char narrow, WCHAR) {
  return static_cast<unsigned char>(narrow);
}

char Convert(WCHAR wide, char) {
  return wide < 0x100 ? static_cast<char>(wide) : '?';
}

// The destination is allocated, or its buffer holds the characters and a terminator.
template <class To, class From>
NTSTATUS ConvertString(KernelCall& call, To* destination, const From* source, BOOLEAN allocate) {
  using ToCharacter = std::remove_pointer_t<decltype(destination->Buffer)>;
  using FromCharacter = std::remove_pointer_t<decltype(source->Buffer)>;
  if (!destination || !source || (!source->Buffer && source->Length != 0) ||
      source->Length % sizeof(FromCharacter) != 0) {
    call.Report(Rule::InvalidArgument, "a string without buffer, or of half a character");
    return STATUS_INVALID_PARAMETER;
  }
  const SIZE_T characters = source->Length / sizeof(FromCharacter);
  const SIZE_T bytes = (characters + 1) * sizeof(ToCharacter);
  if (bytes > kMostBytes) return STATUS_INVALID_PARAMETER;
  if (allocate) {
    destination->Buffer = nullptr;
    void* block = call.kernel().pool().Allocate(bytes, kStringTag, true, __builtin_return_address(0));
    if (!block) return STATUS_NO_MEMORY;
    destination->Buffer = static_cast<ToCharacter*>(block);
    destination->MaximumLength = static_cast<USHORT>(bytes);
  } else if (destination->MaximumLength < bytes) {
    return STATUS_BUFFER_OVERFLOW;
  }
  std::transform(source->Buffer, source->Buffer + characters, destination->Buffer,
                 [](FromCharacter character) { return Convert(character, ToCharacter{}); });
  destination->Buffer[characters] = 0;
  destination->Length = static_cast<USHORT>(bytes - sizeof(ToCharacter));
  return STATUS_SUCCESS;
}

template <class String>
void FreeString(KernelCall& call, String* string) {
  if (!string) return call.Report(Rule::InvalidArgument, "no string");
  if (string->Buffer) call.kernel().pool().Free(string->Buffer, kStringTag);
  *string = {};
}

}  // namespace

// Any IRQL. The string borrows the source.
VOID RtlInitUnicodeString(PUNICODE_STRING DestinationString, PCWSTR SourceString) {
  KernelCall call("RtlInitUnicodeString", HIGH_LEVEL);
  InitialiseString(*DestinationString, SourceString);
}

// Any IRQL. The string borrows the source.
VOID RtlInitAnsiString(PANSI_STRING DestinationString, PCSZ SourceString) {
  KernelCall call("RtlInitAnsiString", HIGH_LEVEL);
  InitialiseString(*DestinationString, SourceString);
}

// PASSIVE_LEVEL. What is allocated goes back through RtlFreeUnicodeString.
NTSTATUS RtlAnsiStringToUnicodeString(PUNICODE_STRING DestinationString, PCANSI_STRING SourceString,
                                      BOOLEAN AllocateDestinationString) {
  KernelCall call("RtlAnsiStringToUnicodeString", PASSIVE_LEVEL);
  return ConvertString(call, DestinationString, SourceString, AllocateDestinationString);
}

// PASSIVE_LEVEL. What is allocated goes back through RtlFreeAnsiString.
NTSTATUS RtlUnicodeStringToAnsiString(PANSI_STRING DestinationString, PCUNICODE_STRING SourceString,
                                      BOOLEAN AllocateDestinationString) {
  KernelCall call("RtlUnicodeStringToAnsiString", PASSIVE_LEVEL);
  return ConvertString(call, DestinationString, SourceString, AllocateDestinationString);
}

// PASSIVE_LEVEL.
VOID RtlFreeUnicodeString(PUNICODE_STRING UnicodeString) {
  KernelCall call("RtlFreeUnicodeString", PASSIVE_LEVEL);
  FreeString(call, UnicodeString);
}

// PASSIVE_LEVEL.
VOID RtlFreeAnsiString(PANSI_STRING AnsiString) {
  KernelCall call("RtlFreeAnsiString", PASSIVE_LEVEL);
  FreeString(call, AnsiString);
}
