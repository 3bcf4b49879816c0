// Goal: a timeline is one JSON document whose slices nest and whose pairs are whole; it says what crossed the wire and
// what the links carry; and a run is the same with it and without.
// Method: the file is read back by a JSON library and judged by a checker that refuses planted flaws.
#include "lab/timeline/timeline.h"

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "lab/run/run.h"

namespace {

using Json = nlohmann::json;
using Tenths = long long;  // of a microsecond

constexpr Tenths kOpen = 1LL << 60;
const std::string kFile = testing::TempDir() + "timeline_test.json";

Tenths TimeOf(const Json& event) {
  return std::llround(event.at("ts").get<double>() * 10);
}

// How long the slices of each name took, and the first thing that is wrong with the document.
struct Reading {
  explicit Reading(const Json& document) {
    for (const Json& event : document.at("traceEvents")) Take(event, event.at("ph").get<std::string>()[0]);
    for (const auto& [track, slices] : open_) {
      if (!slices.empty() && slices.back().end == kOpen) Flaw("a slice stays open");
    }
    if (!pairs_.empty()) Flaw("half a pair");
  }
  std::string flaw;
  std::map<std::string, std::vector<Tenths>> durations;
  std::size_t accesses = 0;  // slices that say what was requested

 private:
  struct Slice {
    std::string name;
    Tenths begin, end;
  };
  void Flaw(const char* text) { flaw = flaw.empty() ? text : flaw; }
  void Take(const Json& event, char phase) {
    if (phase == 'M') return;
    std::vector<Slice>& slices = open_[{event.at("pid"), event.at("tid")}];
    const Tenths when = TimeOf(event);
    while (!slices.empty() && slices.back().end <= when) slices.pop_back();
    if (phase == 'B' || phase == 'X') {
      const Tenths end = phase == 'B' ? kOpen : when + std::llround(event.at("dur").get<double>() * 10);
      if (!slices.empty() && slices.back().end < end) Flaw("slices overlap");
      slices.push_back({event.at("name"), when, end});
      accesses += event.contains("/args/request"_json_pointer);
    }
    if (phase == 'E') {
      if (slices.empty() || slices.back().end != kOpen || slices.back().name != event.at("name")) {
        return Flaw("an end closes nothing of its own");
      }
      if (when < slices.back().begin) Flaw("time runs backwards");
      durations[slices.back().name].push_back(when - slices.back().begin);
      slices.pop_back();
    }
    if ((phase == 's' || phase == 'f') && slices.empty()) Flaw("an arrow touches no slice");
    if (phase == 's' || phase == 'b') pairs_.emplace(phase, event.at("id").get<int>());
    if (phase == 'f' && pairs_.erase({'s', event.at("id").get<int>()}) == 0) Flaw("half a pair");
    if (phase == 'e' && pairs_.erase({'b', event.at("id").get<int>()}) == 0) Flaw("half a pair");
  }
  std::map<std::pair<int, int>, std::vector<Slice>> open_;
  std::set<std::pair<char, int>> pairs_;  // arrows and lives that have begun
};

std::string ReadWhole(const std::string& file) {
  std::stringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

lab::Scenario TypicalChain() {
  return lab::ReadScenario(PROJECT_ROOT "/scenarios/typical-chain.toml");
}

TEST(Timeline, TheCheckerRefusesWhatIsPlanted) {
  const auto event = [](const char* phase, const char* rest) {
    return std::string(R"({"name":"n","pid":1,"tid":1,"id":7,"ph":")") + phase + R"(","ts":)" + rest + "}";
  };
  const std::string slice = event("X", R"(1.0,"dur":5.0)") + ",";
  const std::pair<std::string, const char*> kCases[] = {
      {slice + event("X", R"(6.0,"dur":1.0)"), ""},
      {slice + event("X", R"(5.9,"dur":1.0)"), "slices overlap"},
      {event("B", "0.5") + "," + slice + event("E", "6.0"), ""},
      {event("B", "0.5") + "," + slice + event("E", "3.0"), "an end closes nothing of its own"},
      {event("B", "0.5") + R"(,{"name":"m","pid":1,"tid":1,"ph":"E","ts":0.5})", "an end closes nothing of its own"},
      {event("B", "0.5"), "a slice stays open"},
      {event("B", "0.5") + "," + event("E", "0.4"), "time runs backwards"},
      {slice + event("s", "2.0"), "half a pair"},
      {slice + event("s", "2.0") + "," + event("f", "8.0"), "an arrow touches no slice"},
      {event("e", "2.0"), "half a pair"},
  };
  for (const auto& [events, flaw] : kCases) {
    EXPECT_EQ(Reading(Json::parse(R"({"traceEvents":[)" + events + "]}")).flaw, flaw) << events;
  }
}

TEST(Timeline, TasksOfOneNameShareNoTrackWhileBothAreBusy) {
  lab::TraceFile file(kFile);
  lab::TaskTracks tasks(file);
  const unsigned process = file.AddProcess("host");
  platform::TraceRecord first{}, second{};
  first.task = second.task = "client";
  first.taskOrdinal = 1, second.taskOrdinal = 2;
  const lab::Track track = tasks.Begin(process, first, "a");
  tasks.Begin(process, second, "b");
  tasks.End(first, "a");
  EXPECT_EQ(tasks.Begin(process, first, "c").tid, track.tid) << "its track is free again";
  tasks.End(second, "b");
  EXPECT_TRUE(file.Close(0));
  EXPECT_EQ(Reading(Json::parse(ReadWhole(kFile))).flaw, "");
}

TEST(Timeline, SaysWhatTheWireAndTheDomainSay) {
  for (const std::optional<std::uint64_t> seed : {std::optional<std::uint64_t>(), std::optional<std::uint64_t>(2)}) {
    lab::MachineConfig config = TypicalChain().machine;
    config.simulation = lab::SimulationFor({.seed = seed});
    lab::Machine machine(config);
    lab::Timeline timeline(kFile, machine);
    std::size_t requests = 0;
    machine.wire().log().Listen(
        [&](const sim::WireEntry& entry) { requests += !entry.up && (entry.pdf == 1 || entry.pdf == 2); });
    machine.Start();
    ASSERT_EQ(machine.WaitQuiet(10 * platform::kSecond), platform::Outcome::Done);
    const lab::DomainView domain = machine.Domain();
    const Tenths quiet = machine.simulation().Now();
    machine.RemoveAndUnload();
    ASSERT_TRUE(timeline.Close());

    const Json document = Json::parse(ReadWhole(kFile));
    const Reading reading(document);
    EXPECT_EQ(reading.flaw, "");
    EXPECT_EQ(reading.accesses, requests);
    // PCIe to the hub and to the dock, USB3 to the hub: two paths each; the display's tunnel has three.
    const std::vector<Tenths>& paths = reading.durations.at("activate path");
    EXPECT_EQ(paths.size(), 9u);
    for (const Tenths path : paths) EXPECT_TRUE(path > 1'000 && path < 1'000'000) << path / 10 << " us";
    std::map<std::string, Json> figures;
    std::set<std::string> lives;
    for (const Json& event : document.at("traceEvents")) {
      if (event.at("ph") == "b") lives.insert(event.at("name"));
      if (event.at("ph") == "C" && TimeOf(event) < quiet) figures[event.at("name")] = event.at("args");
    }
    EXPECT_EQ(lives,
              (std::set<std::string>{"DP 0:5 -> 1:13", "PCIe 0:3 -> 1:9", "PCIe 1:10 -> 301:8", "USB3 0:4 -> 1:16"}));
    ASSERT_EQ(domain.routers.size(), 3u);
    for (std::size_t router : {1u, 2u}) {
      const Json& shown = figures.at(router == 1 ? "link of 1, Mb/s" : "link of 301, Mb/s");
      const lab::BandwidthView left = domain.routers[router].link.value().available.value();
      EXPECT_EQ(shown, (Json{{"consumed up", 36000 - left.up},
                             {"consumed down", 36000 - left.down},
                             {"available up", left.up},
                             {"available down", left.down}}));
    }
  }
}

// One hardware ID for both, so that the driver calls both controller 0; a hub with PCIe below each.
TEST(Timeline, ControllersOfOneKindHaveAProcessEach) {
  std::string text = "[[host]]\n";
  for (const char* name : {"left", "right"}) {
    text += std::string("[[host.controller]]\nname = \"") + name +
            "\"\nregistry = { 'PCIETunnel\\PCIETunnelSupported' = 1 }\n";
  }
  for (const char* name : {"left", "right"}) {
    text += std::string("[[router]]\nname = \"hub of ") + name + "\"\nmodel = \"D1\"\n[[link]]\nfrom = \"" + name +
            ":1\"\nto = \"hub of " + name + ":1\"\n";
  }
  lab::RunOptions options;
  options.traceFile = kFile;
  ASSERT_EQ(lab::RunScenario(lab::ReadScenarioText(text, "two"), options).code, lab::ExitCode::Held);
  const Json document = Json::parse(ReadWhole(kFile));
  EXPECT_EQ(Reading(document).flaw, "");
  std::map<std::string, int> lives, accesses;  // by process
  std::map<int, std::string> processes;
  for (const Json& event : document.at("traceEvents")) {
    const int pid = event.at("pid");
    if (event.at("name") == "process_name") processes[pid] = event.at("args").at("name");
    if (event.at("ph") == "b") ++lives[processes[pid]];
    accesses[processes[pid]] += event.contains("/args/request"_json_pointer);
    EXPECT_NE(event.value("/args/answer"_json_pointer, ""), "nobody waits for one");
  }
  EXPECT_EQ(lives, (std::map<std::string, int>{{"host/left", 1}, {"host/right", 1}}));
  EXPECT_EQ(accesses["host/left"], accesses["host/right"]);
}

TEST(Timeline, ChangesNothingAndIsTheSameEveryTime) {
  for (const char* faults : {"none", "heavy"}) {
    lab::RunOptions options;
    options.faults = faults;
    if (options.faults == "heavy") options.seed = 3;
    const std::uint64_t without = lab::RunScenario(TypicalChain(), options).traceHash;
    std::string files[2];
    for (std::string& file : files) {
      options.traceFile = kFile;
      const lab::RunReport report = lab::RunScenario(TypicalChain(), options);
      EXPECT_EQ(report.traceHash, without);
      file = ReadWhole(options.traceFile);
    }
    EXPECT_TRUE(files[0] == files[1]) << faults;
    EXPECT_EQ(Reading(Json::parse(files[0])).flaw, "") << faults;
  }
}

}  // namespace
