// The framework's handles and enumerations. One header for both builds: behind this layer's <ntddk.h> on Linux and
// behind the published one in the Windows compile check.
#pragma once

// Handles: distinct pointer types to records that exist nowhere, so that one kind is not taken for another.
typedef HANDLE WDFOBJECT;
typedef struct WDFDRIVER__* WDFDRIVER;
typedef struct WDFDEVICE__* WDFDEVICE;
typedef struct WDFQUEUE__* WDFQUEUE;
typedef struct WDFREQUEST__* WDFREQUEST;
typedef struct WDFFILEOBJECT__* WDFFILEOBJECT;
typedef struct WDFINTERRUPT__* WDFINTERRUPT;
typedef struct WDFDMAENABLER__* WDFDMAENABLER;
typedef struct WDFCOMMONBUFFER__* WDFCOMMONBUFFER;
typedef struct WDFWORKITEM__* WDFWORKITEM;
typedef struct WDFIOTARGET__* WDFIOTARGET;
typedef struct WDFCHILDLIST__* WDFCHILDLIST;
typedef struct WDFKEY__* WDFKEY;
typedef struct WDFMEMORY__* WDFMEMORY;
typedef struct WDFSTRING__* WDFSTRING;
typedef struct WDFCMRESLIST__* WDFCMRESLIST;
typedef struct WDFSPINLOCK__* WDFSPINLOCK;
typedef struct WDFWAITLOCK__* WDFWAITLOCK;
typedef struct WDFDEVICE_INIT__* PWDFDEVICE_INIT;
typedef struct WDFDEVICE_INIT__ WDFDEVICE_INIT;
typedef PVOID WDFCONTEXT;

typedef enum _WDF_DEVICE_IO_TYPE {
  WdfDeviceIoUndefined = 0,
  WdfDeviceIoNeither,
  WdfDeviceIoBuffered,
  WdfDeviceIoDirect,
  WdfDeviceIoBufferedOrDirect = 4,
  WdfDeviceIoMaximum,
} WDF_DEVICE_IO_TYPE,
    *PWDF_DEVICE_IO_TYPE;

typedef enum _WDF_POWER_DEVICE_STATE {
  WdfPowerDeviceInvalid = 0,
  WdfPowerDeviceD0,
  WdfPowerDeviceD1,
  WdfPowerDeviceD2,
  WdfPowerDeviceD3,
  WdfPowerDeviceD3Final,
  WdfPowerDevicePrepareForHibernation,
  WdfPowerDeviceMaximum,
} WDF_POWER_DEVICE_STATE,
    *PWDF_POWER_DEVICE_STATE;

typedef enum _WDF_IO_QUEUE_DISPATCH_TYPE {
  WdfIoQueueDispatchInvalid = 0,
  WdfIoQueueDispatchSequential,
  WdfIoQueueDispatchParallel,
  WdfIoQueueDispatchManual,
  WdfIoQueueDispatchMax,
} WDF_IO_QUEUE_DISPATCH_TYPE,
    *PWDF_IO_QUEUE_DISPATCH_TYPE;

typedef enum _WDF_REQUEST_TYPE {
  WdfRequestTypeCreate = 0x0,
  WdfRequestTypeCreateNamedPipe = 0x1,
  WdfRequestTypeClose = 0x2,
  WdfRequestTypeRead = 0x3,
  WdfRequestTypeWrite = 0x4,
  WdfRequestTypeQueryInformation = 0x5,
  WdfRequestTypeSetInformation = 0x6,
  WdfRequestTypeQueryEA = 0x7,
  WdfRequestTypeSetEA = 0x8,
  WdfRequestTypeFlushBuffers = 0x9,
  WdfRequestTypeQueryVolumeInformation = 0xa,
  WdfRequestTypeSetVolumeInformation = 0xb,
  WdfRequestTypeDirectoryControl = 0xc,
  WdfRequestTypeFileSystemControl = 0xd,
  WdfRequestTypeDeviceControl = 0xe,
  WdfRequestTypeDeviceControlInternal = 0xf,
  WdfRequestTypeShutdown = 0x10,
  WdfRequestTypeLockControl = 0x11,
  WdfRequestTypeCleanup = 0x12,
  WdfRequestTypeCreateMailSlot = 0x13,
  WdfRequestTypeQuerySecurity = 0x14,
  WdfRequestTypeSetSecurity = 0x15,
  WdfRequestTypePower = 0x16,
  WdfRequestTypeSystemControl = 0x17,
  WdfRequestTypeDeviceChange = 0x18,
  WdfRequestTypeQueryQuota = 0x19,
  WdfRequestTypeSetQuota = 0x1A,
  WdfRequestTypePnp = 0x1B,
  WdfRequestTypeOther = 0x1C,
  WdfRequestTypeUsb = 0x40,
  WdfRequestTypeNoFormat = 0xFF,
  WdfRequestTypeMax,
} WDF_REQUEST_TYPE,
    *PWDF_REQUEST_TYPE;

typedef enum _WDF_EXECUTION_LEVEL {
  WdfExecutionLevelInvalid = 0x00,
  WdfExecutionLevelInheritFromParent,
  WdfExecutionLevelPassive,
  WdfExecutionLevelDispatch,
} WDF_EXECUTION_LEVEL,
    *PWDF_EXECUTION_LEVEL;

typedef enum _WDF_SYNCHRONIZATION_SCOPE {
  WdfSynchronizationScopeInvalid = 0x00,
  WdfSynchronizationScopeInheritFromParent,
  WdfSynchronizationScopeDevice,
  WdfSynchronizationScopeQueue,
  WdfSynchronizationScopeNone,
} WDF_SYNCHRONIZATION_SCOPE,
    *PWDF_SYNCHRONIZATION_SCOPE;

