// Whether the diagnostics tree of files is kept up to date.
#pragma once
#include "include/domain_record.h"
#include "include/host_interface_record.h"

_IRQL_requires_max_(DISPATCH_LEVEL) [[nodiscard]] inline bool KivUsb4DiagnosticsEnabled(const USB4_DOMAIN* domain) {
  return domain->HostInterface->DiagnosticsEnabled.IsSet();
}
