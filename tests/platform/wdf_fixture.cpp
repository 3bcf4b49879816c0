#include "wdf_fixture.h"

namespace wdf_test {

using namespace platform;

namespace {

constexpr std::uint64_t kMemoryStart = 0x90000000;
Script* script = nullptr;
}  // namespace

void Write(const std::string& line) {
  script->log += line + "\n";
}

namespace {
std::string From(const char* step, WDF_POWER_DEVICE_STATE state) {
  return std::string(step) + " " + std::to_string(static_cast<int>(state));
}
void Run(const std::function<void(WDFDEVICE)>& hook, WDFDEVICE device) {
  if (hook) hook(device);
}

NTSTATUS PrepareHardware(WDFDEVICE device, WDFCMRESLIST raw, WDFCMRESLIST translated) {
  Write("prepare");
  if (script->onPrepare) script->onPrepare(device, raw, translated);
  return script->prepare;
}
NTSTATUS ReleaseHardware(WDFDEVICE device, WDFCMRESLIST) {
  Write("release");
  Run(script->onRelease, device);
  return STATUS_SUCCESS;
}
NTSTATUS D0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE previous) {
  Write(From("D0 entry from", previous));
  Run(script->onEntry, device);
  return previous == WdfPowerDeviceD3 ? script->entryFromD3 : script->entry;
}
NTSTATUS PostInterruptsEnabled(WDFDEVICE device, WDF_POWER_DEVICE_STATE previous) {
  Write(From("post-interrupts from", previous));
  Run(script->onPost, device);
  return script->post;
}
NTSTATUS PreInterruptsDisabled(WDFDEVICE device, WDF_POWER_DEVICE_STATE target) {
  Write(From("pre-interrupts to", target));
  Run(script->onPre, device);
  return STATUS_SUCCESS;
}
NTSTATUS D0Exit(WDFDEVICE device, WDF_POWER_DEVICE_STATE target) {
  Write(From("D0 exit to", target));
  Run(script->onExit, device);
  return STATUS_SUCCESS;
}
VOID SurpriseRemoval(WDFDEVICE) {
  Write("surprise removal");
}
VOID DeviceCleanup(WDFOBJECT) {
  Write("device cleanup");
}
VOID DriverCleanup(WDFOBJECT) {
  Write("driver cleanup");
}

NTSTATUS DeviceAdd(WDFDRIVER, PWDFDEVICE_INIT init) {
  Write("add");
  WDF_PNPPOWER_EVENT_CALLBACKS callbacks;
  WDF_PNPPOWER_EVENT_CALLBACKS_INIT(&callbacks);
  callbacks.EvtDevicePrepareHardware = PrepareHardware;
  callbacks.EvtDeviceReleaseHardware = ReleaseHardware;
  callbacks.EvtDeviceD0Entry = D0Entry;
  callbacks.EvtDeviceD0Exit = D0Exit;
  callbacks.EvtDeviceD0EntryPostInterruptsEnabled = PostInterruptsEnabled;
  callbacks.EvtDeviceD0ExitPreInterruptsDisabled = PreInterruptsDisabled;
  callbacks.EvtDeviceSurpriseRemoval = SurpriseRemoval;
  WdfDeviceInitSetPnpPowerEventCallbacks(init, &callbacks);
  if (script->onInit) script->onInit(init);
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT_CONTEXT_TYPE(&attributes, Context);
  attributes.EvtCleanupCallback = DeviceCleanup;
  WDFDEVICE device = nullptr;
  const NTSTATUS status = WdfDeviceCreate(&init, &attributes, &device);
  if (!NT_SUCCESS(status)) return status;
  GetContext(device)->Device = device;
  Run(script->onAdd, device);
  return script->add;
}

VOID DriverUnload(WDFDRIVER) {
  Write("unload");
}

}  // namespace

