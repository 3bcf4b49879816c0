// The framework's records, fields in the published order.
#pragma once
#include "wdf_callbacks.h"

typedef const struct _WDF_OBJECT_CONTEXT_TYPE_INFO* PCWDF_OBJECT_CONTEXT_TYPE_INFO;
typedef PCWDF_OBJECT_CONTEXT_TYPE_INFO (*PFN_GET_UNIQUE_CONTEXT_TYPE)(VOID);

typedef struct _WDFMEMORY_OFFSET {
  size_t BufferOffset;
  size_t BufferLength;
} WDFMEMORY_OFFSET, *PWDFMEMORY_OFFSET;

typedef struct _WDF_DRIVER_CONFIG {
  ULONG Size;
  PFN_WDF_DRIVER_DEVICE_ADD EvtDriverDeviceAdd;
  PFN_WDF_DRIVER_UNLOAD EvtDriverUnload;
  ULONG DriverInitFlags;
  ULONG DriverPoolTag;
} WDF_DRIVER_CONFIG, *PWDF_DRIVER_CONFIG;

typedef struct _WDF_PNPPOWER_EVENT_CALLBACKS {
  ULONG Size;
  PFN_WDF_DEVICE_D0_ENTRY EvtDeviceD0Entry;
  PFN_WDF_DEVICE_D0_ENTRY_POST_INTERRUPTS_ENABLED EvtDeviceD0EntryPostInterruptsEnabled;
  PFN_WDF_DEVICE_D0_EXIT EvtDeviceD0Exit;
  PFN_WDF_DEVICE_D0_EXIT_PRE_INTERRUPTS_DISABLED EvtDeviceD0ExitPreInterruptsDisabled;
  PFN_WDF_DEVICE_PREPARE_HARDWARE EvtDevicePrepareHardware;
  PFN_WDF_DEVICE_RELEASE_HARDWARE EvtDeviceReleaseHardware;
  PFN_WDF_DEVICE_SELF_MANAGED_IO_CLEANUP EvtDeviceSelfManagedIoCleanup;
  PFN_WDF_DEVICE_SELF_MANAGED_IO_FLUSH EvtDeviceSelfManagedIoFlush;
  PFN_WDF_DEVICE_SELF_MANAGED_IO_INIT EvtDeviceSelfManagedIoInit;
  PFN_WDF_DEVICE_SELF_MANAGED_IO_SUSPEND EvtDeviceSelfManagedIoSuspend;
  PFN_WDF_DEVICE_SELF_MANAGED_IO_RESTART EvtDeviceSelfManagedIoRestart;
  PFN_WDF_DEVICE_SURPRISE_REMOVAL EvtDeviceSurpriseRemoval;
  PFN_WDF_DEVICE_QUERY_REMOVE EvtDeviceQueryRemove;
  PFN_WDF_DEVICE_QUERY_STOP EvtDeviceQueryStop;
  PFN_WDF_DEVICE_USAGE_NOTIFICATION EvtDeviceUsageNotification;
  PFN_WDF_DEVICE_RELATIONS_QUERY EvtDeviceRelationsQuery;
  PFN_WDF_DEVICE_USAGE_NOTIFICATION_EX EvtDeviceUsageNotificationEx;
} WDF_PNPPOWER_EVENT_CALLBACKS, *PWDF_PNPPOWER_EVENT_CALLBACKS;

typedef struct _WDF_OBJECT_ATTRIBUTES {
  ULONG Size;
  PFN_WDF_OBJECT_CONTEXT_CLEANUP EvtCleanupCallback;
  PFN_WDF_OBJECT_CONTEXT_DESTROY EvtDestroyCallback;
  WDF_EXECUTION_LEVEL ExecutionLevel;
  WDF_SYNCHRONIZATION_SCOPE SynchronizationScope;
  WDFOBJECT ParentObject;
  size_t ContextSizeOverride;
  PCWDF_OBJECT_CONTEXT_TYPE_INFO ContextTypeInfo;
} WDF_OBJECT_ATTRIBUTES, *PWDF_OBJECT_ATTRIBUTES;

typedef struct _WDF_OBJECT_CONTEXT_TYPE_INFO {
  ULONG Size;
  LPCSTR ContextName;
  size_t ContextSize;
  PCWDF_OBJECT_CONTEXT_TYPE_INFO UniqueType;
  PFN_GET_UNIQUE_CONTEXT_TYPE EvtDriverGetUniqueContextType;
} WDF_OBJECT_CONTEXT_TYPE_INFO, *PWDF_OBJECT_CONTEXT_TYPE_INFO;

