// DisplayPort rates and their codes.
#include "sim/router/protocol_facts.h"

#include <algorithm>
#include <cassert>
#include <iterator>

namespace sim {
namespace {

constexpr unsigned kRates[] = {1620, 2700, 5400, 8100};  // by code
constexpr unsigned kLanes[] = {1, 2, 4};                 // by code

template <class Table>
unsigned CodeOf(const Table& table, unsigned value) {
  const auto* found = std::find(std::begin(table), std::end(table), value);
  assert(found != std::end(table));
  return static_cast<unsigned>(found - std::begin(table));
}

template <class Table>
unsigned ValueOf(const Table& table, unsigned code) {
  return code < std::size(table) ? table[code] : 0;
}

}  // namespace

bool DpRateHasCode(const DpRate& rate) {
  auto in = [](const auto& table, unsigned value) {
    return std::find(std::begin(table), std::end(table), value) != std::end(table);
  };
  return in(kRates, rate.mbpsPerLane) && in(kLanes, rate.lanes);
}

std::uint32_t EncodeDpRate(const DpRate& rate) {
  return CodeOf(kRates, rate.mbpsPerLane) << 8 | CodeOf(kLanes, rate.lanes) << 12;
}

DpRate DecodeDpRate(std::uint32_t dword) {
  return {ValueOf(kRates, (dword >> 8) & 0xF), ValueOf(kLanes, (dword >> 12) & 7)};
}

unsigned DpMbps(const DpRate& rate) {
  return rate.mbpsPerLane * rate.lanes * 8 / 10;
}

}  // namespace sim
