// The domain of one host router: the connection manager's view of everything below the host interface.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/atomic.h"
#include "include/guarded.h"
#include "include/locks.h"
#include "include/pool.h"

struct USB4_CTL;
struct USB4_HOST_INTERFACE;
struct USB4_SWITCH;

struct USB4_DOMAIN {
  static constexpr ULONG kPoolTag = PoolTag("sub6");
  static constexpr ULONG kComputerNameTag = PoolTag("Tag1");

  USB4_HOST_INTERFACE* HostInterface;
  USB4_CTL* ControlChannel;
  Guarded<USB4_SWITCH*, TopologyGuard> HostRouter;
  std::uint8_t HostRouterIsUsb4;
  std::uint32_t Kind;  // always 0
  // Changed under both locks, so that whoever holds one of them may read.
  _Guarded_by_(PathLock) _Guarded_by_(TopologyLock) LIST_ENTRY TunnelListHead;
  // Tunnels that left the list without being torn down.
  _Guarded_by_(PathLock) LIST_ENTRY OrphanTunnelListHead;
  _Guarded_by_(RunLock) LIST_ENTRY DpResourceListHead;
  _Guarded_by_(TopologyLock) LIST_ENTRY DeviceListHead;
  SharedFlag Started;  // hot-plug events are handled only while it is set
  SharedFlag DisplayRestore;
  SharedFlag RuntimeIdle;  // the last power-down had no system power action
  AtomicLong IdleStopped;  // how the domain's power reference on the device stands, kReference...; hostif/power.h
  KEVENT BusEvent;         // set when the bus has started, or has failed to
  std::uint8_t Usb3TunnelSupported;
  std::uint8_t PcieTunnelSupported;
  char* ComputerName;  // NUL-terminated
  std::uint8_t NetworkDirectoryUuid[16];
  AtomicLong TunnelCount;
  AtomicLong Usb3TunnelCount;
  AtomicLong PcieTunnelCount;
  AtomicLong DpTunnelCount;
  std::uint32_t PluggedEthernetControllers;
  // Held for pointer work only, never over register access, a wait or a callback.
  SpinLock<LockPlace::Topology> TopologyLock;
  // Guards tunnels, paths and hop maps. Held for a whole walk or change, sleeps included; its holder takes no lock of a
  // peer host, flushes no work and calls no other driver.
  Mutex<LockPlace::Path> PathLock;
  // Held while one event is handled, and by start, stop and suspend: the topology changes only under it.
  Mutex<LockPlace::Run> RunLock;
  KEVENT Aborted;  // stays signalled while every flow but that of PowerDownThread has to give up; hostif/abort.h
  volatile HANDLE PowerDownThread;  // identifier of the thread that powers the device down, or null
};
