// All places are whole pixels: columns by depth, rows by leaves, ports of a router from top to bottom.
#include "lab/report/svg.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <map>

#include "lab/machine/bandwidth.h"
#include "lab/report/tree.h"

namespace lab {
namespace {

constexpr int kMargin = 24;
constexpr int kBoxWidth = 230;
constexpr int kColumn = kBoxWidth + 210;
constexpr int kSmallestBox = 74;
constexpr int kRowGap = 30;
constexpr int kTrack = 8;  // between two tunnels on one link
constexpr int kLine = 18;  // of text

struct KindColor {
  TunnelKind kind;
  const char* color;
};

// In the order of the legend.
constexpr KindColor kKindColors[] = {{TunnelKind::Pcie, "#1f77b4"},
                                     {TunnelKind::Usb3, "#2ca02c"},
                                     {TunnelKind::Dp, "#d6336c"},
                                     {TunnelKind::Dma, "#7048e8"}};
static_assert(std::size(kKindColors) == kTunnelKindCount);

const char* ColorOf(TunnelKind kind) {
  return std::find_if(std::begin(kKindColors), std::end(kKindColors) - 1,
                      [&](const KindColor& row) { return row.kind == kind; })
      ->color;
}

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else if (c == '"') {
      out += "&quot;";
    } else {
      out += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
    }
  }
  return out;
}

struct Point {
  int x = 0, y = 0;
};

struct Box {
  const RouterView* router = nullptr;
  Point corner;
  int height = kSmallestBox;
  std::vector<std::uint64_t> children;
  std::vector<const PeerView*> peers;
  int right() const { return corner.x + kBoxWidth; }
  int middle() const { return corner.y + height / 2; }
};

// Text and lines of one picture, with what lies below added first.
class Canvas {
 public:
  void Text(Point at, const char* style, const std::string& text) {
    body_ += fmt::format("<text x=\"{}\" y=\"{}\" class=\"{}\">{}</text>\n", at.x, at.y, style, Escaped(text));
    Grow({at.x + 7 * static_cast<int>(text.size()), at.y});
  }
  void Line(Point from, Point to, const std::string& attributes) {
    body_ +=
        fmt::format("<line x1=\"{}\" y1=\"{}\" x2=\"{}\" y2=\"{}\" {}/>\n", from.x, from.y, to.x, to.y, attributes);
    Grow(to);
  }
  void Rectangle(const Box& box, const char* style = "router") {
    body_ += fmt::format("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" rx=\"6\" class=\"{}\"/>\n", box.corner.x,
                         box.corner.y, kBoxWidth, box.height, style);
    Grow({box.right(), box.corner.y + box.height});
  }
  void Dot(Point at, TunnelKind kind) {
    body_ += fmt::format("<circle cx=\"{}\" cy=\"{}\" r=\"4\" fill=\"{}\"/>\n", at.x, at.y, ColorOf(kind));
  }
  std::string Whole() const {
    return fmt::format(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\">\n"
        "<style>text{{font-family:sans-serif;font-size:12px;fill:#222}} .strong{{font-weight:bold}} "
        ".faint{{fill:#666}} .router{{fill:#f8f9fa;stroke:#495057;stroke-width:1.5}} "
        ".peer{{fill:#fff;stroke:#495057;stroke-width:1.5;stroke-dasharray:6 4}}</style>\n"
        "<rect width=\"{0}\" height=\"{1}\" fill=\"#ffffff\"/>\n{2}</svg>\n",
        size_.x + kMargin, size_.y + kMargin, body_);
  }
  int bottom() const { return size_.y; }

 private:
  void Grow(Point point) {
    size_.x = std::max(size_.x, point.x);
    size_.y = std::max(size_.y, point.y);
  }
  std::string body_;
  Point size_{kMargin, kMargin};
};

class DomainPicture {
 public:
  DomainPicture(const DomainView& domain, Canvas& canvas)
      : domain_(domain), budgets_(LinkBudgets(domain)), canvas_(canvas) {}

  void Draw(int top) {
    canvas_.Text({kMargin, top + kLine}, "strong", "Domain " + domain_.name);
    for (const RouterView& router : domain_.routers) boxes_[router.route].router = &router;
    for (const LinkBudget& budget : budgets_) {
      if (boxes_.contains(budget.upper.route)) boxes_[budget.upper.route].children.push_back(budget.route);
    }
    for (const PeerView& peer : domain_.peers) {
      if (boxes_.contains(peer.facing.route)) boxes_[peer.facing.route].peers.push_back(&peer);
    }
    if (boxes_.contains(0)) Place(0, top + 2 * kLine);
    for (const RouterView& router : domain_.routers) canvas_.Rectangle(boxes_[router.route]);
    for (const LinkBudget& budget : budgets_) DrawLink(budget);
    for (const TunnelView& tunnel : domain_.tunnels) {
      if (tunnel.active) DrawTunnel(tunnel);
    }
    for (const LinkBudget& budget : budgets_) LabelLink(budget);
    for (const RouterView& router : domain_.routers) LabelRouter(boxes_[router.route]);
    for (const auto& [peer, box] : peers_) DrawPeer(*peer, box);
    DrawList(canvas_.bottom() + kLine);
  }

