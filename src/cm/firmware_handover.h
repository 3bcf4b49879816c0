// Taking the domain over from a connection manager that the host router's firmware runs. PASSIVE_LEVEL.
#pragma once
#include "include/domain_record.h"
#include "include/status.h"

// Whether the host router's function comes from the maker whose firmware manages connections until told otherwise.
// False when its vendor ID can't be read.
[[nodiscard]] bool HostNeedsHandover(USB4_DOMAIN* domain);
// Tells that firmware that this driver takes over, and waits for its answer. Failures are traced; the start goes on.
void KivOtherFirmwareStart(USB4_DOMAIN* domain);
