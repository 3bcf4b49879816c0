// Hosts that meet.
#include "tests/support/meeting.h"

#include <fmt/format.h>

#include "lab/report/driver_event.h"
#include "xdomain/peer_state.h"

namespace tests {
namespace {

const char* Text(const char* text) {
  return text == nullptr ? "-" : text;
}

}  // namespace

std::uint64_t RoundedMs(platform::Time time) {
  return static_cast<std::uint64_t>((time / platform::kMillisecond + 5) / 10 * 10);
}

Meeting::Meeting(const std::string& topology, WorldOptions options) : World(topology, std::move(options)) {
  simulation().AddSink(this);
}

Meeting::~Meeting() {
  simulation().RemoveSink(this);
}

void Meeting::StartAll() {
  ASSERT_EQ(Start(), 0);
  for (const lab::Place place : machine().Places()) ASSERT_EQ(machine().StartStatus(place), 0);
}

void Meeting::WithPeer(std::size_t host, const std::function<void(USB4_XDOMAIN& peer)>& look) {
  bool found = false;
  InDevice(
      [&](DEVICE_EXTENSION& context) {
        USB4_XDOMAIN* peer = context.XDomain.Peek();
        found = peer != nullptr;
        if (found) look(*peer);
      },
      {host, 0});
  EXPECT_TRUE(found) << "host " << host << " has no peer";
}

std::string Meeting::Peer(std::size_t host) {
  std::string text = "none";
  InDevice(
      [&](DEVICE_EXTENSION& context) {
        const USB4_XDOMAIN* peer = context.XDomain.Peek();
        if (peer == nullptr) return;
        text = fmt::format("{} {}G x{} vendor {:x} {} device {:x} {} hops {} {}", PeerStateName(peer->State.Value),
                           peer->LinkSpeed, peer->LinkWidth, peer->PeerVendorId, Text(peer->PeerVendorName),
                           peer->PeerDeviceId, Text(peer->PeerDeviceName), peer->InputHopLimit, peer->OutputHopLimit);
      },
      {host, 0});
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

std::string Meeting::NameOf(const platform::HostKernel& host, const std::string& peer) {
  std::size_t number = 0;
  while (&kernel(number) != &host) ++number;
  return number == 0 ? peer : std::to_string(number) + "/" + peer;
}

void Meeting::OnTrace(const platform::TraceRecord& record) {
  if (record.kind != platform::TraceKind::Driver) return;
  const auto event = lab::UnpackDriverEvent(record.payload);
  if (!event) return;
  const bool isStep = event->what == "peer step failed";
  if (isStep || event->what == "property block not read") {
    const std::string result = *lab::FieldText(*event, "result");
    failures_ += NameOf(*record.kernel, *lab::FieldText(*event, "name")) + " " +
                 (isStep ? *lab::FieldText(*event, "state") : "block") + " " + result.substr(0, result.find(' ')) +
                 "\n";
  }
  if (event->what != "peer state") return;
  changes_.push_back(
      {NameOf(*record.kernel, *lab::FieldText(*event, "name")), *lab::FieldText(*event, "to"), record.when});
}

}  // namespace tests
