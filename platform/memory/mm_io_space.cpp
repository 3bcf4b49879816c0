// Mapping device memory, and the register access calls: the only way into it.
#include <cstring>
#include <string_view>

#include "platform/host/host_kernel.h"
#include "platform/include/wdm.h"
#include "platform/memory/io_mappings.h"
#include "platform/scheduler/scheduler.h"

using namespace platform;

namespace {

PVOID MapDeviceMemory(KernelCall& call, PHYSICAL_ADDRESS address, SIZE_T bytes) {
  if (bytes == 0) {
    call.Report(Rule::InvalidArgument, "a mapping of no bytes");
    return nullptr;
  }
  if (call.Fails()) return nullptr;
  void* mapped = call.kernel().mappings().Map(static_cast<std::uint64_t>(address.QuadPart), bytes);
  if (!mapped) call.Report(Rule::InvalidArgument, "no device of this host decodes the whole range");
  return mapped;
}

// Null when the access must not reach the device; then it reads all ones.
DeviceModel* Reach(KernelCall& call, const volatile ULONG* address, std::uint32_t& offset) {
  if (reinterpret_cast<std::uintptr_t>(address) % sizeof(ULONG) != 0) {
    call.Report(Rule::InvalidArgument, "the register address is not aligned");
    return nullptr;
  }
  const IoMappings::Target target = call.kernel().mappings().Find(address);
  offset = target.offset;
  if (target.broken != Rule::Count) [[unlikely]] {
    call.Report(target.broken, "register access at offset " + std::to_string(offset));
    return nullptr;
  }
  return target.access == RegisterAccess::Allowed ? target.model : nullptr;
}

void EmitRegister(KernelCall& call, const char* name, std::uint32_t offset, std::uint32_t value) {
  Simulation& simulation = call.simulation();
  if (!simulation.HasSinks()) return;
  TraceRecord record{};
  record.kind = TraceKind::Register;
  record.when = simulation.Now();
  record.kernel = &call.kernel();
  record.task = call.task().name();
  record.taskOrdinal = call.task().ordinal();
  record.name = name;
  record.offset = offset;
  record.value = value;
  simulation.Emit(record);
}

}  // namespace

// Up to DISPATCH_LEVEL. Registers are mapped readable, writable and not cached.
PVOID MmMapIoSpaceEx(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes, ULONG Protect) {
  KernelCall call("MmMapIoSpaceEx", DISPATCH_LEVEL);
  if (Protect != (PAGE_READWRITE | PAGE_NOCACHE)) {
    call.Report(Rule::NotModelled, "a protection other than PAGE_READWRITE | PAGE_NOCACHE");
  }
  return MapDeviceMemory(call, PhysicalAddress, NumberOfBytes);
}

// Up to DISPATCH_LEVEL.
PVOID MmMapIoSpace(PHYSICAL_ADDRESS PhysicalAddress, SIZE_T NumberOfBytes, MEMORY_CACHING_TYPE CacheType) {
  KernelCall call("MmMapIoSpace", DISPATCH_LEVEL);
  if (CacheType != MmNonCached) call.Report(Rule::NotModelled, "a caching type other than MmNonCached");
  return MapDeviceMemory(call, PhysicalAddress, NumberOfBytes);
}

// Up to DISPATCH_LEVEL; address and size as they were mapped.
VOID MmUnmapIoSpace(PVOID BaseAddress, SIZE_T NumberOfBytes) {
  KernelCall call("MmUnmapIoSpace", DISPATCH_LEVEL);
  switch (call.kernel().mappings().Unmap(BaseAddress, NumberOfBytes)) {
    case IoMappings::UnmapResult::Done:
      break;
    case IoMappings::UnmapResult::NotMapped:
      call.Report(Rule::RegisterUnmapped, "the address is not mapped");
      break;
    case IoMappings::UnmapResult::WrongSize:
      call.Report(Rule::InvalidArgument, "the size differs from the one that was mapped");
      break;
  }
}

// Any IRQL. The handler of the device model runs on the scheduler's stack.
ULONG READ_REGISTER_ULONG(volatile ULONG* Register) {
  KernelCall call("READ_REGISTER_ULONG", HIGH_LEVEL);
  std::uint32_t offset = 0;
  DeviceModel* model = Reach(call, Register, offset);
  std::uint32_t value = 0xffffffff;
  if (!model && !call.simulation().HasSinks()) return value;
  call.scheduler().OnSchedulerStack([&] {
    if (model) value = model->ReadRegister(offset);
    EmitRegister(call, "read", offset, value);
  });
  return value;
}

// Any IRQL.
VOID WRITE_REGISTER_ULONG(volatile ULONG* Register, ULONG Value) {
  KernelCall call("WRITE_REGISTER_ULONG", HIGH_LEVEL);
  std::uint32_t offset = 0;
  DeviceModel* model = Reach(call, Register, offset);
  if (model || call.simulation().HasSinks()) {
    call.scheduler().OnSchedulerStack([&] {
      if (model) model->WriteRegister(offset, Value);
      EmitRegister(call, "write", offset, Value);
    });
  }
  call.EffectVisible();
}

// PASSIVE_LEVEL. Null for a name that this system does not export, or when the site fails: an older system.
PVOID MmGetSystemRoutineAddress(PUNICODE_STRING SystemRoutineName) {
  KernelCall call("MmGetSystemRoutineAddress", PASSIVE_LEVEL);
  if (!SystemRoutineName || !SystemRoutineName->Buffer) {
    call.Report(Rule::InvalidArgument, "no name");
    return nullptr;
  }
  static constexpr WCHAR kMmMapIoSpaceEx[] = L"MmMapIoSpaceEx";
  constexpr USHORT kLength = sizeof kMmMapIoSpaceEx - sizeof(WCHAR);
  if (SystemRoutineName->Length != kLength || std::memcmp(SystemRoutineName->Buffer, kMmMapIoSpaceEx, kLength) != 0) {
    call.Report(Rule::NotModelled, "a routine other than MmMapIoSpaceEx");
    return nullptr;
  }
  return call.Fails() ? nullptr : reinterpret_cast<PVOID>(&MmMapIoSpaceEx);
}