typedef struct _WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS {
  ULONG Size;
  WDF_POWER_POLICY_S0_IDLE_CAPABILITIES IdleCaps;
  DEVICE_POWER_STATE DxState;
  ULONG IdleTimeout;
  WDF_POWER_POLICY_S0_IDLE_USER_CONTROL UserControlOfIdleSettings;
  WDF_TRI_STATE Enabled;
  WDF_TRI_STATE PowerUpIdleDeviceOnSystemWake;
  WDF_POWER_POLICY_IDLE_TIMEOUT_TYPE IdleTimeoutType;
  WDF_TRI_STATE ExcludeD3Cold;
} WDF_DEVICE_POWER_POLICY_IDLE_SETTINGS, *PWDF_DEVICE_POWER_POLICY_IDLE_SETTINGS;

typedef struct _WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS {
  ULONG Size;
  DEVICE_POWER_STATE DxState;
  WDF_POWER_POLICY_SX_WAKE_USER_CONTROL UserControlOfWakeSettings;
  WDF_TRI_STATE Enabled;
  BOOLEAN ArmForWakeIfChildrenAreArmedForWake;
  BOOLEAN IndicateChildWakeOnParentWake;
} WDF_DEVICE_POWER_POLICY_WAKE_SETTINGS, *PWDF_DEVICE_POWER_POLICY_WAKE_SETTINGS;

typedef struct _WDF_DEVICE_STATE {
  ULONG Size;
  WDF_TRI_STATE Disabled;
  WDF_TRI_STATE DontDisplayInUI;
  WDF_TRI_STATE Failed;
  WDF_TRI_STATE NotDisableable;
  WDF_TRI_STATE Removed;
  WDF_TRI_STATE ResourcesChanged;
  WDF_TRI_STATE AssignedToGuest;
} WDF_DEVICE_STATE, *PWDF_DEVICE_STATE;

typedef struct _WDF_IO_QUEUE_CONFIG {
  ULONG Size;
  WDF_IO_QUEUE_DISPATCH_TYPE DispatchType;
  WDF_TRI_STATE PowerManaged;
  BOOLEAN AllowZeroLengthRequests;
  BOOLEAN DefaultQueue;
  PFN_WDF_IO_QUEUE_IO_DEFAULT EvtIoDefault;
  PFN_WDF_IO_QUEUE_IO_READ EvtIoRead;
  PFN_WDF_IO_QUEUE_IO_WRITE EvtIoWrite;
  PFN_WDF_IO_QUEUE_IO_DEVICE_CONTROL EvtIoDeviceControl;
  PFN_WDF_IO_QUEUE_IO_INTERNAL_DEVICE_CONTROL EvtIoInternalDeviceControl;
  PFN_WDF_IO_QUEUE_IO_STOP EvtIoStop;
  PFN_WDF_IO_QUEUE_IO_RESUME EvtIoResume;
  PFN_WDF_IO_QUEUE_IO_CANCELED_ON_QUEUE EvtIoCanceledOnQueue;
  union {
    struct {
      ULONG NumberOfPresentedRequests;
    } Parallel;
  } Settings;
  WDFDRIVER Driver;
} WDF_IO_QUEUE_CONFIG, *PWDF_IO_QUEUE_CONFIG;

typedef struct _WDF_INTERRUPT_CONFIG {
  ULONG Size;
  WDFSPINLOCK SpinLock;
  WDF_TRI_STATE ShareVector;
  BOOLEAN FloatingSave;
  BOOLEAN AutomaticSerialization;
  PFN_WDF_INTERRUPT_ISR EvtInterruptIsr;
  PFN_WDF_INTERRUPT_DPC EvtInterruptDpc;
  PFN_WDF_INTERRUPT_ENABLE EvtInterruptEnable;
  PFN_WDF_INTERRUPT_DISABLE EvtInterruptDisable;
  PFN_WDF_INTERRUPT_WORKITEM EvtInterruptWorkItem;
  PCM_PARTIAL_RESOURCE_DESCRIPTOR InterruptRaw;
  PCM_PARTIAL_RESOURCE_DESCRIPTOR InterruptTranslated;
  WDFWAITLOCK WaitLock;
  BOOLEAN PassiveHandling;
  WDF_TRI_STATE ReportInactiveOnPowerDown;
  BOOLEAN CanWakeDevice;
} WDF_INTERRUPT_CONFIG, *PWDF_INTERRUPT_CONFIG;

typedef struct _WDF_INTERRUPT_INFO {
  ULONG Size;
  ULONG64 Reserved1;
  KAFFINITY TargetProcessorSet;
  ULONG Reserved2;
  ULONG MessageNumber;
  ULONG Vector;
  KIRQL Irql;
  KINTERRUPT_MODE Mode;
  WDF_INTERRUPT_POLARITY Polarity;
  BOOLEAN MessageSignaled;
  UCHAR ShareDisposition;
  DECLSPEC_ALIGN(8) USHORT Group;
} WDF_INTERRUPT_INFO, *PWDF_INTERRUPT_INFO;

