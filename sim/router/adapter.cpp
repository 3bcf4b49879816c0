// One adapter of a router.
#include "sim/router/adapter.h"

#include "sim/router/cable.h"
#include "sim/router/capability_layout.h"
#include "sim/router/router.h"

namespace sim {
namespace {

using enum BitKind;

constexpr std::uint32_t kTotalMask = 0x3FFu << 20;

}  // namespace

Adapter::Adapter(Router& router, const AdapterModel& model) : router_(router), model_(model) {
  if (!implemented()) return;
  DefineHeader();
  DefineAdapterCapabilities(*this, router.model());
  DefinePaths();
  for (unsigned word = 0; word < 3 * model_.counterSets; ++word) countersSpace_.Define(word, 0, kAllReadWrite);
  WatchBuffers();
  if (laneCapability != 0) {
    adapterSpace_.OnWrite(laneCapability + 1, [this](const ConfigSpace::Access& access) {
      if (link != nullptr) {
        link->LaneControlWritten(*this, (access.started & kLaneBonding) != 0);
      } else {
        SetLaneState(laneDisabled() ? LaneState::Disabled : LaneState::Disconnected);
      }
    });
  }
  router_.fabric().AdapterMade(*this);
  router_.fabric().AdapterReset(*this);
}

std::string Adapter::Name() const {
  return router_.name() + ":" + std::to_string(number());
}

void Adapter::DefineHeader() {
  const unsigned first = model_.capabilities.empty() ? 0 : model_.capabilities.front().offset;
  const bool lane = model_.type == kTypeLane;
  adapterSpace_.Define(0, static_cast<std::uint32_t>(router_.model().device) << 16 | router_.model().vendor);
  adapterSpace_.Define(1, first | (model_.counterSets & 0x7FF) << 8 | (model_.counterSets != 0 ? 1u << 19 : 0));
  adapterSpace_.Define(2, model_.type);
  adapterSpace_.Define(3, model_.number << 20);
  // A manager that takes away more set-aside buffers than there are writes into the bits above them.
  adapterSpace_.Define(kAdpBuffers, model_.bufferWord, {{9, 0, ReadWrite}, {31, 10, Status}});
  // Lane adapters of USB4 routers keep quiet until the manager has read them.
  const bool quiet = lane && router_.model().usb4();
  adapterSpace_.Define(kAdpHops, (model_.hop & 0x7FF) | (model_.hop & 0x7FF) << 11 | (quiet ? kAdpDisableHotPlug : 0),
                       {{28, 22, ReadWrite}, {31, 31, ReadWrite}});
  for (unsigned offset = 6; offset <= 8; ++offset) adapterSpace_.Define(offset, 0);
}

// The lock can only be opened from outside; a written 1 does not close it.
void Adapter::WatchBuffers() {
  adapterSpace_.OnWrite(kAdpBuffers, [this](const ConfigSpace::Access& access) {
    if ((access.written & kAdpLock) == 0) SetLock(false);
  });
}

Adapter* Adapter::pair() const {
  return model_.pair == 0 ? nullptr : router_.adapter(model_.pair);
}

LaneState Adapter::laneState() const {
  return static_cast<LaneState>((adapterSpace_.Get(laneCapability + 1) >> 26) & 0xF);
}

void Adapter::SetLaneState(LaneState state) {
  adapterSpace_.SetBits(laneCapability + 1, 0xFu << 26, static_cast<std::uint32_t>(state) << 26);
}

unsigned Adapter::targetWidth() const {
  return (adapterSpace_.Get(laneCapability + 1) >> 4) & 0x3F;
}

void Adapter::SetTargetWidth(unsigned width) {
  adapterSpace_.SetBits(laneCapability + 1, 0x3Fu << 4, width << 4);
}

unsigned Adapter::negotiatedWidth() const {
  return (adapterSpace_.Get(laneCapability + 1) >> 20) & 0x3F;
}

void Adapter::SetNegotiatedWidth(unsigned lanes) {
  adapterSpace_.SetBits(laneCapability + 1, 0x3Fu << 20, lanes << 20);
}

void Adapter::SetSpeed(unsigned gbpsPerLane) {
  adapterSpace_.SetBits(laneCapability + 1, 0xFu << 16, (gbpsPerLane == 20 ? 4u : 8u) << 16);
}

bool Adapter::laneDisabled() const {
  return (adapterSpace_.Get(laneCapability + 1) & kLaneDisable) != 0;
}

unsigned Adapter::lanesSpeedMask() const {
  return (adapterSpace_.Get(laneCapability) >> 16) & 0xF;
}

void Adapter::SetTotalBuffers(unsigned buffers) {
  adapterSpace_.SetBits(kAdpBuffers, kTotalMask, buffers << 20);
}

void Adapter::Reset() {
  adapterSpace_.Reset();
  pathSpace_.Reset();
  countersSpace_.Reset();
  draining_.clear();
  dpTalk.with = nullptr;
  router_.fabric().AdapterReset(*this);
}

}  // namespace sim