  // Joins each peer with this domain as a peer of the other one, where both are on the sheet.
  void Join(const DomainPicture& other) {
    for (const auto& [peer, box] : peers_) {
      for (const auto& [far, farBox] : other.peers_) {
        if (peer->uuid == far->ownUuid && far->uuid == peer->ownUuid) DrawJoint(box, farBox);
      }
    }
  }

 private:
  std::size_t Tracks(const Box& box) const {
    std::size_t above = 0, below = 0;
    for (const LinkBudget& budget : budgets_) {
      if (budget.route == box.router->route) above = budget.crossing.size();
      if (budget.upper.route == box.router->route) below += budget.crossing.size() + 1;
    }
    return std::max(above, below + box.peers.size());
  }

  // Puts the router and all below it at `top` or lower; gives the first free row behind them.
  int Place(std::uint64_t route, int top) {
    Box& box = boxes_[route];
    box.height = std::max(kSmallestBox, kTrack * static_cast<int>(Tracks(box) + 2));
    box.corner = {kMargin + kColumn * static_cast<int>(box.router->depth), top};
    int next = top;
    for (std::uint64_t child : box.children) next = Place(child, next);
    for (const PeerView* peer : box.peers) {
      peers_[peer].corner = {box.corner.x + kColumn, next};
      next += kSmallestBox + kRowGap;
    }
    next = std::max(next, top + box.height + kRowGap);
    box.corner.y = top + (next - kRowGap - top - box.height) / 2;
    return next;
  }

  // A router has its ports on the right edge, those of the routers below it before those of peers.
  static Point PortOf(const Box& box, std::ptrdiff_t port) {
    const int ports = static_cast<int>(box.children.size() + box.peers.size());
    return {box.right(), box.corner.y + box.height * (2 * static_cast<int>(port) + 1) / (2 * ports)};
  }

  // Ends of a link: on the right edge of the upper router, where each child has its port, and on the left edge below.
  std::pair<Point, Point> Ends(const LinkBudget& budget) const {
    const Box &upper = boxes_.at(budget.upper.route), &lower = boxes_.at(budget.route);
    const auto at = std::find(upper.children.begin(), upper.children.end(), budget.route);
    return {PortOf(upper, at - upper.children.begin()), {lower.corner.x, lower.middle()}};
  }

  bool Drawable(const LinkBudget& budget) const { return boxes_.contains(budget.upper.route); }

  static std::string LinkName(const LinkBudget& budget) {
    return fmt::format("{:x}:{} - {:x}:{}", budget.upper.route, budget.upper.adapter, budget.lower.route,
                       budget.lower.adapter);
  }

  void DrawLink(const LinkBudget& budget) {
    if (!Drawable(budget)) return;
    const auto [from, to] = Ends(budget);
    const std::size_t width = kTrack * (budget.crossing.size() + 1);
    canvas_.Line(
        from, to,
        fmt::format("class=\"link\" stroke=\"#ced4da\" stroke-width=\"{}\" data-link=\"{}\"", width, LinkName(budget)));
  }

  // On that side of the lower end where the link does not come from.
  void LabelLink(const LinkBudget& budget) {
    if (!Drawable(budget)) return;
    const auto [from, to] = Ends(budget);
    const int half = kTrack * static_cast<int>(budget.crossing.size() + 1) / 2;
    const Point label{to.x - 190, to.y > from.y ? to.y + half + kLine : to.y - half - kLine - 4};
    canvas_.Text(label, "strong", LinkText(*boxes_.at(budget.route).router->link));
    canvas_.Text({label.x, label.y + kLine - 4}, "faint",
                 fmt::format("available {} Mb/s", BandwidthText(budget.available)));
  }

  void DrawPeer(const PeerView& peer, const Box& box) {
    const Box& upper = boxes_.at(peer.facing.route);
    const auto at = std::find(upper.peers.begin(), upper.peers.end(), &peer) - upper.peers.begin();
    const Point to{box.corner.x, box.middle()};
    const std::string name = fmt::format("{:x}:{} - peer {:x}", peer.facing.route, peer.facing.adapter, peer.route);
    canvas_.Line(PortOf(upper, at + static_cast<std::ptrdiff_t>(upper.children.size())), to,
                 fmt::format("class=\"link\" stroke=\"#ced4da\" stroke-width=\"{}\" data-link=\"{}\"", kTrack, name));
    if (peer.link.lanes != 0) canvas_.Text({to.x - 190, to.y - kTrack}, "strong", LinkText(peer.link));
    canvas_.Rectangle(box, "peer");
    int y = box.corner.y + kLine + 2;
    canvas_.Text({box.corner.x + 14, y}, "strong", fmt::format("peer {:x}", peer.route));
    canvas_.Text({box.corner.x + 14, y += kLine}, "", PeerNameText(peer));
    canvas_.Text({box.corner.x + 14, y += kLine}, "faint",
                 fmt::format("{}, hops {}/{}", peer.state, peer.inputHopLimit, peer.outputHopLimit));
  }

