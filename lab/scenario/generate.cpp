// Draws a scenario and writes it as a person would, so that a failing one can be saved, read and cut down.
//
// Sizes are drawn log-uniform: half of the trees have up to 6 routers, a few have 40. Events never contradict each
// other: what is pulled was there, and every sleep has its resume.
//
// A scenario is calm or pressed. Calm events leave the driver the time to end what the one before began, so every
// tunnel must stand in the end. Pressed ones come on each other's heels: an unplug that is handled when the router is
// long back takes its records and leaves its hardware as it was, in use for the driver that finds it again, and a sleep
// in the middle of a tear-down leaves what it had not reached. So a pressed scenario ends with a hibernation, over
// which host routers lose everything, and with their cables pulled and plugged.
//
// Two things are kept apart, since together they take the driver hours: a display and a one-lane cable, on which it
// gets a tunnel that leads nowhere and has every later display wait 14 s for it; and a large tree and routers that
// repeat each event every 10 ms until the driver, busy with the tree, gets to it.
#include "lab/scenario/generate.h"

#include <fmt/format.h>

#include <bit>
#include <iterator>
#include <set>

#include "lab/scenario/drawn_tree.h"

namespace lab {
namespace {

constexpr unsigned kMostRouters = 40;
constexpr unsigned kMostEvents = 12;
constexpr unsigned kDisplayRates[] = {1620, 2700, 5400, 8100};
// Long enough for forty routers to be found and for the longest tunnel to be taken down hop by hop, also when packets
// get lost; nothing happens for most of it.
constexpr std::int64_t kCalmMs = 600'000;
constexpr std::int64_t kSleepMs = 300'000;
constexpr unsigned kNotificationMs[] = {10, 50, 255};
constexpr std::size_t kImpatientRouters = 8;  // in larger trees routers take their time

class Generator {
 public:
  explicit Generator(std::uint64_t seed)
      : random_(seed, "generated-scenario"),
        tree_(random_),
        pressed_(random_.Chance(1, 2)),
        narrow_(random_.Chance(1, 4)) {
    Put("name = \"generated from seed {}, {}\"\n\n[[host]]\n", seed, pressed_ ? "pressed" : "calm");
  }

  std::string Go() {
    Hosts();
    tree_.Grow(LogUniform(kMostRouters));
    Routers();
    Furniture();
    const std::uint64_t events = random_.Below(kMostEvents + 1);
    for (std::uint64_t i = 0; i < events; ++i) Event();
    if (pressed_) StartAfresh();
    if (random_.Chance(1, 10)) Remove();
    Expectations();
    return std::move(text_);
  }

 private:
  template <class... Values>
  void Put(fmt::format_string<Values...> format, Values&&... values) {
    fmt::format_to(std::back_inserter(text_), format, std::forward<Values>(values)...);
  }

  template <class List>
  const auto& One(const List& list) {
    return list[random_.Below(std::size(list))];
  }

  // 1 .. most; each doubling is as likely as the next, up to where the last one is cut off.
  unsigned LogUniform(unsigned most) {
    unsigned drawn = 0;
    do {
      const unsigned low = 1u << random_.Below(static_cast<std::uint64_t>(std::bit_width(most)));
      drawn = low + static_cast<unsigned>(random_.Below(low));
    } while (drawn > most);
    return drawn;
  }

  void Hosts() {
    static constexpr const char* kHosts[] = {"H1", "H1", "H2", "H3", "H3", "HT"};
    const unsigned controllers = random_.Chance(1, 8) ? 2 : 1;
    for (unsigned i = 0; i < controllers; ++i) {
      const std::string model = One(kHosts), name = i == 0 ? "host-a" : "host-b";
      pcie_[i] = random_.Chance(3, 4);
      usb3_[i] = random_.Chance(3, 4);
      Put("\n[[host.controller]]\nname = \"{}\"\nmodel = \"{}\"\n", name, model);
      Put("registry = {{ 'PCIETunnel\\PCIETunnelSupported' = {:d}, 'USB3Tunnel\\USB3TunnelSupported' = {:d} }}\n",
          pcie_[i], usb3_[i]);
      tree_.AddHost(name, model);
    }
    hosts_ = controllers;
  }

  const DrawnTree::Node& Node(std::size_t node) const { return tree_.nodes()[node]; }

