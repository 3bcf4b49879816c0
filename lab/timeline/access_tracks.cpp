// What the driver asks is found again on the wire by its route and its address word.
#include "lab/timeline/access_tracks.h"

#include <fmt/format.h>

namespace lab {
namespace {

bool IsAccess(sim::Pdf pdf) {
  return pdf == sim::Pdf::Read || pdf == sim::Pdf::Write;
}

// What was lost, damaged or found no buffer is no answer.
bool Arrived(const sim::WireEntry& entry) {
  for (const char* mishap : {"fault=wire.lose", "crc=bad", "no-buffer"}) {
    if (entry.text.find(mishap) != std::string::npos) return false;
  }
  return true;
}

std::optional<sim::Space> SpaceNamed(std::string_view name) {
  for (const sim::Space space : {sim::Space::Path, sim::Space::Adapter, sim::Space::Router, sim::Space::Counters}) {
    if (name == sim::SpaceName(space)) return space;
  }
  return std::nullopt;
}

}  // namespace

std::optional<Question> QuestionFrom(const DriverEvent& event) {
  const auto controller = FieldNumber<unsigned>(event, "controller");
  const auto route = FieldNumber<std::uint64_t>(event, "route");
  const auto space = SpaceNamed(FieldText(event, "space").value_or(""));
  const auto adapter = FieldNumber<std::uint32_t>(event, "adapter"),
             offset = FieldNumber<std::uint32_t>(event, "offset"), length = FieldNumber<std::uint32_t>(event, "length"),
             sequence = FieldNumber<std::uint32_t>(event, "sequence");
  if (!controller || !route || !adapter || !space || !offset || !length || !sequence) return std::nullopt;
  Question question;
  question.controller = *controller;
  question.pdf = FieldText(event, "access") == "read" ? sim::Pdf::Read : sim::Pdf::Write;
  question.route = *route;
  question.address = {*offset, *length, *adapter, *space, *sequence, 0};
  return question;
}

void AccessTracks::Packet(const sim::WireEntry& entry) {
  const auto decoded = sim::DecodePacket(static_cast<sim::Pdf>(entry.pdf), entry.bytes);
  const sim::ControlPacket packet =
      decoded ? decoded->packet : sim::ControlPacket{static_cast<sim::Pdf>(entry.pdf), {}};
  if (!entry.up && IsAccess(packet.pdf)) return Open(entry, packet);
  if (entry.up && Arrived(entry) && Answer(entry, packet)) return;
  file_.Instant(others_, entry.when, fmt::format("{} {}", entry.up ? "<-" : "->", entry.text));
}

// Two controllers may ask the same thing at the same time. The question of a task that works for this one goes first,
// of one that works for another last; then one that has not been seen on the wire yet: a request may come twice.
int AccessTracks::RankOf(const Question& question) const {
  const auto home = homes_.find(question.task);
  const bool ours = home != homes_.end() ? home->second == place_ : question.controller == controller_;
  return (ours ? 4 : 0) + (ours && home != homes_.end() ? 2 : 0) + (question.sent ? 0 : 1);
}

Question* AccessTracks::QuestionOf(const sim::ControlPacket& packet) {
  Question* best = nullptr;
  for (Question& question : questions_) {
    if (question.pdf != packet.pdf || question.route != packet.Route()) continue;
    if (question.address.Encode() != packet.Address().Encode()) continue;
    if (best == nullptr || RankOf(question) > RankOf(*best)) best = &question;
  }
  return best;
}

AccessTracks::Lane& AccessTracks::FreeLane() {
  for (Lane& lane : lanes_) {
    if (!lane.access) return lane;
  }
  lanes_.push_back({file_.AddTrack(pid_, fmt::format("ring 0 lane {}", lanes_.size())), std::nullopt});
  return lanes_.back();
}

void AccessTracks::Open(const sim::WireEntry& entry, const sim::ControlPacket& packet) {
  Lane& lane = FreeLane();
  const sim::AddressWord address = packet.Address();
  const std::string name = fmt::format("{} {} {:x}:{}", packet.pdf == sim::Pdf::Read ? "read" : "write",
                                       sim::SpaceName(address.space), packet.Route(), address.adapter);
  file_.Begin(lane.track, entry.when, name, TraceArguments().Add("request", entry.text));
  lane.access = Access{name, entry.number, 0, 0, packet.pdf, packet.Route(), address.sequence};
  Question* question = QuestionOf(packet);
  if (question == nullptr) return Close(lane, entry.when, "nobody waits for one");
  question->sent = true;
  homes_.emplace(question->task, place_);
  lane.access->task = question->task;
  lane.access->arrow = file_.StartArrow(question->asker, entry.when);
}

// False when it answers nothing that is under way.
bool AccessTracks::Answer(const sim::WireEntry& entry, const sim::ControlPacket& packet) {
  Lane* oldest = nullptr;
  for (Lane& lane : lanes_) {
    if (!lane.access) continue;
    // An error packet does not say what it refuses; the driver takes it for the oldest request.
    const bool fits = packet.pdf == sim::Pdf::Notification ||
                      (packet.pdf == lane.access->pdf && packet.Route() == lane.access->route &&
                       packet.Address().sequence == lane.access->sequence);
    if (fits && (oldest == nullptr || lane.access->number < oldest->access->number)) oldest = &lane;
  }
  if (oldest != nullptr) Close(*oldest, entry.when, entry.text);
  return oldest != nullptr;
}

void AccessTracks::Close(Lane& lane, platform::Time when, std::string_view answer) {
  if (lane.access->arrow != 0) file_.FinishArrow(lane.track, when, lane.access->arrow);
  file_.End(lane.track, when, lane.access->name, TraceArguments().Add("answer", answer));
  lane.access.reset();
}

void AccessTracks::GiveUp(std::uint32_t task, platform::Time when) {
  for (Lane& lane : lanes_) {
    if (lane.access && lane.access->task == task) Close(lane, when, "none");
  }
}

}  // namespace lab
