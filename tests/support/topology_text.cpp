// Items between commas; each a router or a cable.
#include "tests/support/topology_text.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace tests {
namespace {

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// Notes the router of "NAME=MODEL:PORT" and returns "NAME:PORT".
std::string Mention(TopologyText& topology, const std::string& text) {
  const std::size_t colon = text.rfind(':');
  const std::string router = text.substr(0, colon);
  const std::size_t equals = router.find('=');
  const std::string name = router.substr(0, equals);
  const std::size_t slash = name.find('/');
  const std::string model = equals == std::string::npos ? name.substr(slash + 1) : router.substr(equals + 1);
  if (name.empty() || model.empty()) throw std::runtime_error("no router in \"" + text + "\"");
  const bool mentioned = std::any_of(topology.routers.begin(), topology.routers.end(),
                                     [&](const TopologyText::RouterMention& known) { return known.name == name; });
  const std::string host = slash == std::string::npos ? "" : name.substr(0, slash);
  if (!mentioned) topology.routers.push_back({name, model, host});
  return colon == std::string::npos ? name : name + text.substr(colon);
}

}  // namespace

TopologyText ParseTopology(const std::string& text) {
  TopologyText topology;
  std::stringstream items(text);
  for (std::string item; std::getline(items, item, ',');) {
    const std::size_t dash = item.find(" - ");
    const std::string first = Mention(topology, Trim(item.substr(0, dash)));
    if (dash != std::string::npos) topology.cables.emplace_back(first, Mention(topology, Trim(item.substr(dash + 3))));
  }
  return topology;
}

}  // namespace tests