  void Cable(std::size_t node) {
    Put("{}", tree_.Cable(node));
    const bool oneLane = narrow_ && random_.Chance(1, 3), slow = random_.Chance(1, 8);
    if (oneLane) Put("lanes = 1\n");
    if (slow) Put("gbpsPerLane = 10\n");
    poorCables_ = poorCables_ || oneLane || slow;
  }

  void Routers() {
    const unsigned notificationMs = tree_.nodes().size() > kImpatientRouters ? 255 : One(kNotificationMs);
    for (std::size_t node = hosts_; node < tree_.nodes().size(); ++node) {
      Put("\n[[router]]\nname = \"{}\"\nmodel = \"{}\"\nnotificationMs = {}\n", Node(node).name, Node(node).model->name,
          notificationMs);
    }
    for (std::size_t node = hosts_; node < tree_.nodes().size(); ++node) {
      Put("\n[[link]]\n");
      Cable(node);
    }
  }

  void Display(const std::string& adapter) {
    Put("adapter = \"{}\"\nmbpsPerLane = {}\nlanes = {}\n", adapter, One(kDisplayRates), 1u << random_.Below(3));
    displays_.insert(adapter);
    hadDisplays_ = true;
  }

  void Furniture() {
    for (std::size_t node = 0; node < tree_.nodes().size(); ++node) {
      for (const unsigned adapter : AdaptersOfType(*Node(node).model, sim::kTypeDpOut)) {
        if (narrow_) break;
        displayPlaces_.push_back(fmt::format("{}:{}", Node(node).name, adapter));
        if (!random_.Chance(1, 8)) continue;
        Put("\n[[display]]\n");
        Display(displayPlaces_.back());
      }
      for (const unsigned adapter : AdaptersOfType(*Node(node).model, sim::kTypeUsb3Down)) {
        usb3Places_.push_back(fmt::format("{}:{}", Node(node).name, adapter));
      }
    }
  }

  // --- events
  void Do(const char* verb) {
    now_ += pressed_ ? static_cast<std::int64_t>(random_.Below(std::uint64_t{1} << (1 + random_.Below(15)))) : kCalmMs;
    Put("\n[[event]]\nat = \"{} ms\"\ndo = \"{}\"\n", now_, verb);
  }

  void Event() {
    const std::vector<std::size_t> there = tree_.Pluggable(true), pulled = tree_.Pluggable(false);
    switch (random_.Below(8)) {
      case 0:
      case 1:
        if (!there.empty()) return Unplug(One(there));
        break;
      case 2:
      case 3:
        if (!pulled.empty()) return Plug(One(pulled));
        break;
      case 4:
        if (!there.empty()) return DropLink(One(there));
        break;
      case 5:
        if (!displayPlaces_.empty()) return ToggleDisplay(One(displayPlaces_));
        break;
      case 6:
        if (usb3Places_.empty()) return;
        Do("use-usb3");
        return Put("adapter = \"{}\"\nup = {}\ndown = {}\n", One(usb3Places_), random_.Below(9000),
                   random_.Below(9000));
      default:
        return Power();
    }
  }

  // Of the cable towards the host, whether or not its link runs just now.
  std::string UpperPort(std::size_t node) const {
    return fmt::format("{}:{}", Node(Node(node).parent).name, Node(node).parentPort);
  }

  void Unplug(std::size_t node) {
    Do("unplug");
    Put("what = \"{}\"\n", UpperPort(node));
    tree_.Unplug(node);
  }

  void Plug(std::size_t node) {
    tree_.PlugSomewhere(node);
    Do("plug");
    Cable(node);
    WakeForPlug(tree_.HostOf(node));
  }

  // A Thunderbolt host that idles is woken only by what its firmware has armed, and here that has armed nothing.
  void WakeForPlug(std::size_t host) {
    if (off_ || Node(host).model->usb4()) return;
    Do("wake");
    Put("controller = \"{}\"\n", Node(host).name);
  }

  // In a calm scenario not of a host: back before its tunnels are down, a large tree is cut short by the idle time-out
  // that the loss of the last one has begun.
  void DropLink(std::size_t node) {
    if (!pressed_ && Node(Node(node).parent).IsHost()) return Unplug(node);
    Do("drop-link");
    Put("what = \"{}\"\nfor = \"{} ms\"\n", UpperPort(node), 1 + random_.Below(1000));
  }

