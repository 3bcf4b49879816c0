// "H1:1 - D1:1, hub=D2:3 - T3:1": the routers and cables of a test.
#pragma once
#include <string>
#include <utility>
#include <vector>

namespace tests {

struct TopologyText {
  struct RouterMention {
    std::string name, model;
  };
  std::vector<RouterMention> routers;                       // in order of first mention
  std::vector<std::pair<std::string, std::string>> cables;  // "H1:1", "D1:1"
};

// Throws std::runtime_error for text that is none.
TopologyText ParseTopology(const std::string& text);

}  // namespace tests
