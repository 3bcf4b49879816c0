// Device objects, request packets, resources, bus interfaces and power states.
//
// Structures hold the published fields that a framework driver reaches, in the published order.
#pragma once
#include "wdm.h"

EXTERN_C_START

struct _IRP;
struct _DEVICE_OBJECT;
struct _DRIVER_OBJECT;

// --- device types and control codes ---
typedef ULONG DEVICE_TYPE;
#define FILE_DEVICE_UNKNOWN 0x00000022
#define FILE_DEVICE_BUS_EXTENDER 0x0000002a
#define FILE_DEVICE_ACPI 0x00000032
#define METHOD_BUFFERED 0
#define METHOD_IN_DIRECT 1
#define METHOD_OUT_DIRECT 2
#define METHOD_NEITHER 3
#define FILE_ANY_ACCESS 0
#define FILE_READ_ACCESS 0x0001
#define FILE_WRITE_ACCESS 0x0002
#define CTL_CODE(deviceType, function, method, access) \
  (((ULONG)(deviceType) << 16) | ((access) << 14) | ((function) << 2) | (method))
#define METHOD_FROM_CTL_CODE(code) ((ULONG)(code)&3)
#define FILE_BYTE_ALIGNMENT 0x00000000
#define FILE_QUAD_ALIGNMENT 0x00000007
#define STANDARD_RIGHTS_ALL 0x001F0000
#define SYNCHRONIZE 0x00100000
#define GENERIC_READ 0x80000000
#define GENERIC_WRITE 0x40000000

// --- power ---
typedef enum _SYSTEM_POWER_STATE {
  PowerSystemUnspecified = 0,
  PowerSystemWorking,
  PowerSystemSleeping1,
  PowerSystemSleeping2,
  PowerSystemSleeping3,
  PowerSystemHibernate,
  PowerSystemShutdown,
  PowerSystemMaximum
} SYSTEM_POWER_STATE,
    *PSYSTEM_POWER_STATE;

typedef enum _DEVICE_POWER_STATE {
  PowerDeviceUnspecified = 0,
  PowerDeviceD0,
  PowerDeviceD1,
  PowerDeviceD2,
  PowerDeviceD3,
  PowerDeviceMaximum
} DEVICE_POWER_STATE,
    *PDEVICE_POWER_STATE;

typedef enum {
  PowerActionNone = 0,
  PowerActionReserved,
  PowerActionSleep,
  PowerActionHibernate,
  PowerActionShutdown,
  PowerActionShutdownReset,
  PowerActionShutdownOff,
  PowerActionWarmEject,
  PowerActionDisplayOff
} POWER_ACTION,
    *PPOWER_ACTION;

// --- device properties ---
typedef enum {
  DevicePropertyDeviceDescription = 0x0,
  DevicePropertyHardwareID = 0x1,
  DevicePropertyCompatibleIDs = 0x2,
  DevicePropertyBusNumber = 0xe,
  DevicePropertyAddress = 0x10
} DEVICE_REGISTRY_PROPERTY;

#define PLUGPLAY_REGKEY_DEVICE 1
#define PLUGPLAY_REGKEY_DRIVER 2

typedef enum _DEVICE_RELATION_TYPE {
  BusRelations,
  EjectionRelations,
  PowerRelations,
  RemovalRelations
} DEVICE_RELATION_TYPE;

// --- opening files and devices ---
#define FILE_ATTRIBUTE_NORMAL 0x00000080
#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define FILE_OPEN 0x00000001
#define FILE_NON_DIRECTORY_FILE 0x00000040

// --- resources ---
typedef enum _INTERFACE_TYPE {
  InterfaceTypeUndefined = -1,
  Internal = 0,
  PCIBus = 5,
  MaximumInterfaceType = 18
} INTERFACE_TYPE;
typedef enum _KINTERRUPT_MODE { LevelSensitive, Latched } KINTERRUPT_MODE;
typedef enum _KINTERRUPT_POLARITY {
  InterruptPolarityUnknown,
  InterruptActiveHigh,
  InterruptActiveLow
} KINTERRUPT_POLARITY;

#define CmResourceTypeNull 0
#define CmResourceTypePort 1
#define CmResourceTypeInterrupt 2
#define CmResourceTypeMemory 3
#define CmResourceTypeDma 4
#define CmResourceTypeDeviceSpecific 5
#define CmResourceTypeBusNumber 6
#define CmResourceTypeMemoryLarge 7
#define CmResourceTypeDevicePrivate 129
#define CM_RESOURCE_INTERRUPT_LEVEL_SENSITIVE 0x0000
#define CM_RESOURCE_INTERRUPT_LATCHED 0x0001
#define CM_RESOURCE_INTERRUPT_MESSAGE 0x0002

