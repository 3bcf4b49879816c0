// There are no DisplayPort tunnels yet, so there is nothing to tell.
#include "tunnel/display_power.h"

void KivUsb4NotifyGfxDpTunnels(DEVICE_EXTENSION*, USB4_DOMAIN*, std::uint32_t) {}
