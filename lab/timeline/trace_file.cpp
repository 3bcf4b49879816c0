// The events of a Chrome trace, written as they happen.
#include "lab/timeline/trace_file.h"

#include <fmt/format.h>

namespace lab {
namespace {

constexpr platform::Time kUnitsPerMicrosecond = platform::kMicrosecond;

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (static_cast<unsigned char>(c) < 0x20) {
      quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

std::string Where(Track track, platform::Time when) {
  return fmt::format("\"pid\":{},\"tid\":{},\"ts\":{}.{}", track.pid, track.tid, when / kUnitsPerMicrosecond,
                     when % kUnitsPerMicrosecond);
}

std::string Arguments(const TraceArguments& arguments) {
  return arguments.Json().empty() ? "" : ",\"args\":{" + arguments.Json() + "}";
}

}  // namespace

void TraceArguments::Key(std::string_view key) {
  if (!json_.empty()) json_ += ',';
  json_ += Quoted(key) + ':';
}

TraceArguments& TraceArguments::Add(std::string_view key, std::string_view text) {
  Key(key);
  json_ += Quoted(text);
  return *this;
}

TraceArguments& TraceArguments::Add(std::string_view key, std::int64_t number) {
  Key(key);
  json_ += std::to_string(number);
  return *this;
}

TraceFile::TraceFile(const std::string& file) : out_(file, std::ios::binary | std::ios::trunc) {
  static_assert(platform::kMicrosecond == 10, "a time has one decimal");
  out_ << "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[";
}

void TraceFile::Write(const std::string& event) {
  out_ << (first_ ? "\n{" : ",\n{") << event << '}';
  first_ = false;
}

unsigned TraceFile::AddProcess(std::string_view name) {
  Write(fmt::format("\"ph\":\"M\",\"pid\":{},\"name\":\"process_name\",\"args\":{{\"name\":{}}}", ++processes_,
                    Quoted(name)));
  return processes_;
}

Track TraceFile::AddTrack(unsigned pid, std::string_view name) {
  tracks_.push_back({pid, static_cast<unsigned>(tracks_.size() + 1)});
  open_.emplace_back();
  Write(fmt::format("\"ph\":\"M\",\"pid\":{},\"tid\":{},\"name\":\"thread_name\",\"args\":{{\"name\":{}}}", pid,
                    tracks_.back().tid, Quoted(name)));
  return tracks_.back();
}

void TraceFile::Begin(Track track, platform::Time when, std::string_view name, const TraceArguments& arguments) {
  open_.at(track.tid - 1).emplace_back(name);
  Write(fmt::format("\"ph\":\"B\",{},\"name\":{}{}", Where(track, when), Quoted(name), Arguments(arguments)));
}

void TraceFile::End(Track track, platform::Time when, std::string_view name, const TraceArguments& arguments) {
  if (!open_.at(track.tid - 1).empty()) open_.at(track.tid - 1).pop_back();
  Write(fmt::format("\"ph\":\"E\",{},\"name\":{}{}", Where(track, when), Quoted(name), Arguments(arguments)));
}

void TraceFile::Instant(Track track, platform::Time when, std::string_view name, const TraceArguments& arguments) {
  Write(
      fmt::format("\"ph\":\"i\",\"s\":\"t\",{},\"name\":{}{}", Where(track, when), Quoted(name), Arguments(arguments)));
}

std::uint64_t TraceFile::StartArrow(Track track, platform::Time when) {
  Write(fmt::format("\"ph\":\"s\",\"id\":{},{},\"cat\":\"access\",\"name\":\"access\"", ++arrows_, Where(track, when)));
  return arrows_;
}

void TraceFile::FinishArrow(Track track, platform::Time when, std::uint64_t arrow) {
  Write(fmt::format("\"ph\":\"f\",\"bp\":\"e\",\"id\":{},{},\"cat\":\"access\",\"name\":\"access\"", arrow,
                    Where(track, when)));
}

std::uint64_t TraceFile::BeginLife(unsigned pid, platform::Time when, std::string_view name) {
  Write(fmt::format("\"ph\":\"b\",\"id\":{},{},\"cat\":\"tunnel\",\"name\":{}", ++lives_, Where({pid, 0}, when),
                    Quoted(name)));
  return lives_;
}

void TraceFile::EndLife(unsigned pid, platform::Time when, std::string_view name, std::uint64_t life) {
  Write(fmt::format("\"ph\":\"e\",\"id\":{},{},\"cat\":\"tunnel\",\"name\":{}", life, Where({pid, 0}, when),
                    Quoted(name)));
}

void TraceFile::Counter(unsigned pid, platform::Time when, std::string_view name, const TraceArguments& values) {
  Write(fmt::format("\"ph\":\"C\",{},\"name\":{}{}", Where({pid, 0}, when), Quoted(name), Arguments(values)));
}

bool TraceFile::Close(platform::Time when) {
  for (const Track track : tracks_) {
    while (!open_.at(track.tid - 1).empty()) End(track, when, std::string(open_.at(track.tid - 1).back()));
  }
  out_ << "\n]}\n";
  out_.close();
  return out_.good();
}

}  // namespace lab
