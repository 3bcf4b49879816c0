// The framework's initialisers: each fills its record with the published defaults.
#pragma once
#include "wdf_records.h"

inline VOID WDF_DRIVER_CONFIG_INIT(PWDF_DRIVER_CONFIG Config, PFN_WDF_DRIVER_DEVICE_ADD EvtDriverDeviceAdd) {
  *Config = {};
  Config->Size = sizeof(WDF_DRIVER_CONFIG);
  Config->EvtDriverDeviceAdd = EvtDriverDeviceAdd;
}

inline VOID WDF_OBJECT_ATTRIBUTES_INIT(PWDF_OBJECT_ATTRIBUTES Attributes) {
  *Attributes = {};
  Attributes->Size = sizeof(WDF_OBJECT_ATTRIBUTES);
  Attributes->ExecutionLevel = WdfExecutionLevelInheritFromParent;
  Attributes->SynchronizationScope = WdfSynchronizationScopeInheritFromParent;
}

inline VOID WDF_PNPPOWER_EVENT_CALLBACKS_INIT(PWDF_PNPPOWER_EVENT_CALLBACKS Callbacks) {
  *Callbacks = {};
  Callbacks->Size = sizeof(WDF_PNPPOWER_EVENT_CALLBACKS);
}

inline VOID WDF_DEVICE_STATE_INIT(PWDF_DEVICE_STATE PnpDeviceState) {
  *PnpDeviceState = {};
  PnpDeviceState->Size = sizeof(WDF_DEVICE_STATE);
  PnpDeviceState->Disabled = WdfUseDefault;
  PnpDeviceState->DontDisplayInUI = WdfUseDefault;
  PnpDeviceState->Failed = WdfUseDefault;
  PnpDeviceState->NotDisableable = WdfUseDefault;
  PnpDeviceState->Removed = WdfUseDefault;
  PnpDeviceState->ResourcesChanged = WdfUseDefault;
  PnpDeviceState->AssignedToGuest = WdfUseDefault;
}

inline VOID WDF_DEVICE_PNP_CAPABILITIES_INIT(PWDF_DEVICE_PNP_CAPABILITIES Caps) {
  *Caps = {};
  Caps->Size = sizeof(WDF_DEVICE_PNP_CAPABILITIES);
  Caps->LockSupported = WdfUseDefault;
  Caps->EjectSupported = WdfUseDefault;
  Caps->Removable = WdfUseDefault;
  Caps->DockDevice = WdfUseDefault;
  Caps->UniqueID = WdfUseDefault;
  Caps->SilentInstall = WdfUseDefault;
  Caps->SurpriseRemovalOK = WdfUseDefault;
  Caps->HardwareDisabled = WdfUseDefault;
  Caps->NoDisplayInUI = WdfUseDefault;
  Caps->Address = ~ULONG{0};
  Caps->UINumber = ~ULONG{0};
}

inline VOID WDF_DEVICE_POWER_CAPABILITIES_INIT(PWDF_DEVICE_POWER_CAPABILITIES Caps) {
  *Caps = {};
  Caps->Size = sizeof(WDF_DEVICE_POWER_CAPABILITIES);
  Caps->DeviceD1 = WdfUseDefault;
  Caps->DeviceD2 = WdfUseDefault;
  Caps->WakeFromD0 = WdfUseDefault;
  Caps->WakeFromD1 = WdfUseDefault;
  Caps->WakeFromD2 = WdfUseDefault;
  Caps->WakeFromD3 = WdfUseDefault;
  for (DEVICE_POWER_STATE& state : Caps->DeviceState) state = PowerDeviceMaximum;
  Caps->DeviceWake = PowerDeviceMaximum;
  Caps->SystemWake = PowerSystemMaximum;
  Caps->D1Latency = ~ULONG{0};
  Caps->D2Latency = ~ULONG{0};
  Caps->D3Latency = ~ULONG{0};
  Caps->IdealDxStateForSx = PowerDeviceMaximum;
}

// Who can wake lets the bus choose the sleep state; who cannot goes to D3.
inline VOID WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS_INIT(PWDF_DEVICE_POWER_POLICY_IDLE_SETTINGS Settings,
                                                       WDF_POWER_POLICY_S0_IDLE_CAPABILITIES IdleCaps) {
  *Settings = {};
  Settings->Size = sizeof(WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS);
  Settings->IdleCaps = IdleCaps;
  Settings->DxState = IdleCaps == IdleCannotWakeFromS0 ? PowerDeviceD3 : PowerDeviceMaximum;
  Settings->IdleTimeout = 0;
  Settings->UserControlOfIdleSettings = IdleAllowUserControl;
  Settings->Enabled = WdfUseDefault;
  Settings->PowerUpIdleDeviceOnSystemWake = WdfUseDefault;
  Settings->IdleTimeoutType = DriverManagedIdleTimeout;
  Settings->ExcludeD3Cold = WdfUseDefault;
}

