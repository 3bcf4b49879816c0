// A world whose routers were wired before the machine was switched on, and what tests ask of its wire and records.
#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "include/router_record.h"
#include "tests/support/world.h"

namespace tests {

// Links that have trained already; the host's function is of a maker without a connection manager in its firmware.
class Bench : public World {
 public:
  explicit Bench(const std::string& topology, sim::CableOptions cable = {2, 0, true},
                 std::map<std::string, std::uint32_t> registry = {});

  sim::Router& router(const std::string& name) { return *fabric().Find(name); }
  sim::Adapter& adapter(const std::string& port) { return *fabric().FindAdapter(port); }

  void StartQuietly();  // starts, and lets the domain become quiet
  // Protocol errors so far that contain `text` are what the test is about; any other one fails it.
  void ForgiveProtocolErrors(const std::string& text);
  // `look` sees the router at `route`; the test fails when there is none.
  void WithRouter(std::uint64_t route, const std::function<void(USB4_SWITCH& router)>& look);

  // One router a line, in device list order: "1 gen4 20G bonded". The width itself is recorded at the moment of
  // bonding, when the hardware may still show one lane.
  std::string Routers();
  // Requests that the driver sent since the last call: "READ adapter=3 space=adapter offset=0x000 length=8 seq=0" when
  // only those to one route are asked for, else with their routes.
  std::string Requests(std::optional<std::uint64_t> route = {});
  // How many requests went to each route since the last call.
  std::map<std::uint64_t, unsigned> RequestCounts();

 private:
  std::vector<const sim::WireEntry*> TakeRequests();
  std::size_t taken_ = 0;
};

// How often `line` begins a line of `text`.
unsigned CountLines(const std::string& text, const std::string& line);

}  // namespace tests
