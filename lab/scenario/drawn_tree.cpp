// Draws are made in a fixed order, so that a seed is one tree.
#include "lab/scenario/drawn_tree.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/scenario/topology_input.h"

namespace lab {
namespace {

// Hubs stand more than once: trees that branch find more than chains do. The dock that drops its
// link unless it is enumerated soon is left out: in a large tree it never is.
constexpr const char* kModels[] = {"D1", "D1", "D1", "D2", "D2", "DOCK", "DOCK", "T3", "T3", "T1", "G2", "G1"};
constexpr const char* kHubs[] = {"D1", "D2"};

bool Has(const sim::AdapterModel& adapter, std::uint32_t type) {
  return adapter.number != 0 && adapter.presence == sim::AdapterPresence::Implemented && adapter.type == type;
}

}  // namespace

std::vector<unsigned> CablePorts(const sim::RouterModel& model) {
  std::vector<unsigned> ports;
  for (const sim::AdapterModel& adapter : model.adapters) {
    if (Has(adapter, sim::kTypeLane) && adapter.lane == 0) ports.push_back(adapter.number);
  }
  return ports;
}

std::vector<unsigned> AdaptersOfType(const sim::RouterModel& model, std::uint32_t type) {
  std::vector<unsigned> adapters;
  for (const sim::AdapterModel& adapter : model.adapters) {
    if (Has(adapter, type)) adapters.push_back(adapter.number);
  }
  return adapters;
}

void DrawnTree::AddHost(const std::string& name, const std::string& model) {
  Node host;
  host.name = name;
  host.model = sim::FindModel(model);
  nodes_.push_back(host);
}

std::size_t DrawnTree::Depth(std::size_t node) const {
  std::size_t depth = 0;
  for (; !nodes_[node].IsHost(); node = nodes_[node].parent) ++depth;
  return depth;
}

// Levels below it, plugged or not.
std::size_t DrawnTree::Height(std::size_t node) const {
  std::size_t height = 0;
  for (std::size_t other = 0; other < nodes_.size(); ++other) {
    if (Below(other, node)) height = std::max(height, Depth(other) - Depth(node));
  }
  return height;
}

bool DrawnTree::Below(std::size_t node, std::size_t top) const {
  while (node != top && !nodes_[node].IsHost()) node = nodes_[node].parent;
  return node == top;
}

bool DrawnTree::Present(std::size_t node) const {
  for (; !nodes_[node].IsHost(); node = nodes_[node].parent) {
    if (!nodes_[node].plugged) return false;
  }
  return true;
}

std::size_t DrawnTree::HostOf(std::size_t node) const {
  while (!nodes_[node].IsHost()) node = nodes_[node].parent;
  return node;
}

std::string DrawnTree::Cable(std::size_t node) const {
  const Node& below = nodes_[node];
  return fmt::format("from = \"{}:{}\"\nto = \"{}:{}\"\n", nodes_[below.parent].name, below.parentPort, below.name,
                     below.ownPort);
}

// Of routers that are at most `deepest` levels below their host. A port stays taken by a router that was pulled from
// it, so that it can come back.
std::vector<DrawnTree::Port> DrawnTree::FreePorts(std::size_t deepest) const {
  std::vector<Port> ports;
  for (std::size_t node = 0; node < nodes_.size(); ++node) {
    if (Depth(node) > deepest) continue;
    for (const unsigned adapter : CablePorts(*nodes_[node].model)) {
      const bool taken = std::any_of(nodes_.begin(), nodes_.end(), [&](const Node& other) {
        return other.parent == node && other.parentPort == adapter;
      });
      if (!taken && (nodes_[node].IsHost() || nodes_[node].ownPort != adapter)) ports.push_back({node, adapter});
    }
  }
  return ports;
}

void DrawnTree::Hang(Port port, const sim::RouterModel& model) {
  const std::vector<unsigned> own = CablePorts(model);
  Node node;
  node.name = fmt::format("r{}", nodes_.size());
  node.model = &model;
  node.parent = port.node;
  node.parentPort = port.adapter;
  node.ownPort = model.usb4() ? own[random_.Below(own.size())] : model.upstream;
  nodes_.push_back(node);
}

void DrawnTree::Grow(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::vector<Port> ports = FreePorts(kUsb4Depth - 1);
    if (ports.empty()) return;
    const bool last = i + 1 == count;
    const char* name = ports.size() == 1 && !last ? kHubs[random_.Below(std::size(kHubs))]
                                                  : kModels[random_.Below(std::size(kModels))];
    Hang(ports[random_.Below(ports.size())], *sim::FindModel(name));
  }
}

std::vector<std::size_t> DrawnTree::Pluggable(bool plugged) const {
  std::vector<std::size_t> nodes;
  for (std::size_t node = 0; node < nodes_.size(); ++node) {
    if (!nodes_[node].IsHost() && nodes_[node].plugged == plugged && Present(nodes_[node].parent)) {
      nodes.push_back(node);
    }
  }
  return nodes;
}

void DrawnTree::PlugSomewhere(std::size_t node) {
  Node& moved = nodes_[node];
  moved.plugged = true;
  if (random_.Chance(2, 3)) return;
  const std::size_t host = HostOf(node), height = Height(node);
  std::vector<Port> ports = FreePorts(height < kUsb4Depth ? kUsb4Depth - 1 - height : 0);
  std::erase_if(ports, [&](const Port& port) {
    return Below(port.node, node) || HostOf(port.node) != host || !Present(port.node);
  });
  if (ports.empty()) return;
  const Port port = ports[random_.Below(ports.size())];
  moved.parent = port.node;
  moved.parentPort = port.adapter;
}

}  // namespace lab
