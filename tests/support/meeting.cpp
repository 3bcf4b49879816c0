// Hosts that meet.
#include "tests/support/meeting.h"

#include <fmt/format.h>

#include "lab/report/driver_event.h"
#include "xdomain/peer_state.h"

namespace tests {
namespace {

// Each controller gets its own index by its hardware ID.
WorldOptions WithIndexes(WorldOptions options) {
  auto number = std::make_shared<unsigned>(0);
  options.configure = [inner = options.configure, number](lab::ControllerConfig& controller) {
    controller.pciIdentity = 0x3A0E1F3A;
    if ((*number)++ % 2 == 1) controller.hardwareId = "PCI\\VEN_1F3A&DEV_3A0F&SUBSYS_00000000&REV_00";
    if (inner) inner(controller);
  };
  return options;
}

const char* Text(const char* text) {
  return text == nullptr ? "-" : text;
}

}  // namespace

std::uint64_t RoundedMs(platform::Time time) {
  return static_cast<std::uint64_t>((time / platform::kMillisecond + 5) / 10 * 10);
}

Meeting::Meeting(const std::string& topology, WorldOptions options) : World(topology, WithIndexes(std::move(options))) {
  simulation().AddSink(this);
}

Meeting::~Meeting() {
  simulation().RemoveSink(this);
}

void Meeting::StartBoth() {
  ASSERT_EQ(Start(), 0);
  ASSERT_EQ(machine().StartStatus({0, 1}), 0);
}

void Meeting::WithPeer(std::size_t controller, const std::function<void(USB4_XDOMAIN& peer)>& look) {
  bool found = false;
  InDevice(
      [&](DEVICE_EXTENSION& context) {
        USB4_XDOMAIN* peer = context.XDomain.Peek();
        found = peer != nullptr;
        if (found) look(*peer);
      },
      {0, controller});
  EXPECT_TRUE(found) << "controller " << controller << " has no peer";
}

std::string Meeting::Peer(std::size_t controller) {
  std::string text = "none";
  InDevice(
      [&](DEVICE_EXTENSION& context) {
        const USB4_XDOMAIN* peer = context.XDomain.Peek();
        if (peer == nullptr) return;
        text = fmt::format("{} {}G x{} vendor {:x} {} device {:x} {} hops {} {}", PeerStateName(peer->State.Value),
                           peer->LinkSpeed, peer->LinkWidth, peer->PeerVendorId, Text(peer->PeerVendorName),
                           peer->PeerDeviceId, Text(peer->PeerDeviceName), peer->InputHopLimit, peer->OutputHopLimit);
      },
      {0, controller});
  return text;
}

std::string Meeting::States() {
  std::string text;
  for (const Change& change : changes_) {
    const auto last = last_.find(change.peer);
    const platform::Time since = last == last_.end() ? 0 : change.when - last->second;
    last_[change.peer] = change.when;
    text += fmt::format("{} {} +{}\n", change.peer, change.state, RoundedMs(since));
  }
  changes_.clear();
  return text;
}

void Meeting::OnTrace(const platform::TraceRecord& record) {
  if (record.kind != platform::TraceKind::Driver) return;
  const auto event = lab::UnpackDriverEvent(record.payload);
  if (!event) return;
  const bool isStep = event->what == "peer step failed";
  if (isStep || event->what == "property block not read") {
    const std::string result = *lab::FieldText(*event, "result");
    failures_ += *lab::FieldText(*event, "name") + " " + (isStep ? *lab::FieldText(*event, "state") : "block") + " " +
                 result.substr(0, result.find(' ')) + "\n";
  }
  if (event->what != "peer state") return;
  changes_.push_back({*lab::FieldText(*event, "name"), *lab::FieldText(*event, "to"), record.when});
}

}  // namespace tests
