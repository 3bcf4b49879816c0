// Goal: every rule of the hardware and of the oracle is broken by some test, and has a name of its own. Method: a
// message ends with its rule's name in brackets, and tests compare whole messages; so a name that stands in no test is
// a rule that none breaks.
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "lab/oracle/finding.h"
#include "sim/host/complaints.h"

namespace {

// Why no test can break it.
const std::map<std::string, const char*> kUnbroken = {
    {"router-twice",
     "the driver's list has one entry for each route, and two records for one router cannot be planted"},
};

std::string AllTests() {
  std::stringstream text;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(PROJECT_ROOT "/tests")) {
    if (entry.path().extension() == ".cpp") text << std::ifstream(entry.path()).rdbuf();
  }
  return text.str();
}

TEST(Rules, EachIsBrokenByATestAndHasItsOwnName) {
  std::vector<std::string> names;
  for (unsigned i = 0; i < static_cast<unsigned>(sim::Complaint::Count); ++i) {
    names.emplace_back(sim::ComplaintName(static_cast<sim::Complaint>(i)));
  }
  for (unsigned i = 0; i < static_cast<unsigned>(lab::FindingRule::Count); ++i) {
    names.emplace_back(lab::FindingName(static_cast<lab::FindingRule>(i)));
  }
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
  const std::string tests = AllTests();
  for (const std::string& name : names) {
    EXPECT_NE(tests.find("[" + name + "]") != std::string::npos, kUnbroken.contains(name)) << name;
  }
}

}  // namespace