#pragma pack(push, 4)
typedef struct _CM_PARTIAL_RESOURCE_DESCRIPTOR {
  UCHAR Type;
  UCHAR ShareDisposition;
  USHORT Flags;
  union {
    struct {
      PHYSICAL_ADDRESS Start;
      ULONG Length;
    } Generic;
    struct {
      PHYSICAL_ADDRESS Start;
      ULONG Length;
    } Port;
    struct {
      ULONG Level;
      ULONG Vector;
      KAFFINITY Affinity;
    } Interrupt;
    struct {
      union {
        struct {
          USHORT Reserved;
          USHORT MessageCount;
          ULONG Vector;
          KAFFINITY Affinity;
        } Raw;
        struct {
          ULONG Level;
          ULONG Vector;
          KAFFINITY Affinity;
        } Translated;
      };
    } MessageInterrupt;
    struct {
      PHYSICAL_ADDRESS Start;
      ULONG Length;
    } Memory;
    struct {
      ULONG Data[3];
    } DevicePrivate;
    struct {
      ULONG Start;
      ULONG Length;
      ULONG Reserved;
    } BusNumber;
  } u;
} CM_PARTIAL_RESOURCE_DESCRIPTOR, *PCM_PARTIAL_RESOURCE_DESCRIPTOR;
#pragma pack(pop)
static_assert(sizeof(CM_PARTIAL_RESOURCE_DESCRIPTOR) == 20);

// --- interfaces of other drivers ---
typedef VOID (*PINTERFACE_REFERENCE)(PVOID Context);
typedef VOID (*PINTERFACE_DEREFERENCE)(PVOID Context);

typedef struct _INTERFACE {
  USHORT Size;
  USHORT Version;
  PVOID Context;
  PINTERFACE_REFERENCE InterfaceReference;
  PINTERFACE_DEREFERENCE InterfaceDereference;
} INTERFACE, *PINTERFACE;

typedef BOOLEAN (*PTRANSLATE_BUS_ADDRESS)(PVOID Context, PHYSICAL_ADDRESS BusAddress, ULONG Length, PULONG AddressSpace,
                                          PPHYSICAL_ADDRESS TranslatedAddress);
typedef struct _DMA_ADAPTER* (*PGET_DMA_ADAPTER)(PVOID Context, struct _DEVICE_DESCRIPTION* DeviceDescriptor,
                                                 PULONG NumberOfMapRegisters);
// Bytes read or written; DataType PCI_WHICHSPACE_CONFIG is the function's configuration space.
typedef ULONG GET_SET_DEVICE_DATA(PVOID Context, ULONG DataType, PVOID Buffer, ULONG Offset, ULONG Length);
typedef GET_SET_DEVICE_DATA* PGET_SET_DEVICE_DATA;

typedef struct _BUS_INTERFACE_STANDARD {
  USHORT Size;
  USHORT Version;
  PVOID Context;
  PINTERFACE_REFERENCE InterfaceReference;
  PINTERFACE_DEREFERENCE InterfaceDereference;
  PTRANSLATE_BUS_ADDRESS TranslateBusAddress;
  PGET_DMA_ADAPTER GetDmaAdapter;
  PGET_SET_DEVICE_DATA SetBusData;
  PGET_SET_DEVICE_DATA GetBusData;
} BUS_INTERFACE_STANDARD, *PBUS_INTERFACE_STANDARD;

#define PCI_WHICHSPACE_CONFIG 0x0

// --- request packets ---
#define IRP_MJ_CREATE 0x00
#define IRP_MJ_CLOSE 0x02
#define IRP_MJ_READ 0x03
#define IRP_MJ_WRITE 0x04
#define IRP_MJ_DEVICE_CONTROL 0x0e
#define IRP_MJ_INTERNAL_DEVICE_CONTROL 0x0f
#define IRP_MJ_POWER 0x16
#define IRP_MJ_PNP 0x1b
#define IRP_MJ_MAXIMUM_FUNCTION 0x1b
#define IRP_MN_READ_CONFIG 0x0F
#define IRP_MN_WRITE_CONFIG 0x10

typedef struct _IO_STATUS_BLOCK {
  union {
    NTSTATUS Status;
    PVOID Pointer;
  };
  ULONG_PTR Information;
} IO_STATUS_BLOCK, *PIO_STATUS_BLOCK;

