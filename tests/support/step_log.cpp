// Turns trace records and wire entries into lines.
#include "tests/support/step_log.h"

#include <algorithm>
#include <cstdio>

#include "lab/report/driver_event.h"

namespace tests {
namespace {

std::string DescribeStep(const platform::TraceRecord& record) {
  switch (record.kind) {
    case platform::TraceKind::Callback:
      return (record.value == 0 ? "begin " : "end ") + std::string(record.name);
    case platform::TraceKind::Register: {
      char text[64];
      std::snprintf(text, sizeof text, " 0x%05x = 0x%x", static_cast<unsigned>(record.offset),
                    static_cast<unsigned>(record.value));
      return std::string(record.name) + text;
    }
    case platform::TraceKind::Driver: {
      const auto event = lab::UnpackDriverEvent(record.payload);
      return event ? "driver: " + lab::FormatDriverEvent(*event) : "driver: unreadable";
    }
    case platform::TraceKind::Power:
      return "power " + std::string(record.name);
    default:
      return "";
  }
}

}  // namespace

void StepLog::Lines::Add(const std::string& line) {
  const auto starts = [&](const std::string& prefix) { return line.starts_with(prefix); };
  if (std::any_of(prefixes.begin(), prefixes.end(), starts)) text += line + "\n";
}

StepLog::StepLog(World& world, std::vector<std::string> prefixes)
    : world_(world), lines_(std::make_shared<Lines>(Lines{std::move(prefixes), ""})) {
  world_.simulation().AddSink(this);
  world_.wire().log().Listen(
      [lines = lines_](const sim::WireEntry& entry) { lines->Add((entry.up ? "<- " : "-> ") + entry.text); });
}

StepLog::~StepLog() {
  world_.simulation().RemoveSink(this);
}

std::string StepLog::Take() {
  return std::exchange(lines_->text, {});
}

void StepLog::OnTrace(const platform::TraceRecord& record) {
  lines_->Add(DescribeStep(record));
}

std::size_t Count(const std::string& text, const std::string& what) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; ++at) ++count;
  return count;
}

}  // namespace tests
