// Tunnels of every kind.
#include "tunnel/tunnel.h"

#include <span>

#include "include/trace.h"
#include "tunnel/path_activate.h"
#include "tunnel/tunnel_kind.h"

namespace {

std::span<USB4_PATH*> PathsOf(const USB4_TUNNEL* tunnel) {
  return {tunnel->Paths, tunnel->PathCount};
}

// For the trace; a tunnel that is being built may have no source yet.
TraceValue SourceOf(const USB4_TUNNEL* tunnel) {
  return tunnel->Source == nullptr ? AsWord("none") : AsAdapter(tunnel->Source);
}

bool IsActive(const USB4_PATH* path) {
  return path != nullptr && path->Active != 0;
}

void DeactivatePaths(const USB4_TUNNEL* tunnel) {
  for (USB4_PATH* path : PathsOf(tunnel)) {
    if (IsActive(path)) KivUsb4PathDeactivate(path);
  }
}

KIV_RESULT ActivatePathsAndAdapters(USB4_TUNNEL* tunnel) {
  for (USB4_PATH* path : PathsOf(tunnel)) {
    KivAssert(path != nullptr);  // whoever builds a tunnel keeps it only when it is whole
    const KIV_RESULT result = KivUsb4PathActivate(path);
    if (result != kKivOk) return result;
  }
  return tunnel->Activate == nullptr ? kKivOk : tunnel->Activate(tunnel, true);
}

}  // namespace

USB4_TUNNEL* KivUsb4TunnelAlloc(USB4_DOMAIN* owner, std::uint32_t pathCount, USB4_TUNNEL_TYPE type) {
  PoolPtr<USB4_TUNNEL> tunnel = PoolPtr<USB4_TUNNEL>::New();
  if (!tunnel) return nullptr;
  tunnel->Paths = PoolNewArray<USB4_PATH*>(pathCount, USB4_TUNNEL::kPathsTag);
  if (tunnel->Paths == nullptr) return nullptr;
  InitializeListHead(&tunnel->Link);
  tunnel->Owner = owner;
  tunnel->PathCount = pathCount;
  tunnel->Type = type;
  return tunnel.Release();
}

bool BuildPath(USB4_TUNNEL* tunnel, std::uint32_t index, const USB4_PATH_REQUEST& request) {
  KivAssert(index < tunnel->PathCount && tunnel->Paths[index] == nullptr);
  tunnel->Paths[index] = KivUsb4PathAlloc(tunnel->Owner, request);
  return tunnel->Paths[index] != nullptr;
}

void KivUsb4TunnelFree(USB4_TUNNEL* tunnel) {
  if (tunnel == nullptr) return;
  for (USB4_PATH* path : PathsOf(tunnel)) KivUsb4PathFree(path);
  PoolDeleteArray(tunnel->Paths, USB4_TUNNEL::kPathsTag);
  PoolDelete(tunnel);
}

KIV_RESULT KivUsb4TunnelActivate(USB4_TUNNEL* tunnel) {
  TraceStep("activate tunnel", "type", tunnel->Type, "source", SourceOf(tunnel));
  for (const USB4_PATH* path : PathsOf(tunnel)) {
    if (!IsActive(path)) continue;
    TraceError("a path is active already", "type", tunnel->Type, "path", path->Name);
    return kKivFailed;
  }
  return KivUsb4TunnelRestart(tunnel);
}

KIV_RESULT KivUsb4TunnelRestart(USB4_TUNNEL* tunnel) {
  _Analysis_assume_lock_held_(tunnel->Owner->PathLock);
  TraceStep("restart tunnel", "type", tunnel->Type, "source", SourceOf(tunnel));
  DeactivatePaths(tunnel);
  if (tunnel->Init != nullptr) {
    const KIV_RESULT result = tunnel->Init(tunnel);
    if (result != kKivOk) {
      TraceError("tunnel not prepared", "type", tunnel->Type, "result", AsResult(result));
      return result;
    }
  }
  const KIV_RESULT result = ActivatePathsAndAdapters(tunnel);
  if (result != kKivOk) {
    TraceError("tunnel not activated", "type", tunnel->Type, "result", AsResult(result));
    KivUsb4TunnelDeactivate(tunnel);
  }
  return result;
}

void KivUsb4TunnelDeactivate(USB4_TUNNEL* tunnel) {
  _Analysis_assume_lock_held_(tunnel->Owner->PathLock);
  TraceStep("deactivate tunnel", "type", tunnel->Type, "source", SourceOf(tunnel));
  if (tunnel->Activate != nullptr) {
    const KIV_RESULT result = tunnel->Activate(tunnel, false);
    if (result != kKivOk) TraceError("adapters not switched off", "type", tunnel->Type, "result", AsResult(result));
  }
  DeactivatePaths(tunnel);
}

bool KivUsb4TunnelIsActive(const USB4_TUNNEL* tunnel) {
  for (const USB4_PATH* path : PathsOf(tunnel)) {
    if (!IsActive(path)) return false;
  }
  return true;
}

bool KivUsb4TunnelIsDp(const USB4_TUNNEL* tunnel) {
  return tunnel->Type == USB4_TUNNEL_DP;
}

bool KivUsb4TunnelIsDma(const USB4_TUNNEL* tunnel) {
  return tunnel->Type == USB4_TUNNEL_DMA;
}

bool KivUsb4TunnelUsesPort(const USB4_TUNNEL* tunnel, const USB4_PORT* adapter) {
  for (const USB4_PATH* path : PathsOf(tunnel)) {
    if (path == nullptr) continue;
    for (const USB4_HOP& hop : std::span<USB4_HOP>(path->Hops, path->HopCount)) {
      if (hop.InputAdapter == adapter || hop.OutputAdapter == adapter) return true;
    }
  }
  return false;
}

KIV_RESULT KivUsb4TunnelConsumedBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH* consumed) {
  USB4_BANDWIDTH found = {};
  if (KivUsb4TunnelIsActive(tunnel) && tunnel->ConsumedBandwidth != nullptr) {
    const KIV_RESULT result = tunnel->ConsumedBandwidth(tunnel, found);
    if (result != kKivOk) return result;
  }
  if (consumed != nullptr) *consumed = found;
  return kKivOk;
}

KIV_RESULT KivUsb4TunnelReleaseUnusedBandwidth(USB4_TUNNEL* tunnel) {
  if (!KivUsb4TunnelIsActive(tunnel) || tunnel->ReleaseUnusedBandwidth == nullptr) return kKivOk;
  return tunnel->ReleaseUnusedBandwidth(tunnel);
}

void KivUsb4TunnelReclaimAvailableBandwidth(USB4_TUNNEL* tunnel, USB4_BANDWIDTH& available) {
  if (!KivUsb4TunnelIsActive(tunnel) || tunnel->ReclaimAvailableBandwidth == nullptr) return;
  tunnel->ReclaimAvailableBandwidth(tunnel, available);
}
