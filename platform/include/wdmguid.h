// GUIDs of the interfaces that bus drivers offer.
#include "guiddef.h"
#ifndef KIVUSB4_WDMGUID_DECLARED
#define KIVUSB4_WDMGUID_DECLARED
DEFINE_GUID(GUID_BUS_INTERFACE_STANDARD, 0x496b8280, 0x6f25, 0x11d0, 0xbe, 0xaf, 0x08, 0x00, 0x2b, 0xe2, 0x09, 0x2f);
#endif
