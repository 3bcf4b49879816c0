// The diagnostics directory of a router.
#include "topology/upcalls.h"

// Nothing creates the directory yet, so there is none to remove.
void KivUsb4SwitchLoggingExit(USB4_HOST_INTERFACE*, const USB4_SWITCH*) {}
