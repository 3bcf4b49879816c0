// The diagnostics directory of a router, and the marker files beside it.
#include "topology/upcalls.h"
#include "tunnel/upcalls.h"

// Nothing creates the directory yet, so there is none to remove, and nowhere to leave a marker.
void KivUsb4SwitchLoggingExit(USB4_HOST_INTERFACE*, const USB4_SWITCH*) {}
void KivUsb4DpCreateTearDown(USB4_HOST_INTERFACE*, const USB4_PORT*, bool) {}
