// Goal: a capability list is walked as its own kind says, and every list a device can show comes to an end. Method: a
// hub whose lists are bent, asked through the driver's searches once it has been enumerated.
#include "topology/capabilities.h"

#include <gtest/gtest.h>

#include "tests/support/bench.h"

namespace tests {
namespace {

using Capabilities = std::vector<sim::CapabilityModel>;

sim::CapabilityModel Vendor(unsigned offset, unsigned vsec, std::optional<unsigned> next = {}) {
  sim::CapabilityModel capability;
  capability.id = 5;
  capability.vsec = vsec;
  capability.offset = offset;
  capability.length = 4;
  capability.next = next;
  return capability;
}

sim::CapabilityModel LongVendor(unsigned offset, unsigned vsec, unsigned next) {
  sim::CapabilityModel capability = Vendor(offset, vsec, next);
  capability.longForm = true;
  return capability;
}

sim::CapabilityModel Other(unsigned id, unsigned offset, std::optional<unsigned> next = {}) {
  sim::CapabilityModel capability;
  capability.id = id;
  capability.offset = offset;
  capability.length = 2;
  capability.next = next;
  return capability;
}

// A hub with one port whose router list, or whose adapter 9 list, is the test's.
class BentHub {
 public:
  BentHub(Capabilities router, std::optional<Capabilities> adapter9 = {}) : model_(*sim::FindModel("D1")) {
    model_.capabilities = std::move(router);
    if (adapter9) model_.adapters[9].capabilities = *adapter9;
    bench_.fabric().AddRouter(model_, "B1");
    bench_.fabric().Connect("H1:1", "B1:1", {2, 0, true});
    bench_.StartQuietly();
  }
  Bench& bench() { return bench_; }

 private:
  sim::RouterModel model_;
  Bench bench_{"H1"};
};

const sim::CapabilityModel kTmu = Other(3, 0x28);

WORLD_TEST(Capabilities, RouterListsAreWalkedByTheirOwnRules) {
  sim::CapabilityModel tmu = kTmu;
  struct {
    const char* what;
    Capabilities list;
    int tmu, vendor1, vendor6, unknown;  // FindCap(3), FindVseCap(1), FindVseCap(6), FindCap(7)
  } cases[] = {
      {"short forms in a row", {tmu, Vendor(0x48, 1), Vendor(0x58, 6)}, 0x28, 0x48, 0x58, -1},
      {"a long form leads on by its second word",
       {tmu, LongVendor(0x48, 1, 0x158), Vendor(0x158, 6)},
       0x28,
       0x48,
       0x158,
       -1},
      {"a long form's 0xFFFF ends the list", {tmu, LongVendor(0x48, 1, 0xFFFF), Vendor(0x58, 6)}, 0x28, 0x48, -1, -1},
      {"behind an unknown kind only the plain search goes on",
       {tmu, Other(7, 0x48), Vendor(0x58, 6)},
       0x28,
       -1,
       -1,
       0x48},
      {"a capability that is its own successor", {Other(3, 0x28, 0x28)}, 0x28, -1, -1, -1},
      {"two that lead to each other", {tmu, Vendor(0x48, 2, 0x28)}, 0x28, -1, -1, -1},
      {"a successor outside the space", {tmu, LongVendor(0x48, 1, 0x1FF0)}, 0x28, 0x48, -1, -1},
      {"a successor that no packet can address", {tmu, LongVendor(0x48, 1, 0xFFF0)}, 0x28, 0x48, -1, -1},
  };
  for (auto& test : cases) {
    SCOPED_TRACE(test.what);
    BentHub hub(test.list);
    hub.bench().WithRouter(1, [&test](USB4_SWITCH& router) {
      EXPECT_EQ(KivUsb4SwitchFindCap(&router, 3), test.tmu);
      EXPECT_EQ(KivUsb4SwitchFindVseCap(&router, 1), test.vendor1);
      EXPECT_EQ(KivUsb4SwitchFindVseCap(&router, 6), test.vendor6);
      EXPECT_EQ(KivUsb4SwitchFindCap(&router, 7), test.unknown);
    });
  }
}

WORLD_TEST(Capabilities, AdapterListsEndAtOffsetZeroWhoseWordIsReadOnceMore) {
  struct {
    const char* what;
    Capabilities list;
    int protocol;
    unsigned reads;
  } cases[] = {
      {"found first", {Other(4, 0x39), Other(5, 0x40)}, 0x39, 1},
      {"found second", {Other(5, 0x39), Other(4, 0x40)}, 0x40, 3},
      {"not found", {Other(5, 0x39), Other(5, 0x40)}, -1, 5},
      {"no list", {}, -1, 1},
      {"leads back into itself", {Other(5, 0x39, 0x39)}, -1, 511},
  };
  for (auto& test : cases) {
    SCOPED_TRACE(test.what);
    BentHub hub({kTmu}, test.list);
    hub.bench().RequestCounts();
    hub.bench().WithRouter(
        1, [&test](USB4_SWITCH& router) { EXPECT_EQ(KivUsb4PortFindCap(&router.Adapters[9], 4), test.protocol); });
    EXPECT_EQ(hub.bench().RequestCounts()[1], test.reads);
    hub.bench().WithRouter(1, [&test](USB4_SWITCH& router) {
      EXPECT_EQ(router.Adapters[9].ProtocolCapability, test.protocol > 0 ? unsigned(test.protocol) : 0u);
    });
  }
}

}  // namespace
}  // namespace tests
