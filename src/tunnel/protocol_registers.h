// Registers of a protocol adapter's own capability. PASSIVE_LEVEL.
//
// An adapter without that capability holds 0 for its offset, where its header stands. What these operations would read
// there means something else, and what they would write would break the adapter: -1 instead, without an access.
#pragma once
#include "topology/router_access.h"

template <class R>
[[nodiscard]] KIV_RESULT ReadProtocolRegister(const USB4_PORT* adapter, typename R::Value& value) {
  if (adapter->ProtocolCapability == 0) return kKivFailed;
  return ReadRegister<R>(adapter, adapter->ProtocolCapability, value);
}

template <class R>
[[nodiscard]] KIV_RESULT WriteProtocolRegister(const USB4_PORT* adapter, typename R::Value value) {
  if (adapter->ProtocolCapability == 0) return kKivFailed;
  return WriteRegister<R>(adapter, adapter->ProtocolCapability, value);
}

template <class R, class Change>
[[nodiscard]] KIV_RESULT ModifyProtocolRegister(const USB4_PORT* adapter, Change change) {
  if (adapter->ProtocolCapability == 0) return kKivFailed;
  return ModifyRegister<R>(adapter, adapter->ProtocolCapability, change);
}
