// What a device reaches: its ACPI method; and what the layer refuses because it does not
// model it.
#include <acpiioct.h>

#include <cstring>

#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

class WdfDevice : public WdfTest {};
INSTANTIATE_WDF(WdfDevice);

struct Evaluation {
  const char* name;
  NTSTATUS acpiStatus;
  Time acpiDelay;
  NTSTATUS status;
  Time takes;
};

TEST_P(WdfDevice, AcpiMethodsAnswerOrTimeOut) {
  const Evaluation cases[] = {
      {"at once", 0, 0, 0, 0},
      {"refused", STATUS_NOT_SUPPORTED, 0, STATUS_NOT_SUPPORTED, 0},
      {"in time", 0, 2 * kSecond, 0, 2 * kSecond},
      {"too late", 0, 5 * kSecond, STATUS_IO_TIMEOUT, 3 * kSecond},
  };
  const Evaluation& evaluation = cases[GetParam()];
  SCOPED_TRACE(evaluation.name);
  config.acpiStatus = evaluation.acpiStatus;
  config.acpiDelay = evaluation.acpiDelay;
  WithDevice([&](WDFDEVICE device) {
    ACPI_EVAL_INPUT_BUFFER_COMPLEX input{};
    input.Signature = 0x43696541;
    std::memcpy(input.MethodName, "SDEP", 4);
    input.Size = 8;
    input.ArgumentCount = 1;
    WDF_MEMORY_DESCRIPTOR memory;
    WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(&memory, &input, sizeof(input));
    WDF_REQUEST_SEND_OPTIONS options;
    WDF_REQUEST_SEND_OPTIONS_INIT(&options, WDF_REQUEST_SEND_OPTION_SYNCHRONOUS);
    WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(&options, WDF_REL_TIMEOUT_IN_MS(3000));
    const Time begin = simulation.Now();
    const auto evaluate = [&] {
      return WdfIoTargetSendIoctlSynchronously(WdfDeviceGetIoTarget(device), nullptr, 0x32C004, &memory, nullptr,
                                               &options, nullptr);
    };
    EXPECT_EQ(evaluate(), evaluation.status);
    EXPECT_GE(simulation.Now() - begin, evaluation.takes);
    EXPECT_LE(simulation.Now() - begin, evaluation.takes + 20 * kMillisecond);
    input.Signature = 0;
    EXPECT_EQ(evaluate(), STATUS_INVALID_PARAMETER);
  });
}

DRIVER_BREAKS(BusInterfaceKept, HandleLeak, "device removal") {
  constexpr GUID kBus = {0x496b8280, 0x6f25, 0x11d0, {0xbe, 0xaf, 0x08, 0x00, 0x2b, 0xe2, 0x09, 0x2f}};
  rig.WithDevice([&](WDFDEVICE device) {
    BUS_INTERFACE_STANDARD bus{};
    EXPECT_EQ(WdfFdoQueryForInterface(device, &kBus, reinterpret_cast<PINTERFACE>(&bus), sizeof(bus), 1, nullptr), 0);
  });
  rig.host.Remove(rig.id);
}

DRIVER_BREAKS(InitStructureUsedAfterItsDeviceIsCreated, HandleStale, "WdfDeviceInitSetExclusive") {
  PWDFDEVICE_INIT kept = nullptr;
  rig.script.onInit = [&](PWDFDEVICE_INIT init) { kept = init; };
  rig.script.onAdd = [&](WDFDEVICE) { WdfDeviceInitSetExclusive(kept, TRUE); };
  (void)rig.Start();
}

DEVICE_BREAKS(RecordOfAnotherSize, InvalidArgument, "WdfDeviceSetDeviceState") {
  WDF_DEVICE_STATE state;
  WDF_DEVICE_STATE_INIT(&state);
  state.Size = 1;
  WdfDeviceSetDeviceState(device, &state);
}

DEVICE_BREAKS(FailedDeviceState, NotModelled, "WdfDeviceSetDeviceState") {
  WDF_DEVICE_STATE state;
  WDF_DEVICE_STATE_INIT(&state);
  state.Failed = WdfTrue;
  WdfDeviceSetDeviceState(device, &state);
}

DEVICE_BREAKS(AnotherProperty, NotModelled, "WdfDeviceQueryProperty") {
  ULONG bytes = 0;
  (void)WdfDeviceQueryProperty(device, DevicePropertyBusNumber, 0, nullptr, &bytes);
}

DEVICE_BREAKS(AlignmentThatIsNoMask, InvalidArgument, "WdfDeviceSetAlignmentRequirement") {
  WdfDeviceSetAlignmentRequirement(device, 8);
}

DEVICE_BREAKS(IdleStateOfD2, NotModelled, "WdfDeviceAssignS0IdleSettings") {
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
  idle.DxState = PowerDeviceD2;
  (void)WdfDeviceAssignS0IdleSettings(device, &idle);
}

DEVICE_BREAKS(RegistryKeyAtDispatch, IrqlTooHigh, "WdfDeviceOpenRegistryKey") {
  Raise(DISPATCH_LEVEL);
  WDFKEY key = nullptr;
  (void)WdfDeviceOpenRegistryKey(device, PLUGPLAY_REGKEY_DEVICE, KEY_READ, nullptr, &key);
}

DRIVER_BREAKS(CallbackReturnsAtAnotherIrql, CallbackIrql, "") {
  rig.script.onEntry = [](WDFDEVICE) { Raise(DISPATCH_LEVEL); };
  (void)rig.Start();
}

DRIVER_BREAKS(CallbackReturnsWithALock, CallbackHoldsLock, "") {
  KMUTEX mutex;
  rig.script.onEntry = [&](WDFDEVICE) {
    KeInitializeMutex(&mutex, 0);
    WaitForEver(&mutex);
  };
  (void)rig.Start();
}

}  // namespace
}  // namespace wdf_test