  void ToggleDisplay(const std::string& place) {
    const bool gone = displays_.erase(place) == 0;
    Do(gone ? "plug-display" : "unplug-display");
    if (gone) return Display(place);
    Put("adapter = \"{}\"\n", place);
  }

  // Asleep, or with the device disabled, cables come and go all the same in a pressed scenario. In a calm one they do
  // not: a start that has tunnels to adopt builds no others once it meets a router that has one already.
  void Power() {
    if (off_) return;
    const bool device = random_.Chance(1, 4);
    const std::string controller =
        device ? fmt::format("controller = \"{}\"\n", Node(random_.Below(hosts_)).name) : std::string();
    Do(device ? "disable" : random_.Chance(1, 2) ? "sleep" : "hibernate");
    Put("{}", controller);
    off_ = true;
    now_ += kSleepMs;
    for (std::uint64_t i = pressed_ ? random_.Below(4) : 0; i > 0; --i) Event();
    Do(device ? "enable" : "resume");
    Put("{}", controller);
    off_ = false;
  }

  void StartAfresh() {
    std::vector<std::size_t> roots = tree_.Pluggable(true);
    std::erase_if(roots, [this](std::size_t node) { return !Node(Node(node).parent).IsHost(); });
    Do("hibernate");
    now_ += kSleepMs;
    Do("resume");
    now_ += kCalmMs;
    for (const std::size_t node : roots) Unplug(node);
    now_ += kCalmMs;
    for (const std::size_t node : roots) {
      Do("plug");
      Cable(node);
      tree_.PlugAgain(node);
    }
    now_ += kCalmMs;
    for (std::size_t host = 0; host < hosts_; ++host) WakeForPlug(host);
  }

  void Remove() {
    removed_ = random_.Below(hosts_);
    removedBySurprise_ = random_.Chance(1, 2);
    Do(removedBySurprise_ ? "surprise-remove" : "remove");
    Put("controller = \"{}\"\n", Node(removed_).name);
  }

  // --- the end
  bool HasAdapter(std::size_t node, std::uint32_t type) const {
    return !AdaptersOfType(*Node(node).model, type).empty();
  }

  // USB3 reaches a router only where it reaches its parent.
  bool HasUsb3(std::size_t node) const {
    if (Node(node).IsHost()) return HasAdapter(node, sim::kTypeUsb3Down);
    return HasAdapter(node, sim::kTypeUsb3Up) && HasUsb3(Node(node).parent);
  }

  void Expectations() {
    for (std::size_t host = 0; host < hosts_; ++host) {
      Put("\n[[expect]]\ncontroller = \"{}\"\n", Node(host).name);
      if (host == removed_) {
        Put("state = \"{}\"\n", removedBySurprise_ ? "surprise-removed" : "removed");
        continue;
      }
      unsigned routers = 1, pcie = 0, usb3 = 0;
      for (std::size_t node = hosts_; node < tree_.nodes().size(); ++node) {
        if (tree_.HostOf(node) != host || !tree_.Present(node)) continue;
        ++routers;
        pcie += HasAdapter(node, sim::kTypePcieUp);
        usb3 += HasUsb3(node);
      }
      if (!pcie_[host]) pcie = 0;
      if (!usb3_[host]) usb3 = 0;
      // On poor cables, and where displays came first, USB3 finds too little left.
      const bool usb3Fits = !poorCables_ && !hadDisplays_;
      if (pcie + (usb3Fits ? usb3 : 0) == 0) {
        Put("state = \"started\"\n");  // nothing but a tunnel keeps it awake
        continue;
      }
      Put("power = \"D0\"\nrouters = {}\npcieTunnels = {}\n", routers, pcie);
      if (usb3Fits) Put("usb3Tunnels = {}\n", usb3);
    }
  }

  platform::RandomStream random_;
  DrawnTree tree_;
  const bool pressed_, narrow_;  // narrow: some cables have one lane, and there are no displays
  std::string text_;
  std::size_t hosts_ = 0;
  bool pcie_[2] = {}, usb3_[2] = {};
  bool poorCables_ = false, hadDisplays_ = false, off_ = false;
  std::set<std::string> displays_;
  std::vector<std::string> displayPlaces_, usb3Places_;
  std::size_t removed_ = DrawnTree::kNone;
  bool removedBySurprise_ = false;
  std::int64_t now_ = 0;
};

}  // namespace

std::string GenerateScenario(std::uint64_t seed) {
  return Generator(seed).Go();
}

}  // namespace lab
