// USB3 adapters: the manager's request and its acknowledgement, and what the USB devices behind an adapter do.
#pragma once
#include "sim/router/protocol_facts.h"

namespace sim {

class Adapter;

// The registers as a person reads them. Mb/s are rounded to the nearest.
struct Usb3Book {
  bool enabled = false;
  bool requested = false;
  bool acknowledged = false;
  unsigned scale = 0;
  unsigned allocatedUpUnits = 0;
  unsigned allocatedDownUnits = 0;
  Usb3Bandwidth allocated;
  Usb3Bandwidth consumed;
  unsigned maxRateMbps = 0;
  unsigned actualRateMbps = 0;  // 0: not valid
};

// Changes the facts of a USB3 adapter and shows them in its registers.
void SetUsb3Facts(Adapter& adapter, const Usb3Facts& facts);
Usb3Book ReadUsb3(const Adapter& adapter);

// Units of 512 x 2^scale bits per 125 us that hold `mbps`.
unsigned Usb3Units(unsigned mbps, unsigned scale);

// --- for the adapter
void WatchUsb3(Adapter& adapter);
void RestoreUsb3(Adapter& adapter);  // shows the facts in registers that have been reset

}  // namespace sim
