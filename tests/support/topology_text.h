// "H1:1 - D1:1, hub=D2:3 - T3:1": the routers and cables of a test. "a/H1:1 - b/H3:1": of two hosts.
#pragma once
#include <string>
#include <utility>
#include <vector>

namespace tests {

struct TopologyText {
  struct RouterMention {
    std::string name, model;
    std::string host;  // what stands before the slash of a name; empty without one
  };
  std::vector<RouterMention> routers;                       // in order of first mention
  std::vector<std::pair<std::string, std::string>> cables;  // "H1:1", "D1:1"
};

// Throws std::runtime_error for text that is none.
TopologyText ParseTopology(const std::string& text);

}  // namespace tests