typedef struct _WDF_DMA_ENABLER_CONFIG {
  ULONG Size;
  WDF_DMA_PROFILE Profile;
  size_t MaximumLength;
  PFN_WDF_DMA_ENABLER_FILL EvtDmaEnablerFill;
  PFN_WDF_DMA_ENABLER_FLUSH EvtDmaEnablerFlush;
  PFN_WDF_DMA_ENABLER_DISABLE EvtDmaEnablerDisable;
  PFN_WDF_DMA_ENABLER_ENABLE EvtDmaEnablerEnable;
  PFN_WDF_DMA_ENABLER_SELFMANAGED_IO_START EvtDmaEnablerSelfManagedIoStart;
  PFN_WDF_DMA_ENABLER_SELFMANAGED_IO_STOP EvtDmaEnablerSelfManagedIoStop;
  ULONG AddressWidthOverride;
  ULONG WdmDmaVersionOverride;
  ULONG Flags;
} WDF_DMA_ENABLER_CONFIG, *PWDF_DMA_ENABLER_CONFIG;

typedef struct _WDF_COMMON_BUFFER_CONFIG {
  ULONG Size;
  ULONG AlignmentRequirement;
} WDF_COMMON_BUFFER_CONFIG, *PWDF_COMMON_BUFFER_CONFIG;

typedef struct _WDF_WORKITEM_CONFIG {
  ULONG Size;
  PFN_WDF_WORKITEM EvtWorkItemFunc;
  BOOLEAN AutomaticSerialization;
} WDF_WORKITEM_CONFIG, *PWDF_WORKITEM_CONFIG;

typedef struct _WDF_IO_TARGET_OPEN_PARAMS {
  ULONG Size;
  WDF_IO_TARGET_OPEN_TYPE Type;
  PFN_WDF_IO_TARGET_QUERY_REMOVE EvtIoTargetQueryRemove;
  PFN_WDF_IO_TARGET_REMOVE_CANCELED EvtIoTargetRemoveCanceled;
  PFN_WDF_IO_TARGET_REMOVE_COMPLETE EvtIoTargetRemoveComplete;
  PDEVICE_OBJECT TargetDeviceObject;
  PFILE_OBJECT TargetFileObject;
  UNICODE_STRING TargetDeviceName;
  ACCESS_MASK DesiredAccess;
  ULONG ShareAccess;
  ULONG FileAttributes;
  ULONG CreateDisposition;
  ULONG CreateOptions;
  PVOID EaBuffer;
  ULONG EaBufferLength;
  PLONGLONG AllocationSize;
  ULONG FileInformation;
  UNICODE_STRING FileName;
} WDF_IO_TARGET_OPEN_PARAMS, *PWDF_IO_TARGET_OPEN_PARAMS;

typedef struct _WDF_MEMORY_DESCRIPTOR {
  WDF_MEMORY_DESCRIPTOR_TYPE Type;
  union {
    struct {
      PVOID Buffer;
      ULONG Length;
    } BufferType;
    struct {
      PMDL Mdl;
      ULONG BufferLength;
    } MdlType;
    struct {
      WDFMEMORY Memory;
      PWDFMEMORY_OFFSET Offsets;
    } HandleType;
  } u;
} WDF_MEMORY_DESCRIPTOR, *PWDF_MEMORY_DESCRIPTOR;

typedef struct _WDF_REQUEST_SEND_OPTIONS {
  ULONG Size;
  ULONG Flags;
  LONGLONG Timeout;
} WDF_REQUEST_SEND_OPTIONS, *PWDF_REQUEST_SEND_OPTIONS;

typedef struct _WDF_CHILD_LIST_CONFIG {
  ULONG Size;
  ULONG IdentificationDescriptionSize;
  ULONG AddressDescriptionSize;
  PFN_WDF_CHILD_LIST_CREATE_DEVICE EvtChildListCreateDevice;
  PFN_WDF_CHILD_LIST_SCAN_FOR_CHILDREN EvtChildListScanForChildren;
  PFN_WDF_CHILD_LIST_IDENTIFICATION_DESCRIPTION_COPY EvtChildListIdentificationDescriptionCopy;
  PFN_WDF_CHILD_LIST_IDENTIFICATION_DESCRIPTION_DUPLICATE EvtChildListIdentificationDescriptionDuplicate;
  PFN_WDF_CHILD_LIST_IDENTIFICATION_DESCRIPTION_CLEANUP EvtChildListIdentificationDescriptionCleanup;
  PFN_WDF_CHILD_LIST_IDENTIFICATION_DESCRIPTION_COMPARE EvtChildListIdentificationDescriptionCompare;
  PFN_WDF_CHILD_LIST_ADDRESS_DESCRIPTION_COPY EvtChildListAddressDescriptionCopy;
  PFN_WDF_CHILD_LIST_ADDRESS_DESCRIPTION_DUPLICATE EvtChildListAddressDescriptionDuplicate;
  PFN_WDF_CHILD_LIST_ADDRESS_DESCRIPTION_CLEANUP EvtChildListAddressDescriptionCleanup;
  PFN_WDF_CHILD_LIST_DEVICE_REENUMERATED EvtChildListDeviceReenumerated;
} WDF_CHILD_LIST_CONFIG, *PWDF_CHILD_LIST_CONFIG;

