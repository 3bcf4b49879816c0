// References to router records.
//
// A record stays while anybody holds a reference: the topology, the entry of the device list, each record of a router
// behind it (so that Info.Parent always points to a record), and each reader. A reader is a flow that reaches the
// record without the run lock. While a record has readers, the routers behind its links stay too, also one that leaves
// meanwhile: a reader loads a Remote under the topology lock, once, and may follow what it has loaded. A router that
// has left the topology fails every access, like one that is marked unplugged.
#pragma once
#include "include/domain_record.h"
#include "include/router_record.h"

_IRQL_requires_max_(DISPATCH_LEVEL) void ReferenceRouter(USB4_SWITCH* router);
// The last one frees the record and gives up its hold on the parent.
_IRQL_requires_max_(DISPATCH_LEVEL) void DereferenceRouter(USB4_SWITCH* router);

// Called for a router that leaves: keeps it for the readers of its parent, if there are any.
_Requires_lock_held_(router->Domain->TopologyLock) void KeepForReadersOfParent(USB4_SWITCH* router);

// A reader of one router, or of none. Gives the router up at its end, outside the topology lock.
class RouterReference {
 public:
  RouterReference() = default;
  // `router` may be null.
  _Requires_lock_held_(router->Domain->TopologyLock) explicit RouterReference(USB4_SWITCH* router);
  RouterReference(RouterReference&& other) : router_(other.router_) { other.router_ = nullptr; }
  RouterReference& operator=(RouterReference&& other);
  ~RouterReference() { Leave(); }

  USB4_SWITCH* Get() const { return router_; }
  USB4_SWITCH* operator->() const { return router_; }
  USB4_SWITCH& operator*() const { return *router_; }
  explicit operator bool() const { return router_ != nullptr; }
  friend bool operator==(const RouterReference& reference, const USB4_SWITCH* router) {
    return reference.router_ == router;
  }

 private:
  void Leave();

  USB4_SWITCH* router_ = nullptr;
};
