// The only user of the JSON library. What a run cannot know yet is an empty list or null, never missing.
#include "lab/report/json_report.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace lab {
namespace {

using Json = nlohmann::ordered_json;

// Additions raise the number behind the point, anything else the one before it.
constexpr const char* kFormatVersion = "1.4";

double Milliseconds(platform::Time time) {
  return static_cast<double>(time) / static_cast<double>(platform::kMillisecond);
}

Json Text(const std::optional<std::string>& text) {
  return text ? Json(*text) : Json(nullptr);
}

Json Bandwidth(const std::optional<BandwidthView>& bandwidth) {
  return bandwidth ? Json{{"up", bandwidth->up}, {"down", bandwidth->down}} : Json(nullptr);
}

Json Adapters(const RouterView& router) {
  Json list = Json::array();
  for (const AdapterView& adapter : router.adapters) {
    list.push_back(Json::array({adapter.number, AdapterTypeName(adapter.type), adapter.type}));
  }
  return list;
}

Json Router(const RouterView& router) {
  Json json;
  json["route"] = fmt::format("{:x}", router.route);
  json["name"] = router.name;
  json["generation"] = router.generation;
  json["vendorName"] = Text(router.vendorName);
  json["deviceName"] = Text(router.deviceName);
  json["uid"] = Text(router.uid);
  json["depth"] = router.depth;
  json["upstreamAdapter"] = router.upstreamAdapter;
  json["adapters"] = Adapters(router);
  json["link"] = nullptr;
  if (router.link) {
    json["link"] = Json{{"speedGbps", router.link->speedGbps},
                        {"lanes", router.link->lanes},
                        {"bonded", router.link->bonded},
                        {"availableMbps", Bandwidth(router.link->available)}};
  }
  json["tmu"] = Text(router.tmu);
  return json;
}

// With several domains in one run each router also says whose it is, since every domain has its own route 0.
Json Routers(const RunReport& report) {
  Json list = Json::array();
  for (const DomainView& domain : report.domains) {
    for (const RouterView& router : domain.routers) {
      Json json = Router(router);
      if (report.domains.size() > 1) json["domain"] = domain.name;
      list.push_back(std::move(json));
    }
  }
  return list;
}

Json Peer(const PeerView& peer) {
  Json json;
  json["route"] = fmt::format("{:x}", peer.route);
  json["adapter"] = fmt::format("{:x}:{}", peer.facing.route, peer.facing.adapter);
  json["name"] = peer.name;
  json["state"] = peer.state;
  json["uuid"] = Text(peer.uuid);
  json["ownUuid"] = peer.ownUuid;
  json["vendorName"] = Text(peer.vendorName);
  json["deviceName"] = Text(peer.deviceName);
  json["vendorId"] = peer.vendorId;
  json["deviceId"] = peer.deviceId;
  json["link"] = nullptr;
  if (peer.link.lanes != 0) {
    json["link"] = Json{{"speedGbps", peer.link.speedGbps}, {"lanes", peer.link.lanes}, {"bonded", peer.link.bonded}};
  }
  json["inputHopLimit"] = peer.inputHopLimit;
  json["outputHopLimit"] = peer.outputHopLimit;
  return json;
}

Json Peers(const RunReport& report) {
  Json list = Json::array();
  for (const DomainView& domain : report.domains) {
    for (const PeerView& peer : domain.peers) {
      list.push_back(Peer(peer));
      if (report.domains.size() > 1) list.back()["domain"] = domain.name;
    }
  }
  return list;
}

Json End(const TunnelEnd& end) {
  return Json{{"adapter", fmt::format("{:x}:{}", end.place.route, end.place.adapter)}, {"router", end.router}};
}

Json Path(const PathView& path) {
  Json hops = Json::array();
  for (const HopView& hop : path.hops) {
    hops.push_back(Json{{"in", fmt::format("{:x}:{}", hop.route, hop.in)},
                        {"inHop", hop.inHop},
                        {"out", fmt::format("{:x}:{}", hop.route, hop.out)},
                        {"outHop", hop.outHop}});
  }
  return Json{{"name", path.name}, {"active", path.active}, {"hops", std::move(hops)}};
}

// Tunnels that the driver lists; several domains are told apart as routers are.
Json Tunnels(const RunReport& report) {
  Json list = Json::array();
  for (const DomainView& domain : report.domains) {
    for (const TunnelView& tunnel : domain.tunnels) {
      if (!tunnel.listed) continue;
      Json json{{"type", TunnelKindName(tunnel.kind)}, {"source", End(tunnel.source)}};
      json["destination"] = tunnel.destination ? End(*tunnel.destination) : Json(nullptr);
      json["active"] = tunnel.active;
      json["allocatedMbps"] = Bandwidth(tunnel.allocated);
      json["consumedMbps"] = Bandwidth(tunnel.consumed);
      json["paths"] = Json::array();
      for (const PathView& path : tunnel.paths) json["paths"].push_back(Path(path));
      if (report.domains.size() > 1) json["domain"] = domain.name;
      list.push_back(std::move(json));
    }
  }
  return list;
}

template <class Item, class Describe>
Json List(const std::vector<Item>& items, Describe describe) {
  Json list = Json::array();
  for (const Item& item : items) list.push_back(describe(item));
  return list;
}

Json Violations(const RunReport& report) {
  return List(report.violations, [](const platform::Violation& violation) {
    return Json{{"rule", platform::RuleName(violation.rule)},
                {"call", violation.call},
                {"task", violation.task},
                {"irql", violation.irql},
                {"detail", violation.detail},
                {"timeMs", Milliseconds(violation.when)},
                {"stack", violation.stack}};
  });
}

Json ProtocolErrors(const std::vector<sim::ProtocolError>& errors) {
  return List(errors, [](const sim::ProtocolError& error) {
    return Json{{"timeMs", Milliseconds(error.when)},
                {"rule", sim::ComplaintName(error.rule)},
                {"text", error.Text()},
                {"count", error.count}};
  });
}

Json Waivers(const RunReport& report) {
  return List(report.waivers, [](const platform::Waiver& waiver) {
    return Json{{"rule", platform::RuleName(waiver.rule)},
                {"where", waiver.where},
                {"count", waiver.hits},
                {"reason", waiver.reason}};
  });
}

Json LeftOver(const RunReport& report) {
  return List(report.leftovers, [](const Leftovers& left) {
    return Json{{"host", left.host},         {"poolBytes", left.poolBytes}, {"handles", left.objects},
                {"mappings", left.mappings}, {"buffers", left.buffers},     {"references", left.references}};
  });
}

Json Events(const RunReport& report) {
  return List(report.events, [](const LiveEvent& event) {
    return Json{
        {"timeMs", Milliseconds(event.when)}, {"where", event.where}, {"event", event.event}, {"effect", event.effect}};
  });
}

const char* Verdict(const RunReport& report) {
  if (report.code != ExitCode::Held) return "fail";
  return report.stopReached ? "stopped" : "pass";
}

}  // namespace

std::string FormatJson(const RunReport& report) {
  Json json;
  json["format_version"] = kFormatVersion;
  json["verdict"] = Verdict(report);
  json["seed"] = report.seeded ? Json(fmt::format("{}", report.seed)) : Json(nullptr);
  json["virtualTimeMs"] = Milliseconds(report.virtualTime);
  json["routers"] = Routers(report);
  json["tunnels"] = Tunnels(report);
  json["peers"] = Peers(report);
  json["violations"] = Violations(report);
  json["protocolErrors"] = ProtocolErrors(report.protocolErrors);
  json["failures"] = report.failures;
  json["hang"] = report.hang.empty() ? Json(nullptr) : Json(report.hang);
  json["waived"] = Waivers(report);
  json["excused"] = ProtocolErrors(report.waivedErrors);
  json["leftovers"] = LeftOver(report);
  json["choices"] = report.step;
  json["failedAtChoice"] = report.failedStep == 0 ? Json(nullptr) : Json(report.failedStep);
  json["faults"] = report.faultsFired;
  json["traceHash"] = fmt::format("{:016x}", report.traceHash);
  json["events"] = Events(report);
  return json.dump(2) + "\n";
}

}  // namespace lab
