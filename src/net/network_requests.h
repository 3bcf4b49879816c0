// Read and write requests of the network miniport, and the child device that carries them.
#pragma once
#include <ntddk.h>
#include <wdf.h>

EVT_WDF_IO_QUEUE_IO_READ KivUsb4EvtIoRead;
EVT_WDF_IO_QUEUE_IO_WRITE KivUsb4EvtIoWrite;
EVT_WDF_CHILD_LIST_CREATE_DEVICE USB4EvtChildListCreateDevice;
