// One packet on its way along programmed path entries.
#include "sim/dataplane/path_walker.h"

#include "sim/dataplane/protocol_adapters.h"
#include "sim/router/cable.h"
#include "sim/router/router.h"

namespace sim {
namespace {

constexpr std::uint32_t kDpVideo = 1u << 31;
constexpr std::uint32_t kDpAux = 1u << 30;

// Hop IDs that a DisplayPort adapter works with. Those of Thunderbolt 3 routers are programmed.
struct DpHops {
  unsigned video = kVideoHop;
  unsigned auxOut = kAuxHop;  // into the fabric
  unsigned auxIn = kAuxHop;   // out of it
};

DpHops HopsOf(const Adapter& adapter) {
  if (adapter.router().model().usb4()) return {};
  const unsigned at = adapter.protocolCapability;
  const std::uint32_t aux = adapter.space().Get(at + 1);
  return {(adapter.space().Get(at) >> 16) & 0x7FF, aux & 0x7FF, (aux >> 11) & 0x7FF};
}

// Why a protocol adapter does not pass a packet with this hop ID; empty when it does.
std::string Closed(const Adapter& adapter, unsigned hop, bool intoFabric) {
  const std::string refused = adapter.Name() + " does not take hop " + std::to_string(hop);
  const std::string off = adapter.Name() + " is switched off";
  if (adapter.isPcie() || adapter.isUsb3()) {
    if (hop != kTunnelHop) return refused;
    return SwitchedOn(adapter) ? "" : off;
  }
  if (!adapter.isDisplayPort()) return "";
  const DpHops hops = HopsOf(adapter);
  const bool source = adapter.type() == kTypeDpIn;
  const std::uint32_t enables = adapter.space().Get(adapter.protocolCapability);
  if (hop == hops.video && source == intoFabric) return (enables & kDpVideo) != 0 ? "" : off;
  if (hop == (intoFabric ? hops.auxOut : hops.auxIn)) return (enables & kDpAux) != 0 ? "" : off;
  return refused;
}

}  // namespace

std::string NameWithHop(const Adapter& adapter, unsigned hop) {
  return adapter.Name() + " " + std::to_string(hop);
}

std::string PathWalker::Start() const {
  const Router& router = at_->router();
  if (router.fabric().Asleep(router)) return router.name() + " is asleep";
  return Closed(*at_, hop_, true);
}

std::string PathWalker::Enter() {
  entry_ = at_->pathEntry(hop_);
  const std::string here = NameWithHop(*at_, hop_);
  if (!at_->paths().Defined(2 * hop_) || !entry_.valid()) return "no valid entry at " + here;
  out_ = at_->router().adapter(entry_.outAdapter());
  if (out_ == nullptr || !out_->implemented()) return "entry at " + here + " leads to no adapter";
  if (entry_.outHop() > out_->model().hop) {
    return "hop " + std::to_string(entry_.outHop()) + " is above the limit of " + out_->Name();
  }
  return packet_ ? Stuck() : "";
}

// What keeps a packet from passing an entry that is valid.
std::string PathWalker::Stuck() const {
  const std::string here = NameWithHop(*at_, hop_);
  if (entry_.drops()) return "the entry at " + here + " drops packets";
  if (!sentFrom_.empty() && entry_.ingressFlowControl() != flowControl_) {
    return "flow control differs between " + sentFrom_ + " and " + here;
  }
  if (entry_.ingressFlowControl() && entry_.credits() == 0) return "no credits at " + here;
  if (entry_.ingressSharedBuffering() && at_->allocatedBuffers() == 0) return "no buffers allocated at " + at_->Name();
  const bool open = !entry_.ingressFlowControl() && at_->isLane();
  if (open && at_->setAsideBuffers() == 0) return "no buffers set aside at " + here;
  return "";
}

// Bonded lanes are one link and lane 0 carries it.
std::string PathWalker::Cross() {
  Link* link = out_->link;
  // Entries lead through a cable that rests in a power state; packets do not.
  const bool there = link != nullptr && (link->LaneUp(*out_) || (!packet_ && link->paused()));
  Adapter* far = there ? link->Opposite(*out_) : nullptr;
  if (far == nullptr) return out_->Name() + " is not up";
  if (link->bonded() && out_->model().lane == 1) return out_->Name() + " is the second lane of a bonded link";
  flowControl_ = entry_.egressFlowControl();
  sentFrom_ = NameWithHop(*out_, entry_.outHop());
  at_ = far;
  hop_ = entry_.outHop();
  return "";
}

std::string PathWalker::Leave() const {
  return packet_ ? Closed(*out_, entry_.outHop(), false) : "";
}

}  // namespace sim
