// Tunnels that stand outside the domain's list.
#include "topology/upcalls.h"

// There are no tunnels yet, so none runs through the router.
void KivUsb4FreeOrphanTunnels(const USB4_SWITCH*) {}
