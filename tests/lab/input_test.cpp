// Goal: a person who mistypes gets one line that says where and what. Method: files with one mistake each.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "lab/input/duration.h"
#include "lab/input/hex_file.h"
#include "lab/input/input_file.h"
#include "lab/input/suggest.h"
#include "lab/run/soak.h"
#include "lab/scenario/scenario.h"
#include "tests/support/scenario_text.h"

namespace {

using tests::Complaint;
using tests::ComplaintAbout;
using tests::WriteFile;

TEST(ScenarioInput, EachMistakeIsOneLineWithItsPlace) {
  const struct {
    const char* text;
    const char* complaint;
  } kCases[] = {
      {"nam = \"x\"\n", "1:1: unknown key \"nam\" (did you mean \"name\"?)"},
      {"[[host]]\n[[host.controler]]\n", "2:8: unknown key \"controler\" (did you mean \"controller\"?)"},
      {"[[host]]\n[[host.controller]]\nmodel = \"H9\"\n", "3:9: unknown model \"H9\" (did you mean \"H1\"?)"},
      {"[[host]]\n[[host.controller]]\nmodel = \"D1\"\n", "3:9: unknown model \"D1\" (did you mean \"H1\"?)"},
      {"[[host]]\n[[host.controller]]\nmodel = 7\n", "3:9: model must be text, not a number"},
      {"[[host]]\n[[host.controller]]\nhopCount = \"many\"\n", "3:12: hopCount must be a number, not text"},
      {"[[host]]\n[[host.controller]]\nhopCount = 1024\n", "3:12: hopCount must be in 0 to 1023"},
      {"[[host]]\n[[host.controller]]\npciIdentity = \"8086\"\n",
       "3:15: pciIdentity must be vendor:device in hex, such as \"8086:9A1B\""},
      {"[[host]]\n[[host.controller]]\nresources = [\"memory\", \"interupt\"]\n",
       "3:13: unknown resource \"interupt\" (did you mean \"interrupt\"?)"},
      {"[[host]]\n[[host.controller]]\nresources = [\"memory\", 3]\n",
       "3:24: resources must be a list of texts, not a number"},
      {"[[host]]\n[[host.controller]]\n[host.controller.registry]\na = -1\n", "4:5: a must be in 0 to 4294967295"},
      {"[[host]]\n[[host.controller]]\n[[host.controller]]\n", "3:1: a second controller \"H1\""},
      {"[[host]]\nname = \"a\"\n[[host]]\nname = \"a\"\n", "4:8: a second host \"a\""},
      {"[host]\n", "1:1: host must be a list of tables, each written [[host]], not a table"},
      {"[[event]]\ndo = \"sleep\"\n", "1:1: at is missing"},
      {"[[event]]\nat = 5\ndo = \"sleep\"\n", "2:6: at must be a time such as \"250 ms\", not a number"},
      {"[[event]]\nat = \"5\"\ndo = \"sleep\"\n", "2:6: at must be a time such as \"250 ms\", \"1.5 s\" or \"20 us\""},
      {"[[event]]\nat = \"5 s\"\ndo = \"seep\"\n", "3:6: unknown do \"seep\" (did you mean \"sleep\"?)"},
      {"[[event]]\nat = \"5 s\"\ndo = \"sleep\"\nhost = \"hots\"\n",
       "4:8: unknown host \"hots\" (did you mean \"host\"?)"},
      {"[[expect]]\npower = \"D2\"\n", "2:9: unknown power \"D2\" (did you mean \"D0\"?)"},
      {"[[expect]]\nrouters = \"one\"\n", "2:11: routers must be a number, not text"},
      {"[[expect]]\ntunnel = \"PCI 0:3 -> 1:9\"\n",
       "2:10: \"PCI 0:3 -> 1:9\" is no tunnel: write kind, source and destination as \"PCIe 0:3 -> 1:9\""},
      {"[[expect]]\ntunnels = [\"PCIe 0:3 -> 1:9 \"]\n",
       "2:11: \"PCIe 0:3 -> 1:9 \" is no tunnel: write kind, source and destination as \"PCIe 0:3 -> 1:9\""},
      {"[[expect]]\nallocated = \"9000/9000\"\n", "2:13: allocated needs the tunnel"},
      {"[[expect]]\npresent = false\n", "2:11: present needs the router's route, the peer, the tunnel or the probe"},
      {"[[expect]]\npeer = \"1\"\nroute = \"1\"\n", "2:8: either route or peer, not both"},
      {"[[expect]]\npeerState = \"ENUMERATED\"\n", "2:13: peerState needs the peer"},
      {"[[expect]]\npeer = \"1\"\npeerState = \"ENUMERATD\"\n",
       "3:13: unknown peerState \"ENUMERATD\" (did you mean \"ENUMERATED\"?)"},
      {"[[expect]]\nat = \"1 s\"\ncontroller = \"H1\"\n", "1:1: nothing is expected here"},
      {"name = \"x\"\nname = \"y\"\n",
       "2:8: Error while parsing key-value pair: cannot redefine existing string 'name'"},
  };
  for (const auto& test : kCases) EXPECT_EQ(Complaint(test.text), test.complaint) << test.text;
}

TEST(ScenarioInput, AllMistakesAtOnceInTheirOrder) {
  const struct {
    const char* text;
    const char* complaints;
  } kCases[] = {
      // In the order in which the parts are read, the expectation comes last and the name first.
      {"[[expect]]\nrouters = \"one\"\n[[host]]\nnam = \"a\"\n[[event]]\nat = 5\ndo = \"seep\"\n",
       "2:11: routers must be a number, not text\n"
       "4:1: unknown key \"nam\" (did you mean \"name\"?)\n"
       "6:6: at must be a time such as \"250 ms\", not a number\n"
       "7:6: unknown do \"seep\" (did you mean \"sleep\"?)"},
      // What is missing comes behind the rest of its table, and not at all where a key was meant to be it.
      {"[[event]]\nhots = \"a\"\ncolour = 3\n",
       "2:1: unknown key \"hots\" (did you mean \"host\"?)\n3:1: unknown key \"colour\"\n1:1: at is missing\n"
       "1:1: do is missing"},
      {"[[router]]\nmodle = \"D1\"\n[[event]]\nq = \"1 s\"\ndo = \"unplug\"\nwhat = \"H1:1\"\n",
       "2:1: unknown key \"modle\" (did you mean \"model\"?)\n4:1: unknown key \"q\"\n3:1: at is missing"},
      // A mistake makes no others: of a router without a model, nothing is known that its cables could break.
      {"[[router]]\nname = \"a\"\nmodel = \"D7\"\n[[link]]\nfrom = \"H1:1\"\nto = \"a:77\"\n"
       "[[event]]\nat = \"1 s\"\ndo = \"unplug\"\nwhat = \"a\"\n[[expect]]\nroute = 1\ntunnel = 2\nallocated = "
       "\"1/1\"\n",
       "3:9: unknown model \"D7\" (did you mean \"D1\"?)\n12:9: route must be text, not a number\n"
       "13:10: tunnel must be text, not a number"},
      {"[[host]]\n[[host.controller]]\nmodel = \"H9\"\n[[link]]\nfrom = \"H9:1\"\nto = \"D1:1\"\n",
       "3:9: unknown model \"H9\" (did you mean \"H1\"?)\n6:6: unknown router \"D1\""},
  };
  for (const auto& test : kCases) EXPECT_EQ(Complaint(test.text), test.complaints) << test.text;
}

std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

// The parser calls itself for each level, and each router takes memory before the first mistake could be told.
TEST(ScenarioInput, WhatIsTooLargeIsOneLine) {
  const std::string deep = Repeated("a.", 50'000) + "a";
  const struct {
    std::string text;
    const char* complaint;
  } kCases[] = {
      {deep + " = 1\n", "1:1: a key has at most 32 parts, this one has more"},
      {"name = \"" + deep + "\"\n[" + deep + "]\n", "2:2: a key has at most 32 parts, this one has more"},
      {"x = [1, {" + deep + " = 2}]\n", "1:10: a key has at most 32 parts, this one has more"},
      {"name = \"\"\"\n" + deep + "\n\\\"\"\"\"\n# " + deep + "\n'x'." + deep + " = 1\n",
       "5:1: a key has at most 32 parts, this one has more"},
      {"name = '''\n" + deep + "'''\n# " + deep, ""},
      {Repeated("a.", 31) + "a = 1\n", "1:1: unknown key \"a\""},
      {"x = " + Repeated("[", 50'000),
       "1:261: Error while parsing value: exceeded maximum nested value depth of 256 (TOML_MAX_NESTED_VALUES)"},
      {Repeated("[[host]]\n", 9), "9:1: at most 8 of [[host]], here are 9"},
      {Repeated("#", 1024 * 1024 + 1), "1:1: has more than 1048576 bytes, which is the limit"},
  };
  for (const auto& test : kCases) EXPECT_EQ(Complaint(test.text), test.complaint) << test.text.substr(0, 30);
  std::string routers;
  for (int i = 0; i < 16'000; ++i) routers += "[[router]]\nmodel = \"D1\"\nname = \"r" + std::to_string(i) + "\"\n";
  EXPECT_EQ(Complaint(routers), "769:1: at most 256 of [[router]], here are 16000");
  const std::string many = Complaint(Repeated("[[event]]\n", 200));
  EXPECT_EQ(std::count(many.begin(), many.end(), '\n'), 100) << "a hundred mistakes and one line about the rest";
}

TEST(ScenarioInput, WhatIsNoFileIsCalledWhatItIs) {
  const std::string folder = testing::TempDir() + "folder.toml", pipe = testing::TempDir() + "pipe.toml";
  std::filesystem::create_directories(folder);
  std::filesystem::remove(pipe);
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(ComplaintAbout("no/such.toml"), "1:1: no such file");
  EXPECT_EQ(ComplaintAbout(folder), "1:1: is a directory, not a file");
  EXPECT_EQ(ComplaintAbout(pipe), "1:1: is a pipe, not a file (- reads standard input)");
  EXPECT_EQ(ComplaintAbout("/dev/null"), "1:1: is a device, not a file (- reads standard input)");
}

TEST(SameFile, IsOneWhateverItIsCalled) {
  const std::string file = WriteFile("same.toml", ""), link = testing::TempDir() + "same.link";
  std::filesystem::remove(link);
  std::filesystem::create_hard_link(file, link);
  const struct {
    std::string first, second;
    bool same;
  } kCases[] = {{file, file, true},
                {link, file, true},
                {testing::TempDir() + "./same.toml", file, true},
                {testing::TempDir() + "new.svg", testing::TempDir() + "x/../new.svg", true},
                {testing::TempDir() + "new.svg", file, false},
                {"/dev/null", "/dev/null", false}};
  for (const auto& test : kCases) EXPECT_EQ(lab::SameFile(test.first, test.second), test.same) << test.first;
}

TEST(ScenarioInput, EveryKeyArrives) {
  const lab::Scenario scenario = lab::ReadScenario(WriteFile("good.toml", R"(
name = "all keys"
[[host]]
name = "desk"
computerName = "PC"
[[host.controller]]
name = "left"
model = "H2"
hardwareId = 'PCI\VEN_1F3A&DEV_3A0F'
pciIdentity = "1234:abCD"
hopCount = 5
resources = ["interrupt", "memory", "other", "interrupt", "missing", "memory"]
acpiStatus = "0xC0000001"
acpiDelay = "1.5 s"
handOver = "wrong"
registry = { 'USB3Tunnel\USB3TunnelSupported' = 1 }
[[event]]
at = "2 s"
do = "surprise-remove"
[[event]]
at = "1 s"
do = "hibernate"
[[expect]]
startStatus = "0xC000009A"
interface = "{ABC}"
)"));
  ASSERT_EQ(scenario.machine.hosts.size(), 1u);
  const lab::HostConfig& host = scenario.machine.hosts[0];
  EXPECT_EQ(host.name + "/" + host.computerName, "desk/PC");
  ASSERT_EQ(host.controllers.size(), 1u);
  const lab::ControllerConfig& controller = host.controllers[0];
  EXPECT_EQ(controller.name + " " + controller.model + " " + controller.hardwareId, "left H2 PCI\\VEN_1F3A&DEV_3A0F");
  EXPECT_EQ(controller.pciIdentity, 0xABCD1234u);
  EXPECT_EQ(controller.hopCount, 5u);
  EXPECT_EQ(static_cast<std::uint32_t>(controller.acpiStatus), 0xC0000001u);
  EXPECT_EQ(controller.acpiDelay, 15'000'000);
  EXPECT_EQ(controller.handOver, sim::FirmwareAnswer::Wrong);
  EXPECT_EQ(controller.parameters.at("USB3Tunnel\\USB3TunnelSupported"), 1u);
  ASSERT_EQ(controller.resources->size(), 6u);
  EXPECT_EQ(controller.resources->at(3).message, 1u) << "messages are numbered in order";
  EXPECT_NE(controller.resources->at(1).start, controller.resources->at(5).start) << "two BARs, two places";
  ASSERT_EQ(scenario.events.size(), 2u);
  EXPECT_EQ(scenario.events[0].verb, lab::Verb::Hibernate) << "events are in time order";
  EXPECT_EQ(scenario.events[1].verb, lab::Verb::SurpriseRemove);
  ASSERT_EQ(scenario.expectations.size(), 1u);
  EXPECT_EQ(scenario.expectations[0].at, platform::kNever);
  EXPECT_EQ(static_cast<std::uint32_t>(*scenario.expectations[0].startStatus), 0xC000009Au);
  EXPECT_EQ(scenario.expectations[0].interface, "{abc}");
}

TEST(Durations, ReadAndWritten) {
  const struct {
    const char* text;
    std::optional<platform::Time> time;
  } kCases[] = {
      {"250 ms", 2'500'000},
      {"1.5 s", 15'000'000},
      {"20us", 200},
      {"0.0001 ms", 1},
      {"0 s", 0},
      {"5", std::nullopt},
      {"ms", std::nullopt},
      {"", std::nullopt},
      {"1..5 s", std::nullopt},
      {"-1 s", std::nullopt},
      {"1 h", std::nullopt},
      {"9999999999 s", std::nullopt},
  };
  for (const auto& test : kCases) EXPECT_EQ(lab::ParseDuration(test.text), test.time) << test.text;
  EXPECT_EQ(lab::FormatMs(123456), "12.3456");
  EXPECT_EQ(lab::FormatMs(7), "0.0007");
}

TEST(Suggestions, OnlyWhatIsNear) {
  const std::vector<std::string> names = {"sleep", "resume", "wake"};
  EXPECT_EQ(lab::Nearest("slep", names), "sleep");
  EXPECT_EQ(lab::Nearest("RESUME", names), "resume");
  EXPECT_EQ(lab::Nearest("hibernate", names), "");
  EXPECT_EQ(lab::Suggestion("wakee", names), " (did you mean \"wake\"?)");
}

TEST(SoakOptions, RangesAndShards) {
  std::uint64_t first = 0, last = 0;
  EXPECT_TRUE(lab::ParseSeedRange("3..12", first, last));
  EXPECT_EQ(first, 3u);
  EXPECT_EQ(last, 12u);
  for (const char* bad : {"3", "3..", "..3", "4..3", "a..b", "1...3", "-1..3"}) {
    EXPECT_FALSE(lab::ParseSeedRange(bad, first, last)) << bad;
  }
  unsigned shard = 0, shards = 0;
  EXPECT_TRUE(lab::ParseShard("2/4", shard, shards));
  EXPECT_EQ(shard, 2u);
  for (const char* bad : {"0/4", "5/4", "4", "/4", "1/"}) EXPECT_FALSE(lab::ParseShard(bad, shard, shards)) << bad;
}

TEST(HexFiles, BytesAndMistakes) {
  const auto lines = lab::ReadHexLines(WriteFile("good.hex", "# a comment\n\n 00 1f AB  # tail\npdf=5 0102\n"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].line, 3u);
  EXPECT_EQ(lines[0].bytes, (std::vector<std::uint8_t>{0x00, 0x1F, 0xAB}));
  EXPECT_FALSE(lines[0].pdf);
  EXPECT_EQ(lines[1].pdf, 5u);
  const struct {
    const char* text;
    const char* complaint;
  } kCases[] = {
      {"00 1\n", ":1:5: a byte needs two hex digits"},
      {"00\n0x12\n", ":2:2: 'x' is no hex digit"},
      {"pdf=77 00\n", ":1:7: pdf= wants a number in 0 to 15"},
      {"pdf= 00\n", ":1:5: pdf= wants a number in 0 to 15"},
  };
  for (const auto& test : kCases) {
    const std::string path = WriteFile("bad.hex", test.text);
    try {
      lab::ReadHexLines(path);
      ADD_FAILURE() << "read " << test.text;
    } catch (const lab::InputError& error) {
      EXPECT_EQ(std::string(error.what()), path + test.complaint);
    }
  }
}

}  // namespace
