// The framework's calls.
#pragma once
#include "wdf_records.h"

extern "C" {

NTSTATUS WdfChildListAddOrUpdateChildDescriptionAsPresent(
    WDFCHILDLIST ChildList, PWDF_CHILD_IDENTIFICATION_DESCRIPTION_HEADER IdentificationDescription,
    PWDF_CHILD_ADDRESS_DESCRIPTION_HEADER AddressDescription);
VOID WdfChildListBeginScan(WDFCHILDLIST ChildList);
VOID WdfChildListEndScan(WDFCHILDLIST ChildList);
WDFDEVICE WdfChildListGetDevice(WDFCHILDLIST ChildList);
NTSTATUS WdfChildListUpdateChildDescriptionAsMissing(
    WDFCHILDLIST ChildList, PWDF_CHILD_IDENTIFICATION_DESCRIPTION_HEADER IdentificationDescription);
ULONG WdfCmResourceListGetCount(WDFCMRESLIST List);
PCM_PARTIAL_RESOURCE_DESCRIPTOR WdfCmResourceListGetDescriptor(WDFCMRESLIST List, ULONG Index);
NTSTATUS WdfCommonBufferCreate(WDFDMAENABLER DmaEnabler, size_t Length, PWDF_OBJECT_ATTRIBUTES Attributes,
                               WDFCOMMONBUFFER* CommonBuffer);
PHYSICAL_ADDRESS WdfCommonBufferGetAlignedLogicalAddress(WDFCOMMONBUFFER CommonBuffer);
PVOID WdfCommonBufferGetAlignedVirtualAddress(WDFCOMMONBUFFER CommonBuffer);
size_t WdfCommonBufferGetLength(WDFCOMMONBUFFER CommonBuffer);
NTSTATUS WdfDeviceAddQueryInterface(WDFDEVICE Device, PWDF_QUERY_INTERFACE_CONFIG InterfaceConfig);
NTSTATUS WdfDeviceAssignS0IdleSettings(WDFDEVICE Device, PWDF_DEVICE_POWER_POLICY_IDLE_SETTINGS Settings);
NTSTATUS WdfDeviceAssignSxWakeSettings(WDFDEVICE Device, PWDF_DEVICE_POWER_POLICY_WAKE_SETTINGS Settings);
NTSTATUS WdfDeviceConfigureRequestDispatching(WDFDEVICE Device, WDFQUEUE Queue, WDF_REQUEST_TYPE RequestType);
NTSTATUS WdfDeviceCreate(PWDFDEVICE_INIT* DeviceInit, PWDF_OBJECT_ATTRIBUTES DeviceAttributes, WDFDEVICE* Device);
NTSTATUS WdfDeviceCreateDeviceInterface(WDFDEVICE Device, CONST GUID* InterfaceClassGUID,
                                        PCUNICODE_STRING ReferenceString);
WDFQUEUE WdfDeviceGetDefaultQueue(WDFDEVICE Device);
WDFDRIVER WdfDeviceGetDriver(WDFDEVICE Device);
WDFIOTARGET WdfDeviceGetIoTarget(WDFDEVICE Device);
POWER_ACTION WdfDeviceGetSystemPowerAction(WDFDEVICE Device);
VOID WdfDeviceInitSetDeviceType(PWDFDEVICE_INIT DeviceInit, DEVICE_TYPE DeviceType);
VOID WdfDeviceInitSetExclusive(PWDFDEVICE_INIT DeviceInit, BOOLEAN IsExclusive);
VOID WdfDeviceInitSetIoType(PWDFDEVICE_INIT DeviceInit, WDF_DEVICE_IO_TYPE IoType);
VOID WdfDeviceInitSetPnpPowerEventCallbacks(PWDFDEVICE_INIT DeviceInit,
                                            PWDF_PNPPOWER_EVENT_CALLBACKS PnpPowerEventCallbacks);
NTSTATUS WdfDeviceOpenRegistryKey(WDFDEVICE Device, ULONG DeviceInstanceKeyType, ACCESS_MASK DesiredAccess,
                                  PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY* Key);
NTSTATUS WdfDeviceQueryProperty(WDFDEVICE Device, DEVICE_REGISTRY_PROPERTY DeviceProperty, ULONG BufferLength,
                                PVOID PropertyBuffer, PULONG ResultLength);
VOID WdfDeviceSetAlignmentRequirement(WDFDEVICE Device, ULONG AlignmentRequirement);
VOID WdfDeviceSetDeviceState(WDFDEVICE Device, PWDF_DEVICE_STATE DeviceState);
VOID WdfDeviceSetPnpCapabilities(WDFDEVICE Device, PWDF_DEVICE_PNP_CAPABILITIES PnpCapabilities);
VOID WdfDeviceSetPowerCapabilities(WDFDEVICE Device, PWDF_DEVICE_POWER_CAPABILITIES PowerCapabilities);
PDEVICE_OBJECT WdfDeviceWdmGetAttachedDevice(WDFDEVICE Device);
PDEVICE_OBJECT WdfDeviceWdmGetDeviceObject(WDFDEVICE Device);
NTSTATUS WdfDmaEnablerCreate(WDFDEVICE Device, PWDF_DMA_ENABLER_CONFIG Config, PWDF_OBJECT_ATTRIBUTES Attributes,
                             WDFDMAENABLER* DmaEnablerHandle);
size_t WdfDmaEnablerGetFragmentLength(WDFDMAENABLER DmaEnabler, WDF_DMA_DIRECTION DmaDirection);
NTSTATUS WdfDriverCreate(PDRIVER_OBJECT DriverObject, PCUNICODE_STRING RegistryPath,
                         PWDF_OBJECT_ATTRIBUTES DriverAttributes, PWDF_DRIVER_CONFIG DriverConfig, WDFDRIVER* Driver);
PDRIVER_OBJECT WdfDriverWdmGetDriverObject(WDFDRIVER Driver);
WDFCHILDLIST WdfFdoGetDefaultChildList(WDFDEVICE Fdo);
NTSTATUS WdfFdoInitQueryProperty(PWDFDEVICE_INIT DeviceInit, DEVICE_REGISTRY_PROPERTY DeviceProperty,
                                 ULONG BufferLength, PVOID PropertyBuffer, PULONG ResultLength);
VOID WdfFdoInitSetDefaultChildListConfig(PWDFDEVICE_INIT DeviceInit, PWDF_CHILD_LIST_CONFIG Config,
                                         PWDF_OBJECT_ATTRIBUTES DefaultChildListAttributes);
PDEVICE_OBJECT WdfFdoInitWdmGetPhysicalDevice(PWDFDEVICE_INIT DeviceInit);
NTSTATUS WdfFdoQueryForInterface(WDFDEVICE Fdo, LPCGUID InterfaceType, PINTERFACE Interface, USHORT Size,
                                 USHORT Version, PVOID InterfaceSpecificData);
NTSTATUS WdfInterruptCreate(WDFDEVICE Device, PWDF_INTERRUPT_CONFIG Configuration, PWDF_OBJECT_ATTRIBUTES Attributes,
                            WDFINTERRUPT* Interrupt);
WDFDEVICE WdfInterruptGetDevice(WDFINTERRUPT Interrupt);
VOID WdfInterruptGetInfo(WDFINTERRUPT Interrupt, PWDF_INTERRUPT_INFO Info);
BOOLEAN WdfInterruptQueueDpcForIsr(WDFINTERRUPT Interrupt);
BOOLEAN WdfInterruptQueueWorkItemForIsr(WDFINTERRUPT Interrupt);
NTSTATUS WdfIoQueueCreate(WDFDEVICE Device, PWDF_IO_QUEUE_CONFIG Config, PWDF_OBJECT_ATTRIBUTES QueueAttributes,
                          WDFQUEUE* Queue);
NTSTATUS WdfIoQueueFindRequest(WDFQUEUE Queue, WDFREQUEST FoundRequest, WDFFILEOBJECT FileObject,
                               PWDF_REQUEST_PARAMETERS Parameters, WDFREQUEST* OutRequest);
WDFDEVICE WdfIoQueueGetDevice(WDFQUEUE Queue);
VOID WdfIoQueuePurge(WDFQUEUE Queue, PFN_WDF_IO_QUEUE_STATE PurgeComplete, WDFCONTEXT Context);
NTSTATUS WdfIoQueueRetrieveFoundRequest(WDFQUEUE Queue, WDFREQUEST FoundRequest, WDFREQUEST* OutRequest);
NTSTATUS WdfIoQueueRetrieveNextRequest(WDFQUEUE Queue, WDFREQUEST* OutRequest);
VOID WdfIoQueueStart(WDFQUEUE Queue);
VOID WdfIoTargetClose(WDFIOTARGET IoTarget);
NTSTATUS WdfIoTargetCreate(WDFDEVICE Device, PWDF_OBJECT_ATTRIBUTES IoTargetAttributes, WDFIOTARGET* IoTarget);
NTSTATUS WdfIoTargetOpen(WDFIOTARGET IoTarget, PWDF_IO_TARGET_OPEN_PARAMS OpenParams);
NTSTATUS WdfIoTargetSendIoctlSynchronously(WDFIOTARGET IoTarget, WDFREQUEST Request, ULONG IoctlCode,
                                           PWDF_MEMORY_DESCRIPTOR InputBuffer, PWDF_MEMORY_DESCRIPTOR OutputBuffer,
                                           PWDF_REQUEST_SEND_OPTIONS RequestOptions, PULONG_PTR BytesReturned);
NTSTATUS WdfMemoryCreate(PWDF_OBJECT_ATTRIBUTES Attributes, POOL_TYPE PoolType, ULONG PoolTag, size_t BufferSize,
                         WDFMEMORY* Memory, PVOID* Buffer);
WDFOBJECT WdfObjectContextGetObject(PVOID ContextPointer);
VOID WdfObjectDelete(WDFOBJECT Object);
VOID WdfObjectDereferenceActual(WDFOBJECT Handle, PVOID Tag, LONG Line, PCCH File);
PVOID WdfObjectGetTypedContextWorker(WDFOBJECT Handle, PCWDF_OBJECT_CONTEXT_TYPE_INFO TypeInfo);
VOID WdfObjectReferenceActual(WDFOBJECT Handle, PVOID Tag, LONG Line, PCCH File);
NTSTATUS WdfPdoInitAddCompatibleID(PWDFDEVICE_INIT DeviceInit, PCUNICODE_STRING CompatibleID);
NTSTATUS WdfPdoInitAddDeviceText(PWDFDEVICE_INIT DeviceInit, PCUNICODE_STRING DeviceDescription,
                                 PCUNICODE_STRING DeviceLocation, LCID LocaleId);
NTSTATUS WdfPdoInitAddHardwareID(PWDFDEVICE_INIT DeviceInit, PCUNICODE_STRING HardwareID);
NTSTATUS WdfPdoInitAssignDeviceID(PWDFDEVICE_INIT DeviceInit, PCUNICODE_STRING DeviceID);
NTSTATUS WdfPdoInitAssignInstanceID(PWDFDEVICE_INIT DeviceInit, PCUNICODE_STRING InstanceID);
VOID WdfPdoInitSetDefaultLocale(PWDFDEVICE_INIT DeviceInit, LCID LocaleId);
VOID WdfRegistryClose(WDFKEY Key);
NTSTATUS WdfRegistryOpenKey(WDFKEY ParentKey, PCUNICODE_STRING KeyName, ACCESS_MASK DesiredAccess,
                            PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY* Key);
NTSTATUS WdfRegistryQueryULong(WDFKEY Key, PCUNICODE_STRING ValueName, PULONG Value);
VOID WdfRequestComplete(WDFREQUEST Request, NTSTATUS Status);
VOID WdfRequestCompleteWithInformation(WDFREQUEST Request, NTSTATUS Status, ULONG_PTR Information);
NTSTATUS WdfRequestForwardToIoQueue(WDFREQUEST Request, WDFQUEUE DestinationQueue);
VOID WdfRequestGetParameters(WDFREQUEST Request, PWDF_REQUEST_PARAMETERS Parameters);
VOID WdfRequestMarkCancelable(WDFREQUEST Request, PFN_WDF_REQUEST_CANCEL EvtRequestCancel);
NTSTATUS WdfRequestRequeue(WDFREQUEST Request);
NTSTATUS WdfRequestRetrieveInputBuffer(WDFREQUEST Request, size_t MinimumRequiredLength, PVOID* Buffer, size_t* Length);
NTSTATUS WdfRequestRetrieveOutputBuffer(WDFREQUEST Request, size_t MinimumRequiredSize, PVOID* Buffer, size_t* Length);
NTSTATUS WdfRequestRetrieveUnsafeUserInputBuffer(WDFREQUEST Request, size_t MinimumRequiredLength, PVOID* InputBuffer,
                                                 size_t* Length);
NTSTATUS WdfRequestRetrieveUnsafeUserOutputBuffer(WDFREQUEST Request, size_t MinimumRequiredLength, PVOID* OutputBuffer,
                                                  size_t* Length);
NTSTATUS WdfRequestUnmarkCancelable(WDFREQUEST Request);
NTSTATUS WdfStringCreate(PCUNICODE_STRING UnicodeString, PWDF_OBJECT_ATTRIBUTES StringAttributes, WDFSTRING* String);
NTSTATUS WdfWorkItemCreate(PWDF_WORKITEM_CONFIG Config, PWDF_OBJECT_ATTRIBUTES Attributes, WDFWORKITEM* WorkItem);
VOID WdfWorkItemEnqueue(WDFWORKITEM WorkItem);
VOID WdfWorkItemFlush(WDFWORKITEM WorkItem);
WDFOBJECT WdfWorkItemGetParentObject(WDFWORKITEM WorkItem);

// The driver object of the driver that runs.
WDFDRIVER WdfGetDriver(VOID);

NTSTATUS WdfDeviceStopIdleActual(WDFDEVICE Device, BOOLEAN WaitForD0, PVOID Tag, LONG Line, PCCH File);
VOID WdfDeviceResumeIdleActual(WDFDEVICE Device, PVOID Tag, LONG Line, PCCH File);

}  // extern "C"

// The tagged forms name the place in the source that takes or gives back a reference.
#define WdfDeviceStopIdle(Device, WaitForD0) WdfDeviceStopIdleActual(Device, WaitForD0, NULL, __LINE__, __FILE__)
#define WdfDeviceResumeIdle(Device) WdfDeviceResumeIdleActual(Device, NULL, __LINE__, __FILE__)
#define WdfObjectReference(Handle) WdfObjectReferenceActual(Handle, NULL, __LINE__, __FILE__)
#define WdfObjectDereference(Handle) WdfObjectDereferenceActual(Handle, NULL, __LINE__, __FILE__)