inline VOID WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS_INIT(PWDF_DEVICE_POWER_POLICY_WAKE_SETTINGS Settings) {
  *Settings = {};
  Settings->Size = sizeof(WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS);
  Settings->DxState = PowerDeviceMaximum;
  Settings->UserControlOfWakeSettings = WakeAllowUserControl;
  Settings->Enabled = WdfUseDefault;
}

inline VOID WDF_IO_QUEUE_CONFIG_INIT(PWDF_IO_QUEUE_CONFIG Config, WDF_IO_QUEUE_DISPATCH_TYPE DispatchType) {
  *Config = {};
  Config->Size = sizeof(WDF_IO_QUEUE_CONFIG);
  Config->DispatchType = DispatchType;
  Config->PowerManaged = WdfUseDefault;
  if (DispatchType == WdfIoQueueDispatchParallel) Config->Settings.Parallel.NumberOfPresentedRequests = ~ULONG{0};
}

inline VOID WDF_IO_QUEUE_CONFIG_INIT_DEFAULT_QUEUE(PWDF_IO_QUEUE_CONFIG Config,
                                                   WDF_IO_QUEUE_DISPATCH_TYPE DispatchType) {
  WDF_IO_QUEUE_CONFIG_INIT(Config, DispatchType);
  Config->DefaultQueue = TRUE;
}

inline VOID WDF_INTERRUPT_CONFIG_INIT(PWDF_INTERRUPT_CONFIG Configuration, PFN_WDF_INTERRUPT_ISR EvtInterruptIsr,
                                      PFN_WDF_INTERRUPT_DPC EvtInterruptDpc) {
  *Configuration = {};
  Configuration->Size = sizeof(WDF_INTERRUPT_CONFIG);
  Configuration->ShareVector = WdfUseDefault;
  Configuration->EvtInterruptIsr = EvtInterruptIsr;
  Configuration->EvtInterruptDpc = EvtInterruptDpc;
  Configuration->ReportInactiveOnPowerDown = WdfUseDefault;
}

inline VOID WDF_INTERRUPT_INFO_INIT(PWDF_INTERRUPT_INFO Info) {
  *Info = {};
  Info->Size = sizeof(WDF_INTERRUPT_INFO);
}

inline VOID WDF_DMA_ENABLER_CONFIG_INIT(PWDF_DMA_ENABLER_CONFIG Config, WDF_DMA_PROFILE Profile, size_t MaximumLength) {
  *Config = {};
  Config->Size = sizeof(WDF_DMA_ENABLER_CONFIG);
  Config->Profile = Profile;
  Config->MaximumLength = MaximumLength;
}

inline VOID WDF_COMMON_BUFFER_CONFIG_INIT(PWDF_COMMON_BUFFER_CONFIG Config, ULONG AlignmentRequirement) {
  *Config = {};
  Config->Size = sizeof(WDF_COMMON_BUFFER_CONFIG);
  Config->AlignmentRequirement = AlignmentRequirement;
}

inline VOID WDF_WORKITEM_CONFIG_INIT(PWDF_WORKITEM_CONFIG Config, PFN_WDF_WORKITEM EvtWorkItemFunc) {
  *Config = {};
  Config->Size = sizeof(WDF_WORKITEM_CONFIG);
  Config->EvtWorkItemFunc = EvtWorkItemFunc;
  Config->AutomaticSerialization = TRUE;
}

inline VOID WDF_IO_TARGET_OPEN_PARAMS_INIT_CREATE_BY_NAME(PWDF_IO_TARGET_OPEN_PARAMS Params,
                                                          PCUNICODE_STRING TargetDeviceName,
                                                          ACCESS_MASK DesiredAccess) {
  *Params = {};
  Params->Size = sizeof(WDF_IO_TARGET_OPEN_PARAMS);
  Params->Type = WdfIoTargetOpenByName;
  Params->TargetDeviceName = *TargetDeviceName;
  Params->DesiredAccess = DesiredAccess;
  Params->FileAttributes = FILE_ATTRIBUTE_NORMAL;
  Params->CreateOptions = FILE_NON_DIRECTORY_FILE;
}

inline VOID WDF_IO_TARGET_OPEN_PARAMS_INIT_OPEN_BY_NAME(PWDF_IO_TARGET_OPEN_PARAMS Params,
                                                        PCUNICODE_STRING TargetDeviceName, ACCESS_MASK DesiredAccess) {
  WDF_IO_TARGET_OPEN_PARAMS_INIT_CREATE_BY_NAME(Params, TargetDeviceName, DesiredAccess);
  Params->CreateDisposition = FILE_OPEN;
}

