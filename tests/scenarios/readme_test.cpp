// Goal: what README shows is what its command prints now, and its picture is the one that the tool draws. Method: the
// run that README names, line by line; only lines of the driver's own trace may be left out.
#include <cctype>
#include <fstream>
#include <sstream>

#include "lab/report/svg.h"
#include "lab/run/print_run.h"

namespace {

constexpr const char* kCommand = "$ ./usb4lab run scenarios/typical-chain.toml --svg docs/typical-chain.svg";

std::vector<std::string> Lines(std::istream& in) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> Transcript() {
  std::ifstream in(PROJECT_ROOT "/README.md");
  std::vector<std::string> lines = Lines(in);
  const auto begin =
      std::find_if(lines.begin(), lines.end(), [](const std::string& l) { return l.starts_with(kCommand); });
  return begin == lines.end() ? std::vector<std::string>()
                              : std::vector<std::string>(begin + 1, std::find(begin, lines.end(), "```"));
}

// The hash says which build ran.
std::string WithoutHash(const std::string& line) {
  return line.substr(0, line.find(", trace "));
}

// Its third column is the operation that speaks; every other event is in lower case.
bool IsDriverTrace(const std::string& line) {
  constexpr std::size_t kWhere = 19, kEvent = 30;
  return line.size() > kEvent && line[kWhere] != ' ' && std::isupper(static_cast<unsigned char>(line[kEvent]));
}

TEST(Readme, ShowsWhatTheCommandPrints) {
  const lab::Scenario scenario = lab::ReadScenario(PROJECT_ROOT "/scenarios/typical-chain.toml");
  const lab::Console console(lab::ColorMode::Never);
  testing::internal::CaptureStdout();
  console.Out(scenario.name);
  const lab::RunReport report =
      lab::RunScenario(scenario, {}, [&](const lab::LiveEvent& event) { lab::PrintEvent(console, event); });
  lab::PrintReport(console, report, 0, "");
  std::istringstream printed(testing::internal::GetCapturedStdout());
  const std::vector<std::string> shown = Transcript();
  auto next = shown.begin();
  for (const std::string& line : Lines(printed)) {
    if (next != shown.end() && WithoutHash(*next) == WithoutHash(line)) {
      ++next;
    } else {
      ASSERT_TRUE(IsDriverTrace(line)) << "README leaves out: " << line;
    }
  }
  EXPECT_EQ(next, shown.end()) << "not printed: " << *next;
  std::ifstream picture(PROJECT_ROOT "/docs/typical-chain.svg", std::ios::binary);
  EXPECT_EQ(lab::FormatSvg(report.domains), std::string(std::istreambuf_iterator<char>(picture), {}));
}

}  // namespace