  void DrawJoint(const Box& box, const Box& far) {
    const int x = std::max(box.right(), far.right()) + kRowGap;
    const std::string style = "class=\"joint\" stroke=\"#495057\" stroke-width=\"1.5\" stroke-dasharray=\"6 4\"";
    canvas_.Line({box.right(), box.middle()}, {x, box.middle()}, style);
    canvas_.Line({x, box.middle()}, {x, far.middle()}, style);
    canvas_.Line({x, far.middle()}, {far.right(), far.middle()}, style);
  }

  void LabelRouter(const Box& box) {
    const RouterView& router = *box.router;
    const int x = box.corner.x + 14;
    int y = box.corner.y + kLine + 2;
    const std::string generation = router.generation == 4 ? "USB4" : fmt::format("Thunderbolt {}", router.generation);
    canvas_.Text({x, y}, "strong", fmt::format("route {:x}", router.route));
    const std::string name = router.vendorName || router.deviceName
                                 ? router.vendorName.value_or("") + " " + router.deviceName.value_or("")
                             : router.depth == 0 ? "host router"
                                                 : "(no name)";
    canvas_.Text({x, y += kLine}, "", name);
    canvas_.Text({x, y += kLine}, "faint", fmt::format("{}, {} adapters", generation, router.adapters.size()));
  }

  void DrawTunnel(const TunnelView& tunnel) {
    const std::string name = Escaped(TunnelText(tunnel));
    const std::string stroke =
        fmt::format("stroke=\"{}\" stroke-width=\"3\" data-tunnel=\"{}\"", ColorOf(tunnel.kind), name);
    std::map<std::uint64_t, std::vector<Point>> touched;  // by router: where the tunnel reaches its edges
    for (const LinkBudget& budget : budgets_) {
      const auto track = std::find(budget.crossing.begin(), budget.crossing.end(), &tunnel);
      if (track == budget.crossing.end() || !Drawable(budget)) continue;
      const int count = static_cast<int>(budget.crossing.size());
      const int off = kTrack * (2 * static_cast<int>(track - budget.crossing.begin()) - count + 1) / 2;
      auto [from, to] = Ends(budget);
      from.y += off;
      to.y += off;
      canvas_.Line(from, to, fmt::format("{} data-link=\"{}\"", stroke, LinkName(budget)));
      touched[budget.upper.route].push_back(from);
      touched[budget.route].push_back(to);
    }
    for (const auto& [route, points] : touched) {
      if (points.size() == 2) {
        canvas_.Line(points[0], points[1], stroke + " stroke-dasharray=\"4 3\"");
      } else {
        canvas_.Dot(points[0], tunnel.kind);
      }
    }
  }

  // Every tunnel in words, in its colour.
  void DrawList(int y) {
    for (const auto& [kind, color] : kKindColors) {
      for (const TunnelView& tunnel : domain_.tunnels) {
        if (tunnel.kind != kind || !tunnel.listed) continue;
        y += kLine;
        canvas_.Line({kMargin, y - 4}, {kMargin + 30, y - 4}, fmt::format("stroke=\"{}\" stroke-width=\"3\"", color));
        canvas_.Text({kMargin + 40, y}, "", TunnelLine(tunnel));
      }
    }
  }

  const DomainView& domain_;
  const std::vector<LinkBudget> budgets_;
  Canvas& canvas_;
  std::map<std::uint64_t, Box> boxes_;
  std::map<const PeerView*, Box> peers_;  // in the order of the domain's list, where they stand one behind the other
};

void DrawLegend(Canvas& canvas, int y) {
  int x = kMargin;
  for (const auto& [kind, color] : kKindColors) {
    canvas.Line({x, y - 4}, {x + 30, y - 4}, fmt::format("stroke=\"{}\" stroke-width=\"3\"", color));
    canvas.Text({x + 38, y}, "", TunnelKindName(kind));
    x += 100;
  }
  canvas.Text({x, y}, "faint", "bandwidth in Mb/s, up/down; dashed: through a router");
}

}  // namespace

std::string FormatSvg(const std::vector<DomainView>& domains) {
  Canvas canvas;
  int top = kMargin;
  std::deque<DomainPicture> pictures;
  for (const DomainView& domain : domains) {
    pictures.emplace_back(domain, canvas).Draw(top);
    top = canvas.bottom() + kLine;
  }
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    for (std::size_t j = i + 1; j < pictures.size(); ++j) pictures[i].Join(pictures[j]);
  }
  DrawLegend(canvas, top + kLine);
  return canvas.Whole();
}

}  // namespace lab