inline VOID WDF_IO_TARGET_OPEN_PARAMS_INIT_EXISTING_DEVICE(PWDF_IO_TARGET_OPEN_PARAMS Params,
                                                           PDEVICE_OBJECT DeviceObject) {
  *Params = {};
  Params->Size = sizeof(WDF_IO_TARGET_OPEN_PARAMS);
  Params->Type = WdfIoTargetOpenUseExistingDevice;
  Params->TargetDeviceObject = DeviceObject;
}

inline VOID WDF_IO_TARGET_OPEN_PARAMS_INIT_REOPEN(PWDF_IO_TARGET_OPEN_PARAMS Params) {
  *Params = {};
  Params->Size = sizeof(WDF_IO_TARGET_OPEN_PARAMS);
  Params->Type = WdfIoTargetOpenReopen;
}

inline VOID WDF_MEMORY_DESCRIPTOR_INIT_BUFFER(PWDF_MEMORY_DESCRIPTOR Descriptor, PVOID Buffer, ULONG BufferLength) {
  *Descriptor = {};
  Descriptor->Type = WdfMemoryDescriptorTypeBuffer;
  Descriptor->u.BufferType.Buffer = Buffer;
  Descriptor->u.BufferType.Length = BufferLength;
}

inline VOID WDF_MEMORY_DESCRIPTOR_INIT_MDL(PWDF_MEMORY_DESCRIPTOR Descriptor, PMDL Mdl, ULONG BufferLength) {
  *Descriptor = {};
  Descriptor->Type = WdfMemoryDescriptorTypeMdl;
  Descriptor->u.MdlType.Mdl = Mdl;
  Descriptor->u.MdlType.BufferLength = BufferLength;
}

inline VOID WDF_MEMORY_DESCRIPTOR_INIT_HANDLE(PWDF_MEMORY_DESCRIPTOR Descriptor, WDFMEMORY Memory,
                                              PWDFMEMORY_OFFSET Offsets) {
  *Descriptor = {};
  Descriptor->Type = WdfMemoryDescriptorTypeHandle;
  Descriptor->u.HandleType.Memory = Memory;
  Descriptor->u.HandleType.Offsets = Offsets;
}

inline VOID WDF_REQUEST_SEND_OPTIONS_INIT(PWDF_REQUEST_SEND_OPTIONS Options, ULONG Flags) {
  *Options = {};
  Options->Size = sizeof(WDF_REQUEST_SEND_OPTIONS);
  Options->Flags = Flags;
}

// `Timeout` as WDF_REL_TIMEOUT_IN_MS gives it.
inline VOID WDF_REQUEST_SEND_OPTIONS_SET_TIMEOUT(PWDF_REQUEST_SEND_OPTIONS Options, LONGLONG Timeout) {
  Options->Flags |= WDF_REQUEST_SEND_OPTION_TIMEOUT;
  Options->Timeout = Timeout;
}

inline VOID WDF_REQUEST_PARAMETERS_INIT(PWDF_REQUEST_PARAMETERS Parameters) {
  *Parameters = {};
  Parameters->Size = sizeof(WDF_REQUEST_PARAMETERS);
}

inline VOID WDF_CHILD_LIST_CONFIG_INIT(PWDF_CHILD_LIST_CONFIG Config, ULONG IdentificationDescriptionSize,
                                       PFN_WDF_CHILD_LIST_CREATE_DEVICE EvtChildListCreateDevice) {
  *Config = {};
  Config->Size = sizeof(WDF_CHILD_LIST_CONFIG);
  Config->IdentificationDescriptionSize = IdentificationDescriptionSize;
  Config->EvtChildListCreateDevice = EvtChildListCreateDevice;
}

inline VOID WDF_CHILD_IDENTIFICATION_DESCRIPTION_HEADER_INIT(PWDF_CHILD_IDENTIFICATION_DESCRIPTION_HEADER Header,
                                                             ULONG IdentificationDescriptionSize) {
  *Header = {};
  Header->IdentificationDescriptionSize = IdentificationDescriptionSize;
}

inline VOID WDF_CHILD_LIST_ITERATOR_INIT(PWDF_CHILD_LIST_ITERATOR Iterator, ULONG Flags) {
  *Iterator = {};
  Iterator->Size = sizeof(WDF_CHILD_LIST_ITERATOR);
  Iterator->Flags = Flags;
}

inline VOID WDF_QUERY_INTERFACE_CONFIG_INIT(
    PWDF_QUERY_INTERFACE_CONFIG InterfaceConfig, PINTERFACE Interface, CONST GUID* InterfaceType,
    PFN_WDF_DEVICE_PROCESS_QUERY_INTERFACE_REQUEST EvtDeviceProcessQueryInterfaceRequest) {
  *InterfaceConfig = {};
  InterfaceConfig->Size = sizeof(WDF_QUERY_INTERFACE_CONFIG);
  InterfaceConfig->Interface = Interface;
  InterfaceConfig->InterfaceType = InterfaceType;
  InterfaceConfig->EvtDeviceProcessQueryInterfaceRequest = EvtDeviceProcessQueryInterfaceRequest;
}
