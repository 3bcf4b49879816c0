// Routes decide the shape: a router hangs below the one whose route is its own without the last byte.
#include "lab/tree.h"

#include <fmt/format.h>

namespace lab {
namespace {

std::uint64_t ParentRoute(const RouterView& router) {
  return router.depth == 0 ? 0 : router.route & ~(std::uint64_t{0xFF} << (8 * (router.depth - 1)));
}

std::string LinkText(const RouterView& router) {
  if (!router.link) return "host";
  return fmt::format("{}G = {} x {}G", router.link->lanes * router.link->speedGbps, router.link->lanes,
                     router.link->speedGbps);
}

std::string RouterLine(const RouterView& router) {
  std::string name = "(no name)";
  if (router.vendorName || router.deviceName)
    name = router.vendorName.value_or("") + (router.vendorName ? " " : "") + router.deviceName.value_or("");
  const std::string generation = router.generation == 4 ? "USB4" : fmt::format("Thunderbolt {}", router.generation);
  return fmt::format("{:x} {}, {}, {}, {} adapters", router.route, name, LinkText(router), generation,
                     router.adapters.size());
}

void Append(std::string& text, const DomainView& domain, const RouterView& router, const std::string& indent,
            bool adapters) {
  text += fmt::format("{}|__ {}\n", indent, RouterLine(router));
  const std::string below = indent + "    ";
  if (adapters) {
    for (const AdapterView& adapter : router.adapters)
      text +=
          fmt::format("{}  {:>2}  {:06x}  {}{}\n", below, adapter.number, adapter.type, AdapterTypeName(adapter.type),
                      adapter.number == router.upstreamAdapter ? "  (upstream)" : "");
  }
  for (const RouterView& child : domain.routers)
    if (child.depth == router.depth + 1 && ParentRoute(child) == router.route)
      Append(text, domain, child, below, adapters);
}

}  // namespace

std::string FormatTree(const DomainView& domain, bool adapters) {
  std::string text = "/:  Domain " + domain.name + (domain.present ? "\n" : ": none (the device is not started)\n");
  if (domain.present && domain.routers.empty()) text += "    (no router)\n";
  for (const RouterView& router : domain.routers)
    if (router.depth == 0) Append(text, domain, router, "    ", adapters);
  return text;
}

}  // namespace lab
