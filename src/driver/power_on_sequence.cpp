// Configuration-space accesses of 4 bytes through the bus interface. PASSIVE_LEVEL.
#include "driver/power_on_sequence.h"

#include <initguid.h>
#include <wdmguid.h>

#include "include/bits.h"
#include "include/device_context.h"
#include "include/status.h"
#include "include/trace.h"

namespace {

constexpr std::uint32_t kIdentity = 0x9A1B8086;
constexpr ULONG kIdentityOffset = 0x00;
constexpr ULONG kPowerControlOffset = 0xFC;
constexpr ULONG kPowerStatusOffset = 0xC8;
constexpr ULONG kCommandOffset = 0xE0;
constexpr ULONG kReplyOffset = 0xE4;

struct PowerControlWord {
  using ForcePower = Bit<1>;
  using Key = Bits<24, 8>;
};
constexpr std::uint32_t kPowerControlKey = 0x22;

struct PowerStatusWord {
  using Ready = Bit<31>;
};
constexpr unsigned kMostStatusReads = 350;
constexpr ULONG kStatusStallUs = 3100;

struct ReplyWord {
  using Value = Bits<0, 16>;
};
struct CommandWord {
  using Low = Bits<0, 16>;
  using High = Bits<16, 16>;
};

// The PCI bus interface of the device, dereferenced when it goes out of scope.
class BusInterface {
 public:
  explicit BusInterface(WDFDEVICE device) {
    status_ = WdfFdoQueryForInterface(device, &GUID_BUS_INTERFACE_STANDARD, reinterpret_cast<PINTERFACE>(&bus_),
                                      sizeof bus_, 1, nullptr);
    if (!NT_SUCCESS(status_)) {
      TraceErrorBy(NAME_OF(RunPowerOnSequenceOnce), "no bus interface", "status", AsStatus(status_));
    }
  }
  ~BusInterface() {
    if (NT_SUCCESS(status_)) bus_.InterfaceDereference(bus_.Context);
  }
  BusInterface(const BusInterface&) = delete;
  BusInterface& operator=(const BusInterface&) = delete;

  bool IsUsable() const { return NT_SUCCESS(status_); }
  // 0 when the bus transfers nothing.
  std::uint32_t Read(ULONG offset) {
    std::uint32_t value = 0;
    bus_.GetBusData(bus_.Context, PCI_WHICHSPACE_CONFIG, &value, offset, sizeof value);
    return value;
  }
  void Write(ULONG offset, std::uint32_t value) {
    bus_.SetBusData(bus_.Context, PCI_WHICHSPACE_CONFIG, &value, offset, sizeof value);
  }

 private:
  BUS_INTERFACE_STANDARD bus_{};
  NTSTATUS status_;
};

// The sequence prescribes busy waits between the reads. They are longer than the 50 us that a driver may stall; the
// sequence runs once per driver load.
bool WaitUntilPowered(BusInterface& bus) {
  for (unsigned reads = 1;; ++reads) {
    if (PowerStatusWord::Ready::Get(bus.Read(kPowerStatusOffset)) != 0) return true;
    if (reads == kMostStatusReads) return false;
    KeStallExecutionProcessor(kStatusStallUs);
  }
}

KIV_RESULT RunSequence(BusInterface& bus) {
  std::uint32_t control = bus.Read(kPowerControlOffset);
  control = PowerControlWord::Key::Put(control, kPowerControlKey);
  control = PowerControlWord::ForcePower::Put(control, 1);
  bus.Write(kPowerControlOffset, control);
  if (!WaitUntilPowered(bus)) return kKivFailed;
  const std::uint32_t reply = ReplyWord::Value::Get(bus.Read(kReplyOffset));
  bus.Write(kCommandOffset, CommandWord::Low::Of(reply) | CommandWord::High::Of(reply));
  return kKivOk;
}

}  // namespace

void RunPowerOnSequenceOnce(WDFDEVICE device) {
  DRIVER_CONTEXT* driver = DriverContextOf(WdfDeviceGetDriver(device));
  if (driver == nullptr || driver->PowerOnSequenceRun.Load() != 0) return;
  BusInterface bus(device);
  if (!bus.IsUsable() || bus.Read(kIdentityOffset) != kIdentity) return;
  if (!driver->PowerOnSequenceRun.ChangeFrom(0, 1)) return;
  const KIV_RESULT result = RunSequence(bus);
  TraceInfo("power-on sequence", "result", AsResult(result));
}
