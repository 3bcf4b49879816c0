// Counting who holds a router record, and freeing it.
#include "topology/router_reference.h"

#include <utility>

#include "include/locks.h"
#include "topology/router_queries.h"

namespace {

void FreeRouter(USB4_SWITCH* router) {
  if (router->Adapters != nullptr) {
    for (const USB4_PORT& adapter : AdaptersOf(router)) {
      PoolDelete(adapter.RegistersText);
      PoolDelete(adapter.PathsText);
      PoolDelete(adapter.CountersText);
    }
    PoolDeleteArray(router->Adapters, USB4_PORT::kPoolTag);
  }
  PoolDelete(router->RegistersText);
  PoolDelete(router->MiscText);
  PoolDeleteArray(router->DeviceName, USB4_SWITCH::kDeviceNameTag);
  PoolDeleteArray(router->VendorName, USB4_SWITCH::kVendorNameTag);
  PoolDeleteArray(router->Drom, USB4_SWITCH::kDromTag);
  PoolDelete(router);
}

}  // namespace

void ReferenceRouter(USB4_SWITCH* router) {
  router->References.Increment();
}

void DereferenceRouter(USB4_SWITCH* router) {
  while (router != nullptr && router->References.Decrement() == 0) {
    USB4_SWITCH* parent = router->Info.Parent;
    FreeRouter(router);
    router = parent;
  }
}

void KeepForReadersOfParent(USB4_SWITCH* router) {
  _Analysis_assume_lock_held_(router->Domain->TopologyLock);
  USB4_SWITCH* parent = router->Info.Parent;
  if (parent == nullptr || parent->Readers == 0) return;
  ReferenceRouter(router);
  router->NextKept = std::exchange(parent->KeptForReaders.Change(), router);
}

RouterReference::RouterReference(USB4_SWITCH* router) : router_(router) {
  if (router_ == nullptr) return;
  ++router_->Readers;
  ReferenceRouter(router_);
}

RouterReference& RouterReference::operator=(RouterReference&& other) {
  if (this == &other) return *this;
  Leave();
  router_ = std::exchange(other.router_, nullptr);
  return *this;
}

void RouterReference::Leave() {
  USB4_SWITCH* router = std::exchange(router_, nullptr);
  if (router == nullptr) return;
  USB4_SWITCH* kept = nullptr;
  {
    const SpinLockGuard guard(router->Domain->TopologyLock);
    --router->Readers;
    if (router->Readers == 0) kept = std::exchange(router->KeptForReaders.Change(), nullptr);
  }
  while (kept != nullptr) DereferenceRouter(std::exchange(kept, kept->NextKept));
  DereferenceRouter(router);
}