typedef struct _MDL MDL, *PMDL;
typedef struct _FILE_OBJECT FILE_OBJECT, *PFILE_OBJECT;
typedef struct _IO_SECURITY_CONTEXT IO_SECURITY_CONTEXT, *PIO_SECURITY_CONTEXT;
typedef NTSTATUS DRIVER_DISPATCH(struct _DEVICE_OBJECT* DeviceObject, struct _IRP* Irp);
typedef DRIVER_DISPATCH* PDRIVER_DISPATCH;
typedef NTSTATUS DRIVER_INITIALIZE(struct _DRIVER_OBJECT* DriverObject, PUNICODE_STRING RegistryPath);
typedef DRIVER_INITIALIZE* PDRIVER_INITIALIZE;
typedef VOID DRIVER_UNLOAD(struct _DRIVER_OBJECT* DriverObject);
typedef DRIVER_UNLOAD* PDRIVER_UNLOAD;

typedef struct _DEVICE_OBJECT {
  CSHORT Type;
  USHORT Size;
  LONG ReferenceCount;
  struct _DRIVER_OBJECT* DriverObject;
  struct _DEVICE_OBJECT* NextDevice;
  struct _DEVICE_OBJECT* AttachedDevice;
  struct _IRP* CurrentIrp;
  ULONG Flags;
  ULONG Characteristics;
  PVOID DeviceExtension;
  DEVICE_TYPE DeviceType;
  CCHAR StackSize;
  ULONG AlignmentRequirement;
} DEVICE_OBJECT, *PDEVICE_OBJECT;

typedef struct _DRIVER_OBJECT {
  CSHORT Type;
  CSHORT Size;
  PDEVICE_OBJECT DeviceObject;
  ULONG Flags;
  UNICODE_STRING DriverName;
  PDRIVER_INITIALIZE DriverInit;
  PDRIVER_UNLOAD DriverUnload;
  PDRIVER_DISPATCH MajorFunction[IRP_MJ_MAXIMUM_FUNCTION + 1];
} DRIVER_OBJECT, *PDRIVER_OBJECT;

typedef struct _IO_STACK_LOCATION {
  UCHAR MajorFunction;
  UCHAR MinorFunction;
  UCHAR Flags;
  UCHAR Control;
  union {
    struct {
      ULONG WhichSpace;
      PVOID Buffer;
      ULONG Offset;
      ULONG POINTER_ALIGNMENT Length;
    } ReadWriteConfig;
    struct {
      PVOID Argument1;
      PVOID Argument2;
      PVOID Argument3;
      PVOID Argument4;
    } Others;
  } Parameters;
  PDEVICE_OBJECT DeviceObject;
  PFILE_OBJECT FileObject;
} IO_STACK_LOCATION, *PIO_STACK_LOCATION;

typedef struct _IRP {
  CSHORT Type;
  USHORT Size;
  PMDL MdlAddress;
  ULONG Flags;
  IO_STATUS_BLOCK IoStatus;
  KPROCESSOR_MODE RequestorMode;
  BOOLEAN PendingReturned;
  CHAR StackCount;
  CHAR CurrentLocation;
  BOOLEAN Cancel;
  KIRQL CancelIrql;
  PIO_STATUS_BLOCK UserIosb;
  PKEVENT UserEvent;
  union {
    struct {
      LIST_ENTRY ListEntry;
      PIO_STACK_LOCATION CurrentStackLocation;
    } Overlay;
  } Tail;
} IRP, *PIRP;

FORCEINLINE PIO_STACK_LOCATION IoGetCurrentIrpStackLocation(PIRP Irp) {
  return Irp->Tail.Overlay.CurrentStackLocation;
}
FORCEINLINE PIO_STACK_LOCATION IoGetNextIrpStackLocation(PIRP Irp) {
  return Irp->Tail.Overlay.CurrentStackLocation - 1;
}

PIRP IoBuildSynchronousFsdRequest(ULONG MajorFunction, PDEVICE_OBJECT DeviceObject, PVOID Buffer, ULONG Length,
                                  PLARGE_INTEGER StartingOffset, PKEVENT Event, PIO_STATUS_BLOCK IoStatusBlock);
NTSTATUS IofCallDriver(PDEVICE_OBJECT DeviceObject, PIRP Irp);
NTSTATUS IoGetDeviceInterfaces(CONST GUID* InterfaceClassGuid, PDEVICE_OBJECT PhysicalDeviceObject, ULONG Flags,
                               PWSTR* SymbolicLinkList);
#define IoCallDriver IofCallDriver

EXTERN_C_END
