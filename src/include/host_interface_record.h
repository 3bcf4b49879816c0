// The host interface of one host router: its mapped registers, its DMA enabler, and its rings by hop.
#pragma once
#include <ntddk.h>
#include <wdf.h>

#include <cstdint>

#include "include/atomic.h"
#include "include/guarded.h"
#include "include/locks.h"
#include "include/pool.h"
#include "include/property.h"
#include "include/ring_record.h"

struct USB4_HOST_INTERFACE {
  static constexpr ULONG kPoolTag = PoolTag("Tag3");
  static constexpr ULONG kRingArrayTag = PoolTag("Tag6");

  std::uint32_t State;  // 0 once BAR0 is mapped
  WDFDEVICE Device;
  void* RegisterBase;            // the mapping of BAR0
  std::uint32_t RegisterLength;  // bytes
  WDFDMAENABLER DmaEnabler;
  std::uint32_t HopCount;  // rings per direction, as the hardware says; 0: preparation stopped early
  // Rings by hop; the lock guards the slots too.
  Guarded<USB4_RING**, By<LockPlace::Hop>> TransmitRings;
  Guarded<USB4_RING**, By<LockPlace::Hop>> ReceiveRings;
  SpinLock<LockPlace::Hop> HopLock;
  // The mask and vector registers hold bits of all rings; each read-modify-write of them runs under this lock.
  SpinLock<LockPlace::InterruptRegister> InterruptLock;
  SharedFlag DiagnosticsEnabled;
  // What this host tells its peers about itself; the lock guards the whole tree.
  SpinLock<LockPlace::HostProperty> PropertyLock;
  Guarded<USB4_PROPERTY_DIR*, By<LockPlace::HostProperty>> RootDirectory;  // null when it could not be built
  Guarded<std::uint32_t, By<LockPlace::HostProperty>> PropertyGeneration;  // grows with each change of the tree
  // The "network" directory while it is registered; owned by the root.
  Guarded<USB4_PROPERTY_DIR*, By<LockPlace::HostProperty>> NetworkDirectory;
};