typedef enum _WDF_TRI_STATE {
  WdfFalse = FALSE,
  WdfTrue = TRUE,
  WdfUseDefault = 2,
} WDF_TRI_STATE,
    *PWDF_TRI_STATE;

typedef enum _WDF_DMA_PROFILE {
  WdfDmaProfileInvalid = 0,
  WdfDmaProfilePacket,
  WdfDmaProfileScatterGather,
  WdfDmaProfilePacket64,
  WdfDmaProfileScatterGather64,
  WdfDmaProfileScatterGatherDuplex,
  WdfDmaProfileScatterGather64Duplex,
  WdfDmaProfileSystem,
  WdfDmaProfileSystemDuplex,
} WDF_DMA_PROFILE,
    *PWDF_DMA_PROFILE;

typedef enum _WDF_DMA_DIRECTION {
  WdfDmaDirectionReadFromDevice = FALSE,
  WdfDmaDirectionWriteToDevice = TRUE,
} WDF_DMA_DIRECTION,
    *PWDF_DMA_DIRECTION;

typedef enum _WDF_POWER_POLICY_S0_IDLE_CAPABILITIES {
  IdleCapsInvalid = 0,
  IdleCannotWakeFromS0,
  IdleCanWakeFromS0,
  IdleUsbSelectiveSuspend,
} WDF_POWER_POLICY_S0_IDLE_CAPABILITIES,
    *PWDF_POWER_POLICY_S0_IDLE_CAPABILITIES;

typedef enum _WDF_POWER_POLICY_S0_IDLE_USER_CONTROL {
  IdleUserControlInvalid = 0,
  IdleDoNotAllowUserControl,
  IdleAllowUserControl,
} WDF_POWER_POLICY_S0_IDLE_USER_CONTROL,
    *PWDF_POWER_POLICY_S0_IDLE_USER_CONTROL;

typedef enum _WDF_IO_TARGET_OPEN_TYPE {
  WdfIoTargetOpenUndefined = 0,
  WdfIoTargetOpenUseExistingDevice = 1,
  WdfIoTargetOpenByName = 2,
  WdfIoTargetOpenReopen = 3,
  WdfIoTargetOpenLocalTargetByFile = 4,
} WDF_IO_TARGET_OPEN_TYPE,
    *PWDF_IO_TARGET_OPEN_TYPE;

typedef enum _WDF_RETRIEVE_CHILD_FLAGS {
  WdfRetrieveUnspecified = 0x0000,
  WdfRetrievePresentChildren = 0x0001,
  WdfRetrieveMissingChildren = 0x0002,
  WdfRetrievePendingChildren = 0x0004,
  WdfRetrieveAddedChildren = (WdfRetrievePresentChildren | WdfRetrievePendingChildren),
  WdfRetrieveAllChildren = (WdfRetrievePresentChildren | WdfRetrievePendingChildren | WdfRetrieveMissingChildren),
} WDF_RETRIEVE_CHILD_FLAGS,
    *PWDF_RETRIEVE_CHILD_FLAGS;

typedef enum _WDF_POWER_POLICY_SX_WAKE_USER_CONTROL {
  WakeUserControlInvalid = 0,
  WakeDoNotAllowUserControl,
  WakeAllowUserControl,
} WDF_POWER_POLICY_SX_WAKE_USER_CONTROL,
    *PWDF_POWER_POLICY_SX_WAKE_USER_CONTROL;

typedef enum _WDF_POWER_POLICY_IDLE_TIMEOUT_TYPE {
  DriverManagedIdleTimeout = 0,
  SystemManagedIdleTimeout,
  SystemManagedIdleTimeoutWithHint,
} WDF_POWER_POLICY_IDLE_TIMEOUT_TYPE,
    *PWDF_POWER_POLICY_IDLE_TIMEOUT_TYPE;

typedef enum _WDF_INTERRUPT_POLARITY {
  WdfInterruptPolarityUnknown = 0,
  WdfInterruptActiveHigh,
  WdfInterruptActiveLow,
} WDF_INTERRUPT_POLARITY,
    *PWDF_INTERRUPT_POLARITY;

typedef enum _WDF_MEMORY_DESCRIPTOR_TYPE {
  WdfMemoryDescriptorTypeInvalid = 0,
  WdfMemoryDescriptorTypeBuffer,
  WdfMemoryDescriptorTypeMdl,
  WdfMemoryDescriptorTypeHandle,
} WDF_MEMORY_DESCRIPTOR_TYPE,
    *PWDF_MEMORY_DESCRIPTOR_TYPE;

typedef enum _WDF_REQUEST_SEND_OPTIONS_FLAGS {
  WDF_REQUEST_SEND_OPTION_TIMEOUT = 0x1,
  WDF_REQUEST_SEND_OPTION_SYNCHRONOUS = 0x2,
  WDF_REQUEST_SEND_OPTION_IGNORE_TARGET_STATE = 0x4,
  WDF_REQUEST_SEND_OPTION_SEND_AND_FORGET = 0x8,
} WDF_REQUEST_SEND_OPTIONS_FLAGS,
    *PWDF_REQUEST_SEND_OPTIONS_FLAGS;

typedef enum _WDF_REQUEST_STOP_ACTION_FLAGS {
  WdfRequestStopActionInvalid = 0,
  WdfRequestStopActionSuspend = 0x1,
  WdfRequestStopActionPurge = 0x2,
  WdfRequestStopRequestCancelable = 0x10000000,
} WDF_REQUEST_STOP_ACTION_FLAGS,
    *PWDF_REQUEST_STOP_ACTION_FLAGS;