Status DriverEntry(_DRIVER_OBJECT* driverObject, _UNICODE_STRING* registryPath) {
  WDF_DRIVER_CONFIG config;
  WDF_DRIVER_CONFIG_INIT(&config, DeviceAdd);
  config.EvtDriverUnload = DriverUnload;
  WDF_OBJECT_ATTRIBUTES attributes;
  WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
  attributes.EvtCleanupCallback = DriverCleanup;
  return WdfDriverCreate(driverObject, registryPath, &attributes, &config, WDF_NO_HANDLE);
}

void PlainFunction::SetPower(FunctionPower power) {
  constexpr const char* kNames[] = {"function D0\n", "function D3hot\n", "function off\n"};
  events_ += kNames[static_cast<int>(power)];
}

SimulationOptions OptionsFor(unsigned seed) {
  SimulationOptions options;
  options.policy = seed == 0 ? Policy::FirstCome : seed % 3 == 0 ? Policy::Priority : Policy::Uniform;
  options.seed = seed;
  return options;
}

DriverRig::DriverRig(SimulationOptions options) : simulation(std::move(options)) {
  wdf_test::script = &script;
  config.hardwareId = "PCI\\VEN_1F3A&DEV_3A0E&SUBSYS_00000000";
  config.model = &function;
  config.resources = {{Resource::Kind::Interrupt, 0, 0, 0},
                      {Resource::Kind::Memory, kMemoryStart, kMemoryBytes, 0},
                      {Resource::Kind::Interrupt, 0, 0, 1}};
}

Status DriverRig::Start() {
  const Status status = host.LoadDriver(&DriverEntry);
  return NT_SUCCESS(status) ? host.AddAndStart(config, &id) : status;
}

void DriverRig::InDriver(std::function<void(WDFDEVICE)> body) {
  simulation.RunTask(&host, "test", [this, body] { body(static_cast<WDFDEVICE>(host.FrameworkDevice(id))); });
}

void DriverRig::WithDevice(std::function<void(WDFDEVICE)> body) {
  ASSERT_EQ(Start(), 0);
  InDriver(std::move(body));
}

void DriverRig::RunToIdle() {
  ASSERT_EQ(simulation.RunUntil([&] { return host.Power(id) == DevicePower::D3; }, simulation.Now() + 60 * kSecond),
            Outcome::Done);
  Log();
}

void DriverRig::Settle() {
  ASSERT_EQ(simulation.RunUntil([&] { return !host.Busy(); }, simulation.Now() + 60 * kSecond), Outcome::Done);
}

void DriverRig::Finish() {
  if (host.State(id) == PnpState::Started) host.Remove(id);
  Unload();
}

std::string DriverRig::Log() {
  return std::exchange(script.log, {});
}

void AssignIdle(WDFDEVICE device, ULONG timeoutMs) {
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS idle;
  WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(&idle, IdleCanWakeFromS0);
  idle.IdleTimeout = timeoutMs;
  EXPECT_EQ(WdfDeviceAssignS0IdleSettings(device, &idle), 0);
}

void AssignWake(WDFDEVICE device) {
  WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS wake;
  WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS_INIT(&wake);
  EXPECT_EQ(WdfDeviceAssignSxWakeSettings(device, &wake), 0);
}

ULONG* MapRegisters() {
  PHYSICAL_ADDRESS address;
  address.QuadPart = kMemoryStart;
  return static_cast<ULONG*>(MmMapIoSpaceEx(address, kMemoryBytes, PAGE_READWRITE | PAGE_NOCACHE));
}

void WdfTest::TearDown() {
  if (checked_) return;
  if (host.DriverLoaded()) Finish();
  EXPECT_EQ(Broken(), "");
}

std::string WdfTest::Broken() {
  checked_ = true;
  std::string text = simulation.HangReport();
  for (const Violation& violation : simulation.violations()) {
    if (!text.empty()) text += "; ";
    text += std::string(RuleName(violation.rule)) + " in " + violation.call;
  }
  return text;
}

}  // namespace wdf_test
