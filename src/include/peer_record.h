// A peer host and what is known of it.
#pragma once
#include <ntddk.h>

#include <cstdint>

#include "include/atomic.h"
#include "include/pool.h"
#include "include/router_record.h"

struct USB4_XDOMAIN {
  static constexpr ULONG kPoolTag = PoolTag("XDM1");

  USB4_SWITCH_INFO Info;  // the parent router, and the name
  USB4_DOMAIN* Domain;
  std::uint64_t Route;
  SharedFlag Removed;  // known to be gone
};