typedef struct _WDF_CHILD_IDENTIFICATION_DESCRIPTION_HEADER {
  ULONG IdentificationDescriptionSize;
} WDF_CHILD_IDENTIFICATION_DESCRIPTION_HEADER;

typedef struct _WDF_DEVICE_PNP_CAPABILITIES {
  ULONG Size;
  WDF_TRI_STATE LockSupported;
  WDF_TRI_STATE EjectSupported;
  WDF_TRI_STATE Removable;
  WDF_TRI_STATE DockDevice;
  WDF_TRI_STATE UniqueID;
  WDF_TRI_STATE SilentInstall;
  WDF_TRI_STATE SurpriseRemovalOK;
  WDF_TRI_STATE HardwareDisabled;
  WDF_TRI_STATE NoDisplayInUI;
  ULONG Address;
  ULONG UINumber;
} WDF_DEVICE_PNP_CAPABILITIES, *PWDF_DEVICE_PNP_CAPABILITIES;

typedef struct _WDF_DEVICE_POWER_CAPABILITIES {
  ULONG Size;
  WDF_TRI_STATE DeviceD1;
  WDF_TRI_STATE DeviceD2;
  WDF_TRI_STATE WakeFromD0;
  WDF_TRI_STATE WakeFromD1;
  WDF_TRI_STATE WakeFromD2;
  WDF_TRI_STATE WakeFromD3;
  DEVICE_POWER_STATE DeviceState[PowerSystemMaximum];
  DEVICE_POWER_STATE DeviceWake;
  SYSTEM_POWER_STATE SystemWake;
  ULONG D1Latency;
  ULONG D2Latency;
  ULONG D3Latency;
  DEVICE_POWER_STATE IdealDxStateForSx;
} WDF_DEVICE_POWER_CAPABILITIES, *PWDF_DEVICE_POWER_CAPABILITIES;

typedef struct _WDF_QUERY_INTERFACE_CONFIG {
  ULONG Size;
  PINTERFACE Interface;
  CONST GUID* InterfaceType;
  BOOLEAN SendQueryToParentStack;
  PFN_WDF_DEVICE_PROCESS_QUERY_INTERFACE_REQUEST EvtDeviceProcessQueryInterfaceRequest;
  BOOLEAN ImportInterface;
} WDF_QUERY_INTERFACE_CONFIG, *PWDF_QUERY_INTERFACE_CONFIG;

typedef struct _WDF_REQUEST_PARAMETERS {
  USHORT Size;
  UCHAR MinorFunction;
  WDF_REQUEST_TYPE Type;
  union {
    struct {
      PIO_SECURITY_CONTEXT SecurityContext;
      ULONG Options;
      USHORT POINTER_ALIGNMENT FileAttributes;
      USHORT ShareAccess;
      ULONG POINTER_ALIGNMENT EaLength;
    } Create;
    struct {
      size_t Length;
      ULONG POINTER_ALIGNMENT Key;
      LONGLONG DeviceOffset;
    } Read;
    struct {
      size_t Length;
      ULONG POINTER_ALIGNMENT Key;
      LONGLONG DeviceOffset;
    } Write;
    struct {
      size_t OutputBufferLength;
      size_t POINTER_ALIGNMENT InputBufferLength;
      ULONG POINTER_ALIGNMENT IoControlCode;
      PVOID Type3InputBuffer;
    } DeviceIoControl;
    struct {
      PVOID Arg1;
      PVOID Arg2;
      ULONG POINTER_ALIGNMENT IoControlCode;
      PVOID Arg4;
    } Others;
  } Parameters;
} WDF_REQUEST_PARAMETERS, *PWDF_REQUEST_PARAMETERS;

typedef struct _WDF_CHILD_LIST_ITERATOR {
  ULONG Size;
  ULONG Flags;
  PVOID Reserved[4];
} WDF_CHILD_LIST_ITERATOR, *PWDF_CHILD_LIST_ITERATOR;

typedef struct _WDF_CHILD_ADDRESS_DESCRIPTION_HEADER {
  ULONG AddressDescriptionSize;
} WDF_CHILD_ADDRESS_DESCRIPTION_HEADER;
