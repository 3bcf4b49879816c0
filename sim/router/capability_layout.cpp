// The registers of each capability kind.
#include "sim/router/capability_layout.h"

#include <algorithm>

#include "sim/router/adapter.h"

namespace sim {
namespace {

using enum BitKind;

struct Dword {
  std::uint32_t value = 0;
  RegisterRules rules;
};

constexpr unsigned kLinkControllerHeader = 0x20;  // dwords before its first port block

// Lane adapter disconnected: state 7, x1, 10 Gb/s, target x1.
constexpr std::uint32_t kLaneDisconnected = 0x5C18001C;
constexpr RegisterRules kLaneControl{{3, 0, ReadWrite},   {9, 4, ReadWrite},      {11, 10, ReadWrite},
                                     {14, 14, ReadWrite}, {15, 15, SelfClearing}, {31, 16, Status}};

std::vector<Dword> LaneCapability(const RouterModel& model) {
  return {{model.laneSpeeds << 16 | model.laneWidths << 20, {}}, {kLaneDisconnected, kLaneControl}, {0, {}}};
}

std::vector<Dword> AdapterTmuCapability() {
  std::vector<Dword> dwords(8, {0, kAllStatus});
  dwords[0] = {};
  dwords[1] = {0x00240000, {}};
  dwords[2] = {0x002E0000, {}};
  dwords[3] = {0, {{29, 29, ReadWrite}}};
  return dwords;
}

std::vector<Dword> Usb4PortCapability() {
  std::vector<Dword> dwords(20);
  dwords[kPortCs18] = {0x00000410, kAllStatus};
  dwords[kPortCs19] = {0x00000006, {{31, 0, Preserve}, {4, 3, ReadWrite}, {18, 16, ReadWrite}}};
  return dwords;
}

// Managers switch these tunnels by writing the whole header dword, so its fixed bits ignore what is written.
std::vector<Dword> PcieCapability() {
  return {{0x21860000, {{30, 0, Status}, {31, 31, ReadWrite}}}};
}

std::vector<Dword> Usb3Capability() {
  return {{0, {{29, 0, Status}, {31, 30, ReadWrite}}},
          {0, kAllStatus},
          // An allocation too large for its field spills into the bits above.
          {0, {{23, 0, ReadWrite}, {30, 24, Status}, {31, 31, ReadWrite}}},
          {0, {{5, 0, ReadWrite}}},
          {0x00001500, kAllStatus}};
}

std::vector<Dword> DisplayCapability() {
  return {
      {0x00090000, {{26, 16, ReadWrite}, {31, 30, ReadWrite}}},
      {0x00004008, {{21, 0, ReadWrite}}},
      {0, {{31, 0, Status}, {19, 16, ReadWrite}}},
      {0x01010005, {{31, 0, Preserve}, {9, 9, SelfClearing}}},
      {0x15C0A334, {}},
      {0, kAllReadWrite},
      {0, {{26, 25, ReadWrite}}},
      {0, kAllStatus},
  };
}

std::vector<Dword> ProtocolCapability(std::uint32_t type) {
  switch (type) {
    case kTypePcieDown:
    case kTypePcieUp:
      return PcieCapability();
    case kTypeUsb3Down:
    case kTypeUsb3Up:
      return Usb3Capability();
    case kTypeDpIn:
    case kTypeDpOut:
      return DisplayCapability();
    default:
      return {Dword{}};
  }
}

std::vector<Dword> AdapterCapability(const CapabilityModel& capability, std::uint32_t type, const RouterModel& model) {
  switch (capability.id) {
    case kCapLane:
      return LaneCapability(model);
    case kCapTmu:
      return AdapterTmuCapability();
    case kCapProtocol:
      return ProtocolCapability(type);
    case kCapUsb4Port:
      return Usb4PortCapability();
    default:
      return std::vector<Dword>(std::max(1u, capability.length));
  }
}

std::vector<Dword> RouterTmuCapability() {
  std::vector<Dword> dwords(26);
  dwords[0] = {1u << 30, {{27, 27, ReadWrite}}};
  dwords[1] = {0, kAllStatus};
  dwords[2] = {0, kAllStatus};
  dwords[3] = {0, {{15, 0, Status}, {31, 16, ReadWrite}}};
  for (unsigned at = 22; at < 26; ++at) dwords[at].rules = kAllReadWrite;
  return dwords;
}

// Dword 1: hot-plug reporting, off after reset. Dword 4: EEPROM access lines. Dword 12: where the DROM lies in it.
std::vector<Dword> PlugEventsCapability() {
  std::vector<Dword> dwords(13);
  dwords[1] = {0x0000007C, {{6, 2, ReadWrite}}};
  dwords[4] = {0x00000082, {{2, 0, ReadWrite}, {3, 3, Status}, {4, 4, ReadWrite}}};
  dwords[12] = {0x00000100, {}};
  return dwords;
}

std::vector<Dword> LinkControllerCapability(const RouterModel& model) {
  constexpr unsigned kBlock = 0xA0;
  const auto lanes =
      static_cast<unsigned>(std::count_if(model.adapters.begin(), model.adapters.end(),
                                          [](const AdapterModel& adapter) { return adapter.type == kTypeLane; }));
  const unsigned blocks = (lanes + 1) / 2;
  std::vector<Dword> dwords(kLinkControllerHeader + blocks * kBlock);
  dwords[2] = {blocks | kLinkControllerHeader << 8 | kBlock << 16, {}};
  const auto low = static_cast<std::uint32_t>(model.uid);
  const auto high = static_cast<std::uint32_t>(model.uid >> 32);
  const std::uint32_t uuid[4] = {low, high, 0xFFFFFFFF, 0xFFFFFFFF};
  for (unsigned i = 0; i < 4; ++i) dwords[3 + i].value = uuid[i];
  dwords[16] = {0, {{7, 0, ReadWrite}}};
  for (unsigned block = 0; block < blocks; ++block) {
    const unsigned start = kLinkControllerHeader + block * kBlock;
    dwords[start + 141] = {0, kAllStatus};
    dwords[start + 150] = {0,
                           {{31, 0, Preserve},
                            {2, 1, ReadWrite},
                            {6, 5, ReadWrite},
                            {17, 16, ReadWrite},
                            {21, 20, ReadWrite},
                            {31, 30, ReadWrite}}};
  }
  return dwords;
}

std::vector<Dword> RouterCapability(const CapabilityModel& capability, const RouterModel& model) {
  if (capability.id == kCapTmu) return RouterTmuCapability();
  if (capability.id == kCapVendor && capability.vsec == kVsecPlugEvents) return PlugEventsCapability();
  if (capability.id == kCapVendor && capability.vsec == kVsecLinkController) return LinkControllerCapability(model);
  return std::vector<Dword>(std::max(capability.longForm ? 2u : 1u, capability.length));
}

// Header bits 15:0 of a short entry: next pointer and identifier. A long form keeps its next pointer in the second
// dword.
void PlaceCapability(ConfigSpace& space, const CapabilityModel& capability, unsigned next, std::vector<Dword> dwords) {
  const bool vendor = capability.id == kCapVendor;
  dwords[0].value |= capability.id << 8;
  if (capability.longForm && dwords.size() > 1) {
    dwords[0].value |= capability.vsec << 16;
    dwords[1].value = static_cast<std::uint32_t>(dwords.size()) << 16 | (next & 0xFFFF);
  } else {
    dwords[0].value |= next & 0xFF;
    if (vendor) dwords[0].value |= capability.vsec << 16 | static_cast<std::uint32_t>(dwords.size() & 0xFF) << 24;
  }
  for (std::size_t i = 0; i < capability.words.size() && i + 1 < dwords.size(); ++i) {
    dwords[i + 1].value = capability.words[i];
  }
  for (std::size_t i = 0; i < dwords.size(); ++i) {
    space.Define(capability.offset + static_cast<unsigned>(i), dwords[i].value, dwords[i].rules);
  }
}

unsigned NextOffset(const std::vector<CapabilityModel>& list, std::size_t index) {
  if (list[index].next) return *list[index].next;
  return index + 1 < list.size() ? list[index + 1].offset : 0;
}

}  // namespace

void DefineAdapterCapabilities(Adapter& adapter, const RouterModel& model) {
  const std::vector<CapabilityModel>& list = adapter.model().capabilities;
  for (std::size_t i = 0; i < list.size(); ++i) {
    PlaceCapability(adapter.space(), list[i], NextOffset(list, i), AdapterCapability(list[i], adapter.type(), model));
    if (list[i].id == kCapLane) adapter.laneCapability = list[i].offset;
    if (list[i].id == kCapTmu) adapter.tmuCapability = list[i].offset;
    if (list[i].id == kCapProtocol) adapter.protocolCapability = list[i].offset;
    if (list[i].id == kCapUsb4Port) adapter.usb4Capability = list[i].offset;
  }
}

RouterCapabilities DefineRouterCapabilities(ConfigSpace& space, const RouterModel& model) {
  RouterCapabilities found;
  for (std::size_t i = 0; i < model.capabilities.size(); ++i) {
    const CapabilityModel& capability = model.capabilities[i];
    PlaceCapability(space, capability, NextOffset(model.capabilities, i), RouterCapability(capability, model));
    if (capability.id == kCapTmu) found.tmu = capability.offset;
    if (capability.id == kCapVendor && capability.vsec == kVsecPlugEvents) found.plugEvents = capability.offset;
    if (capability.id == kCapVendor && capability.vsec == kVsecLinkController) found.linkController = capability.offset;
  }
  return found;
}

}  // namespace sim
