// What this room needs from rooms above it, and which room has it.
#pragma once
#include "include/config_space.h"
#include "include/domain_record.h"

// ioctl: the diagnostics directories of what has been found behind the router at `route` since the last time
void KivUsb4CreateDirectoryForHotplugCreatedSwitch(USB4_DOMAIN* domain, USB4_ROUTE route);
void KivUsb4TunnelInfoShow(USB4_DOMAIN* domain);      // ioctl: writes the file of tunnel counts anew
void KivUsb4PrintAllTunnelInfo(USB4_DOMAIN* domain);  // ioctl: writes the files of tunnels by kind anew
