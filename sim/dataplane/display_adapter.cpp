// DisplayPort adapters.
#include "sim/dataplane/display_adapter.h"

#include <algorithm>
#include <cassert>
#include <iterator>

#include "sim/dataplane/path_probe.h"
#include "sim/dataplane/protocol_adapters.h"
#include "sim/router/adapter.h"
#include "sim/router/router.h"

namespace sim {
namespace {

constexpr DelayRange kHandshake{"sim.dp.handshake", 2 * kMs, 1 * kMs / 10, 60 * kMs};
constexpr DelayRange kCapabilitiesTime{"sim.dp.capabilities", 7 * kMs, 5 * kMs, 10 * kMs};

constexpr std::uint32_t kVideo = 1u << 31;             // dword 0
constexpr std::uint32_t kAux = 1u << 30;               // dword 0
constexpr std::uint32_t kHotPlugDetect = 1u << 6;      // dword 2
constexpr std::uint32_t kHotPlugClear = 1u << 9;       // dword 3
constexpr std::uint32_t kHandshakeBit = 1u << 25;      // dword 6
constexpr std::uint32_t kCapabilitiesRead = 1u << 31;  // dword 7
constexpr std::uint32_t kRateAndLanes = 0x7F00;        // dwords 4, 5, 7

DpRate Least(const DpRate& a, const DpRate& b) {
  return {std::min(a.mbpsPerLane, b.mbpsPerLane), std::min(a.lanes, b.lanes)};
}

void HandshakeWritten(Adapter& adapter) {
  if (!adapter.router().takesPartInDpHandshake()) {
    adapter.router().Misuse(adapter.number(), Complaint::DpHandshake);
    return;
  }
  if (adapter.dp.refusesHandshake) return;
  if (adapter.router().fabric().simulation().faults().Fires("dp.no-handshake")) return;
  const auto delay = adapter.dp.handshake;
  Later(adapter, delay ? *delay : adapter.router().fabric().timing().Draw(kHandshake), "DP handshake",
        [&adapter] { adapter.space().SetBits(adapter.protocolCapability + 6, kHandshakeBit, 0); });
}

void Forget(Adapter& dpIn) {
  dpIn.dpTalk.with = nullptr;
  dpIn.space().Set(dpIn.protocolCapability + 7, 0);
  dpIn.space().SetBits(dpIn.protocolCapability + 2, kHotPlugDetect, 0);
}

// What all of the way agree on: the source, the limit that the manager wrote for it, and the display.
void Learn(Adapter& dpIn, const Display& display) {
  const unsigned at = dpIn.protocolCapability;
  const std::uint32_t limit = dpIn.space().Get(at + 5);
  const DpRate source = Least(DecodeDpRate(dpIn.space().Get(at + 4)), DecodeDpRate(limit));
  const DpRate agreed = Least(source, display.most);
  if (!DpRateHasCode(agreed)) return;  // a limit that means nothing
  dpIn.space().Set(at + 7, kCapabilitiesRead | (limit & ~kRateAndLanes) | EncodeDpRate(agreed));
  dpIn.space().SetBits(at + 2, kHotPlugDetect, kHotPlugDetect);
}

void Ask(Adapter& dpIn, Adapter& dpOut) {
  const unsigned question = ++dpIn.dpTalk.question;
  dpIn.dpTalk.with = &dpOut;
  const Display& display = *dpOut.dp.display;
  if (!display.answers) return;
  if (dpIn.router().fabric().simulation().faults().Fires("dp.no-capabilities")) return;
  const platform::Time delay =
      display.readyAfter ? *display.readyAfter : dpIn.router().fabric().timing().Draw(kCapabilitiesTime);
  Later(dpIn, delay, "display capabilities", [&dpIn, &dpOut, question] {
    if (dpIn.dpTalk.question != question || ReachedDisplayPort(dpIn) != &dpOut || !dpOut.dp.display) return;
    Learn(dpIn, *dpOut.dp.display);
  });
}

void Evaluate(Adapter& dpIn) {
  Adapter* dpOut = ReachedDisplayPort(dpIn);
  if (dpOut == nullptr || !dpOut->dp.display) {
    Forget(dpIn);
  } else if (dpIn.dpTalk.with != dpOut && dpIn.router().takesPartInDpHandshake()) {
    Ask(dpIn, *dpOut);
  }
}

}  // namespace

Adapter* ReachedDisplayPort(Adapter& dpIn) {
  const std::uint32_t enables = dpIn.space().Get(dpIn.protocolCapability) & (kVideo | kAux);
  if (enables != (kVideo | kAux)) return nullptr;
  Adapter* dpOut = Probe(dpIn, kVideoHop).arrived;
  if (dpOut == nullptr || dpOut->type() != kTypeDpOut) return nullptr;
  const bool talks = Probe(dpIn, kAuxHop).arrived == dpOut && Probe(*dpOut, kAuxHop).arrived == &dpIn;
  return talks ? dpOut : nullptr;
}

void LearnDisplayAtOnce(Adapter& dpIn) {
  Adapter* dpOut = ReachedDisplayPort(dpIn);
  if (dpOut == nullptr || !dpOut->dp.display || !dpIn.router().takesPartInDpHandshake()) return;
  ++dpIn.dpTalk.question;
  dpIn.dpTalk.with = dpOut;
  Learn(dpIn, *dpOut->dp.display);
}

void WatchDisplayPort(Adapter& adapter) {
  const unsigned at = adapter.protocolCapability;
  adapter.space().OnWrite(at, [&adapter](const ConfigSpace::Access& access) {
    CheckSwitchedOn(adapter, access);
    if (((access.old ^ access.now) & (kVideo | kAux)) != 0) DisplaysChanged(adapter.router().fabric());
  });
  adapter.space().OnWrite(at + 6, [&adapter](const ConfigSpace::Access& access) {
    if ((access.now & kHandshakeBit) != 0) HandshakeWritten(adapter);
  });
  if (adapter.type() != kTypeDpIn) return;
  adapter.space().OnWrite(at + 3, [&adapter, at](const ConfigSpace::Access& access) {
    if ((access.started & kHotPlugClear) != 0) adapter.space().SetBits(at + 2, kHotPlugDetect, 0);
  });
}

void RestoreDisplayPort(Adapter& adapter) {
  const unsigned at = adapter.protocolCapability;
  adapter.space().SetBits(at + 4, kRateAndLanes, EncodeDpRate(adapter.dp.local.value_or(adapter.model().dpLink)));
  if (adapter.type() != kTypeDpOut) return;
  const bool attached = adapter.dp.display.has_value();
  adapter.space().SetBits(at + 2, kHotPlugDetect, attached ? kHotPlugDetect : 0);
  adapter.SetPlugged(attached);
}

void SetDpFacts(Adapter& adapter, const DpFacts& facts) {
  assert(!facts.display || adapter.type() == kTypeDpOut);
  adapter.dp = facts;
  RestoreDisplayPort(adapter);
  DisplaysChanged(adapter.router().fabric());
}

DpBook ReadDp(const Adapter& adapter) {
  auto word = [&adapter](unsigned n) { return adapter.space().Get(adapter.protocolCapability + n); };
  DpBook book;
  book.video = (word(0) & kVideo) != 0;
  book.aux = (word(0) & kAux) != 0;
  book.hotPlugDetect = (word(2) & kHotPlugDetect) != 0;
  book.capabilitiesRead = (word(7) & kCapabilitiesRead) != 0;
  book.local = DecodeDpRate(word(4));
  book.remote = DecodeDpRate(word(5));
  if (book.capabilitiesRead) book.negotiated = DecodeDpRate(word(7));
  return book;
}

void DisplaysChanged(Surroundings& fabric) {
  for (const auto& router : fabric.routers()) {
    for (unsigned n = 1; n <= router->maxAdapter(); ++n) {
      Adapter& adapter = *router->adapter(n);
      if (adapter.implemented() && adapter.type() == kTypeDpIn && adapter.protocolCapability != 0) Evaluate(adapter);
    }
  }
}

}  // namespace sim
