// What a device knows and reaches: hardware ID, registry values, ACPI method, configuration space, register access by
// power state; and what the layer refuses because it does not model it.
#include <acpiioct.h>

#include <cstring>

#include "tests/platform/rule_tests.h"
#include "wdf_fixture.h"

namespace wdf_test {
namespace {

using namespace platform;

constexpr GUID kBus = {0x496b8280, 0x6f25, 0x11d0, {0xbe, 0xaf, 0x08, 0x00, 0x2b, 0xe2, 0x09, 0x2f}};
constexpr GUID kInterface = {0x8CB2D6D3, 0x2FA5, 0x49DE, {0x9C, 0x2C, 0xD4, 0x29, 0x62, 0x7C, 0xC3, 0x47}};

class WdfDevice : public WdfTest {
 protected:
  void Started(std::function<void(WDFDEVICE)> body) {
    ASSERT_EQ(Start(), 0);
    InDriver(std::move(body));
  }
  void Finish() {
    host.Remove(id);
    Unload();
  }
};
INSTANTIATE_WDF(WdfDevice);

TEST_P(WdfDevice, HardwareIdsAreAListOfStrings) {
  Started([](WDFDEVICE device) {
    WCHAR ids[512];
    ULONG bytes = 0;
    EXPECT_EQ(WdfDeviceQueryProperty(device, DevicePropertyHardwareID, sizeof(ids), ids, &bytes), 0);
    constexpr char16_t kExpected[] = u"PCI\\VEN_1F3A&DEV_3A0E&SUBSYS_00000000\0PCI\\VEN_1F3A&DEV_3A0E\0";
    EXPECT_EQ(bytes, sizeof(kExpected));
    EXPECT_EQ(std::memcmp(ids, kExpected, bytes), 0);
    EXPECT_EQ(WdfDeviceQueryProperty(device, DevicePropertyHardwareID, 10, ids, &bytes), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(bytes, sizeof(kExpected));
  });
  Finish();
}

TEST_P(WdfDevice, DeviceInterfacesAreKnownByTheirClass) {
  Started([](WDFDEVICE device) { EXPECT_EQ(WdfDeviceCreateDeviceInterface(device, &kInterface, nullptr), 0); });
  EXPECT_EQ(host.Interfaces(id), std::vector<std::string>{"{8cb2d6d3-2fa5-49de-9c2c-d429627cc347}"});
  Finish();
}

TEST_P(WdfDevice, RegistryValuesOfTheDeviceAreRead) {
  config.parameters = {{"USB3Tunnel\\USB3TunnelSupported", 1}, {"TopLevel", 7}};
  Started([](WDFDEVICE device) {
    DECLARE_CONST_UNICODE_STRING(topLevel, L"TopLevel");
    DECLARE_CONST_UNICODE_STRING(subkey, L"usb3tunnel");
    DECLARE_CONST_UNICODE_STRING(value, L"USB3TunnelSupported");
    DECLARE_CONST_UNICODE_STRING(missing, L"PCIETunnel");
    WDFKEY key = nullptr, below = nullptr;
    ULONG number = 0;
    EXPECT_EQ(WdfDeviceOpenRegistryKey(device, PLUGPLAY_REGKEY_DEVICE, KEY_READ, nullptr, &key), 0);
    EXPECT_EQ(WdfRegistryQueryULong(key, &topLevel, &number), 0);
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(WdfRegistryOpenKey(key, &subkey, KEY_READ, nullptr, &below), 0);
    EXPECT_EQ(WdfRegistryQueryULong(below, &value, &number), 0);
    EXPECT_EQ(number, 1u);
    EXPECT_EQ(WdfRegistryQueryULong(below, &topLevel, &number), STATUS_OBJECT_NAME_NOT_FOUND);
    WdfRegistryClose(below);
    EXPECT_EQ(WdfRegistryOpenKey(key, &missing, KEY_READ, nullptr, &below), STATUS_OBJECT_NAME_NOT_FOUND);
    WdfRegistryClose(key);
  });
  EXPECT_EQ(host.ObjectsByType().count("WDFKEY"), 0u);
  Finish();
}

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
  Started([&](WDFDEVICE device) {
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
    EXPECT_EQ(WdfIoTargetSendIoctlSynchronously(WdfDeviceGetIoTarget(device), nullptr, 0x32C004, &memory, nullptr,
                                                &options, nullptr),
              evaluation.status);
    EXPECT_GE(simulation.Now() - begin, evaluation.takes);
    EXPECT_LE(simulation.Now() - begin, evaluation.takes + 20 * kMillisecond);
    input.Signature = 0;
    EXPECT_EQ(WdfIoTargetSendIoctlSynchronously(WdfDeviceGetIoTarget(device), nullptr, 0x32C004, &memory, nullptr,
                                                &options, nullptr),
              STATUS_INVALID_PARAMETER);
  });
  Finish();
}

TEST_P(WdfDevice, TheBusInterfaceReachesConfigurationSpace) {
  function.config[0] = 0x9A1B8086;
  Started([this](WDFDEVICE device) {
    BUS_INTERFACE_STANDARD bus{};
    EXPECT_EQ(WdfFdoQueryForInterface(device, &kBus, reinterpret_cast<PINTERFACE>(&bus), sizeof(bus), 1, nullptr), 0);
    ULONG value = 0;
    EXPECT_EQ(bus.GetBusData(bus.Context, PCI_WHICHSPACE_CONFIG, &value, 0, 4), 4u);
    EXPECT_EQ(value, 0x9A1B8086u);
    value = 0x22000002;
    EXPECT_EQ(bus.SetBusData(bus.Context, PCI_WHICHSPACE_CONFIG, &value, 0xFC, 4), 4u);
    EXPECT_EQ(function.config[63], 0x22000002u);
    bus.InterfaceDereference(bus.Context);
  });
  Finish();
}

TEST_P(WdfDevice, ABusInterfaceThatIsKeptIsALeak) {
  Started([](WDFDEVICE device) {
    BUS_INTERFACE_STANDARD bus{};
    EXPECT_EQ(WdfFdoQueryForInterface(device, &kBus, reinterpret_cast<PINTERFACE>(&bus), sizeof(bus), 1, nullptr), 0);
  });
  host.Remove(id);
  EXPECT_EQ(Broken(), "handle-leak in device removal");
}

volatile ULONG* mapped = nullptr;
void Map(WDFDEVICE, WDFCMRESLIST, WDFCMRESLIST translated) {
  PCM_PARTIAL_RESOURCE_DESCRIPTOR memory = WdfCmResourceListGetDescriptor(translated, 1);
  mapped = static_cast<ULONG*>(MmMapIoSpace(memory->u.Memory.Start, memory->u.Memory.Length, MmNonCached));
}
void Unmap(WDFDEVICE) {
  MmUnmapIoSpace(const_cast<ULONG*>(mapped), 0x1000);
}

TEST_P(WdfDevice, RegistersAreReachableFromPrepareToRelease) {
  function.registers[1] = 0x12345678;
  script.onPrepare = Map;
  script.onExit = [](WDFDEVICE) { EXPECT_EQ(READ_REGISTER_ULONG(mapped + 1), 0x12345678u); };
  script.onRelease = [](WDFDEVICE device) {
    EXPECT_EQ(READ_REGISTER_ULONG(mapped + 1), 0x12345678u);
    Unmap(device);
  };
  ASSERT_EQ(Start(), 0);
  host.SystemSleep(SystemPowerAction::Sleep);
  host.SystemResume();
  Finish();
}

TEST_P(WdfDevice, RegistersReadAllOnesOnceTheFunctionIsGone) {
  function.registers[1] = 0x12345678;
  script.onPrepare = Map;
  script.onPre = [](WDFDEVICE) { EXPECT_EQ(READ_REGISTER_ULONG(mapped + 1), 0xFFFFFFFFu); };
  script.onRelease = Unmap;
  ASSERT_EQ(Start(), 0);
  host.SurpriseRemove(id);
  Unload();
}

TEST_P(WdfDevice, ARegisterAccessInD3IsReported) {
  script.onPrepare = Map;
  ASSERT_EQ(Start(), 0);
  host.SystemSleep(SystemPowerAction::Sleep);
  InDriver([](WDFDEVICE) { READ_REGISTER_ULONG(mapped); });
  EXPECT_EQ(Broken(), "register-while-powered-down in READ_REGISTER_ULONG");
}

TEST_P(WdfDevice, AnInitStructureUsedAfterItsDeviceIsCreatedIsReported) {
  static PWDFDEVICE_INIT kept;
  script.onInit = [](PWDFDEVICE_INIT init) { kept = init; };
  script.onAdd = [](WDFDEVICE) { WdfDeviceInitSetExclusive(kept, TRUE); };
  Start();
  EXPECT_EQ(Broken(), "handle-stale in WdfDeviceInitSetExclusive");
}

struct Refused {
  const char* name;
  void (*use)(WDFDEVICE device);
  const char* broken;
};
const Refused kRefused[] = {
    {"a record of another size",
     [](WDFDEVICE device) {
       WDF_DEVICE_STATE state;
       WDF_DEVICE_STATE_INIT(&state);
       state.Size = 1;
       WdfDeviceSetDeviceState(device, &state);
     },
     "invalid-argument in WdfDeviceSetDeviceState"},
    {"a failed device state",
     [](WDFDEVICE device) {
       WDF_DEVICE_STATE state;
       WDF_DEVICE_STATE_INIT(&state);
       state.Failed = WdfTrue;
       WdfDeviceSetDeviceState(device, &state);
     },
     "not-modelled in WdfDeviceSetDeviceState"},
    {"another property",
     [](WDFDEVICE device) {
       ULONG bytes = 0;
       (void)WdfDeviceQueryProperty(device, DevicePropertyBusNumber, 0, nullptr, &bytes);
     },
     "not-modelled in WdfDeviceQueryProperty"},
    {"an alignment that is no mask", [](WDFDEVICE device) { WdfDeviceSetAlignmentRequirement(device, 8); },
     "invalid-argument in WdfDeviceSetAlignmentRequirement"},
    {"an idle state of D2",
     [](WDFDEVICE device) {
       WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
       WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
       idle.DxState = PowerDeviceD2;
       (void)WdfDeviceAssignS0IdleSettings(device, &idle);
     },
     "not-modelled in WdfDeviceAssignS0IdleSettings"},
    {"a registry key above PASSIVE_LEVEL",
     [](WDFDEVICE device) {
       KIRQL before;
       KeRaiseIrql(DISPATCH_LEVEL, &before);
       WDFKEY key = nullptr;
       (void)WdfDeviceOpenRegistryKey(device, PLUGPLAY_REGKEY_DEVICE, KEY_READ, nullptr, &key);
     },
     "irql-too-high in WdfDeviceOpenRegistryKey"},
};

class WdfRefused : public WdfDevice {};
INSTANTIATE_TEST_SUITE_P(Cases, WdfRefused, testing::Range(0u, unsigned{std::size(kRefused)}));

TEST_P(WdfRefused, IsReportedByItsName) {
  SCOPED_TRACE(kRefused[GetParam()].name);
  Started(kRefused[GetParam()].use);
  EXPECT_EQ(Broken(), kRefused[GetParam()].broken);
}

TEST_P(WdfDevice, ACallbackThatReturnsAtAnotherIrqlIsReported) {
  script.onEntry = [](WDFDEVICE) {
    KIRQL before;
    KeRaiseIrql(DISPATCH_LEVEL, &before);
  };
  Start();
  EXPECT_EQ(Broken().substr(0, 13), "callback-irql");
}

TEST_P(WdfDevice, ACallbackThatReturnsWithALockIsReported) {
  static KMUTEX mutex;
  script.onEntry = [](WDFDEVICE) {
    KeInitializeMutex(&mutex, 0);
    KeWaitForSingleObject(&mutex, Executive, KernelMode, FALSE, nullptr);
  };
  Start();
  EXPECT_EQ(Broken().substr(0, 19), "callback-holds-lock");
}

TEST_P(WdfDevice, StartFailsAtEachFaultSiteAndLeavesNothing) {
  for (const char* site : {"WdfDriverCreate", "WdfDeviceCreate"}) {
    SCOPED_TRACE(site);
    simulation.faults().FailNth(site, 1);
    EXPECT_EQ(Start(), STATUS_INSUFFICIENT_RESOURCES);
    host.UnloadDriver();
    EXPECT_EQ(host.LiveObjects(), 0u);
  }
}

BROKEN_BY_TEST(ACallbackThatReturnsAtAnotherIrqlIsReported, CallbackIrql, "EvtDeviceD0Entry")
BROKEN_BY_TEST(ACallbackThatReturnsWithALockIsReported, CallbackHoldsLock, "EvtDeviceD0Entry")
BROKEN_BY_TEST(ABusInterfaceThatIsKeptIsALeak, HandleLeak, "WdfFdoQueryForInterface")
BROKEN_BY_TEST(ARegisterAccessInD3IsReported, RegisterWhilePoweredDown, "READ_REGISTER_ULONG")
BROKEN_BY_TEST(AnInitStructureUsedAfterItsDeviceIsCreatedIsReported, HandleStale, "WdfDeviceInitSetExclusive")
BROKEN_BY_TEST(WdfRefused, InvalidArgument, "WdfDeviceSetDeviceState")
BROKEN_BY_TEST(WdfRefused, NotModelled, "WdfDeviceQueryProperty")
BROKEN_BY_TEST(WdfRefused, IrqlTooHigh, "WdfDeviceOpenRegistryKey")

}  // namespace
}  // namespace wdf_test
