// The diagnostics directory of a router, the marker files beside it, and the files of tunnels.
#include "cm/upcalls.h"
#include "topology/upcalls.h"
#include "tunnel/upcalls.h"

// Nothing creates the directory yet, so there is none to remove, and nowhere to leave a marker or a file.
void KivUsb4SwitchLoggingExit(USB4_HOST_INTERFACE*, const USB4_SWITCH*) {}
void KivUsb4DpCreateTearDown(USB4_HOST_INTERFACE*, const USB4_PORT*, bool) {}
void KivUsb4CreateDirectoryForHotplugCreatedSwitch(USB4_DOMAIN*, USB4_ROUTE) {}
void KivUsb4TunnelInfoShow(USB4_DOMAIN*) {}
void KivUsb4PrintAllTunnelInfo(USB4_DOMAIN*) {}
