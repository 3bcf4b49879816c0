// What this room needs from rooms above it, and which room has it.
#pragma once
#include "include/host_interface_record.h"
#include "include/router_record.h"

void KivUsb4XdomainRemove(USB4_XDOMAIN* xdomain);  // xdomain: takes a peer host away, with its work
void ReleasePeer(USB4_XDOMAIN* xdomain);           // xdomain: gives a reference up; the last one frees the record
// ioctl: removes the router's diagnostics directory
void KivUsb4SwitchLoggingExit(USB4_HOST_INTERFACE* hostInterface, const USB4_SWITCH* router);
void KivUsb4FreeOrphanTunnels(const USB4_SWITCH* router);  // tunnel: records outside the list that run through it
