// A tree of routers drawn from a random stream: which hang on which ports, which cables are pulled, what may go where.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

#include "platform/host/random.h"
#include "sim/router/router_model.h"

namespace lab {

class DrawnTree {
 public:
  struct Node {
    std::string name;
    const sim::RouterModel* model = nullptr;
    std::size_t parent = kNone;  // the router that it hangs on, or hung on last; kNone for a host router
    unsigned parentPort = 0, ownPort = 0;
    bool plugged = true;
    bool IsHost() const { return parent == kNone; }
  };
  static constexpr std::size_t kNone = ~std::size_t{0};

  explicit DrawnTree(platform::RandomStream& random) : random_(random) {}

  void AddHost(const std::string& name, const std::string& model);
  // Hangs `count` routers below the hosts, hubs where there would be no port left; fewer when there is no place.
  void Grow(std::size_t count);

  const std::vector<Node>& nodes() const { return nodes_; }
  // Every cable from here up to the host is there.
  bool Present(std::size_t node) const;
  // The host router at the top of its branch, present or not.
  std::size_t HostOf(std::size_t node) const;
  std::string Cable(std::size_t node) const;  // keys `from` and `to` of a scenario file

  // Routers that can be unplugged, and those that can be plugged.
  std::vector<std::size_t> Pluggable(bool plugged) const;
  void Unplug(std::size_t node) { nodes_[node].plugged = false; }
  void PlugAgain(std::size_t node) { nodes_[node].plugged = true; }
  // On its old port or on another free one of the same domain.
  void PlugSomewhere(std::size_t node);

 private:
  struct Port {
    std::size_t node;
    unsigned adapter;
  };
  std::size_t Depth(std::size_t node) const;
  std::size_t Height(std::size_t node) const;
  bool Below(std::size_t node, std::size_t top) const;  // or the same
  std::vector<Port> FreePorts(std::size_t deepest) const;
  void Hang(Port port, const sim::RouterModel& model);

  platform::RandomStream& random_;
  std::vector<Node> nodes_;
};

// First lanes of the ports of a router.
std::vector<unsigned> CablePorts(const sim::RouterModel& model);
// Adapters of a type that a router really has.
std::vector<unsigned> AdaptersOfType(const sim::RouterModel& model, std::uint32_t type);

}  // namespace lab
