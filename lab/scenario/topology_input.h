// The routers and cables that a scenario file names, checked while it is read: what cannot exist is refused where it is
// written.
#pragma once
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lab/input/toml_reader.h"
#include "lab/machine/machine.h"

namespace lab {

// Levels below the host that a router may be on: with a USB4 host, or for a USB4 router; and among Thunderbolt 3 only.
inline constexpr unsigned kUsb4Depth = 5;
inline constexpr unsigned kThunderboltDepth = 6;

// Every mistake is told at the key that holds it, and only there: what names a router of an unknown model, or a port
// that does not exist, is not judged any further.
class TopologyInput {
 public:
  // Knows the host routers of `machine`.
  explicit TopologyInput(const MachineConfig& machine);

  void AddPeer(const TableReader& table, const PeerHostConfig& peer);
  RouterConfig ReadRouter(TableReader& table);
  // Keys `from`, `to`, `lanes`, `gbpsPerLane`. Both ends must be lane 0 of a port that exists; an end that is not is
  // empty.
  CableConfig ReadCable(TableReader& table);
  // Key `what`: a router, or one of its ports; empty when it is neither.
  std::string ReadPlace(TableReader& table);

  // An adapter of one of these types, as "D1:13".
  std::string ReadAdapter(TableReader& table, const char* key, const std::vector<std::uint32_t>& types);

  // The cable is plugged: both ports must be free, and the tree must stay a tree within its depth; otherwise the plan
  // stays as it is.
  void Plug(const TableReader& table, const CableConfig& cable);
  // The cable at `what` is pulled; there must be one.
  void Unplug(const TableReader& table, const std::string& what);
  // There must be a cable at `what`.
  void RequireCable(const TableReader& table, const std::string& what) const { FindCable(table, what); }

 private:
  struct Port {
    std::string router;
    unsigned adapter = 0;
    std::string Text() const { return router + ":" + std::to_string(adapter); }
    bool operator==(const Port&) const = default;
  };
  struct Cable {
    Port ends[2];
  };
  using Depths = std::map<std::string, unsigned>;
  using Domains = std::map<std::string, std::string>;

  // None for a router of an unknown model.
  const sim::RouterModel* Model(const std::string& router) const { return routers_.at(router); }
  static bool IsHost(const sim::RouterModel* model) { return model != nullptr && model->host; }
  std::vector<std::string> RouterNames() const;
  std::string FreePorts(const std::string& router) const;
  // None when the text names no port, which is told, or a port of a router of an unknown model, which is not.
  std::optional<Port> ParsePort(const TableReader& table, const char* key, const std::string& text) const;
  bool RequirePort(const TableReader& table, const char* key, const Port& port) const;
  bool RequireFree(const TableReader& table, const char* key, const Port& port) const;
  std::string ReadPort(TableReader& table, const char* key) const;
  const Cable* CableAt(const Port& port) const;
  const Cable* CableTowardsHost(const std::string& router) const;
  std::optional<std::size_t> FindCable(const TableReader& table, const std::string& what) const;
  // The host router to whose domain each router belongs: the one that was the first to reach it.
  Domains DomainsNow() const;
  // Both ends belong to one domain, and it is no cable from a host back to itself.
  bool WithinDomain(const Cable& cable, const Domains& domains) const;
  // Within one domain.
  bool Connected(const std::string& first, const std::string& second) const;
  // Distance from the nearest host, of every router that hangs below one.
  Depths DepthsBelow(const std::string& host) const;
  bool RequireDepth(const TableReader& table) const;

  std::map<std::string, const sim::RouterModel*> routers_;
  std::vector<Cable> cables_;
};

}  // namespace lab
