// Goal: each rule of the verifier is caught when it is broken, and docs/verifier.md says so truly. Method: every
// registered break runs against a fresh host; the list of rules, the list of breaks and the document's table are
// compared.
#include "tests/platform/rule_tests.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace platform {

void PrintTo(const BrokenRule& broken, std::ostream* out) {
  *out << broken.test;
}

std::vector<BrokenRule>& BrokenRules() {
  static std::vector<BrokenRule> broken;
  return broken;
}

namespace {

class RuleBroken : public testing::TestWithParam<BrokenRule> {};

TEST_P(RuleBroken, EndsTheRunWithOneReport) {
  const std::vector<Violation> violations = GetParam().run();
  ASSERT_EQ(violations.size(), 1u) << (violations.empty() ? "nothing was reported" : violations[1].detail);
  EXPECT_STREQ(RuleName(violations[0].rule), RuleName(GetParam().rule)) << violations[0].detail;
  EXPECT_EQ(violations[0].call, GetParam().call) << violations[0].detail;
  EXPECT_NE(violations[0].detail, "");
}

std::vector<BrokenRule> WithBody() {
  std::vector<BrokenRule> all = BrokenRules();
  std::erase_if(all, [](const BrokenRule& broken) { return !broken.run; });
  return all;
}

// Evaluated after every file has added its entries.
INSTANTIATE_TEST_SUITE_P(Verifier, RuleBroken, testing::ValuesIn(WithBody()),
                         [](const auto& test) { return std::string(test.param.test); });

constexpr const char* kDocument = PROJECT_ROOT "/docs/verifier.md";

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// The third cell of the rule's row: the only one that people write.
std::string SentenceOf(const std::string& document, const std::string& rule) {
  const std::size_t row = document.find("| `" + rule + "` |");
  if (row == std::string::npos) return "MISSING";
  std::size_t from = row;
  for (int bar = 0; bar < 2; ++bar) from = document.find('|', from + 1);
  const std::string cell = document.substr(from + 1, document.find('|', from + 1) - from - 1);
  return cell.substr(1, cell.size() - 2);
}

std::string Join(const std::set<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "`" : ", `") + name + "`";
  return text;
}

std::string RuleTable(const std::string& document) {
  std::map<Rule, std::set<std::string>> calls, tests;
  for (const BrokenRule& entry : BrokenRules()) {
    calls[entry.rule].insert(entry.call[0] ? entry.call : "none");
    tests[entry.rule].insert(entry.test);
  }
  std::string table;
  for (unsigned i = 0; i < static_cast<unsigned>(Rule::Count); ++i) {
    const Rule rule = static_cast<Rule>(i);
    const std::string name = RuleName(rule);
    table += "| `" + name + "` | " + Join(calls[rule]) + " | " + SentenceOf(document, name) + " | " +
             Join(tests[rule]) + " |\n";
  }
  return table;
}

std::string Between(const std::string& text, const std::string& from, const std::string& to) {
  const std::size_t start = text.find(from) + from.size();
  return text.substr(start, text.find(to, start) - start);
}

// Every call with the highest IRQL at which it may be made, as its own code says.
std::string LevelTable() {
  std::map<std::string, std::string> levels;
  const std::string opening = "KernelCall call(\"";
  for (const auto& file : std::filesystem::recursive_directory_iterator(PROJECT_ROOT "/platform")) {
    if (file.path().extension() != ".cpp") continue;
    const std::string text = ReadFile(file.path().string());
    for (std::size_t at = text.find(opening); at != std::string::npos; at = text.find(opening, at + 1)) {
      const std::string name = Between(text.substr(at), opening, "\"");
      if (name.find(' ') != std::string::npos) continue;  // the system's own doing, no call of the driver
      std::string arguments = Between(text.substr(at), "\", ", ");");
      std::string level;
      for (const char* known : {"PASSIVE", "APC", "DISPATCH", "HIGH"}) {
        if (arguments.find(known) == std::string::npos) continue;
        level += std::string(level.empty() ? "" : " or ") + (std::string(known) == "HIGH" ? "any" : known);
      }
      levels[name] = level;
    }
  }
  std::string table;
  for (const auto& [call, level] : levels) table += "| `" + call + "` | " + level + " |\n";
  return table;
}

// Parametrised tests: "Instance/Suite" and "Test/parameter".
std::string AfterSlash(const std::string& name) {
  return name.substr(name.find('/') == std::string::npos ? 0 : name.find('/') + 1);
}

std::string BeforeSlash(const std::string& name) {
  return name.substr(0, name.find('/'));
}

constexpr const char* kHowToUpdate = "docs/verifier.md is behind the code: run platform_tests once with WRITE_DOCS=1";
constexpr const char* kRuleHead = "| rule | calls | what is published | tests that break it |\n|---|---|---|---|\n";
constexpr const char* kLevelHead = "| call | highest IRQL |\n|---|---|\n";

TEST(Rules, EachRuleHasATestThatBreaksIt) {
  std::set<Rule> broken;
  for (const BrokenRule& entry : BrokenRules()) broken.insert(entry.rule);
  for (unsigned i = 0; i < static_cast<unsigned>(Rule::Count); ++i) {
    EXPECT_TRUE(broken.contains(static_cast<Rule>(i))) << "no test breaks " << RuleName(static_cast<Rule>(i));
  }
}

// A break that a test asserts by itself names that test, or the suite of its table.
TEST(Rules, EachNamedTestExists) {
  std::set<std::string> names;
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    names.insert(AfterSlash(suite.name()));
    for (int j = 0; j < suite.total_test_count(); ++j) names.insert(BeforeSlash(suite.GetTestInfo(j)->name()));
  }
  for (const BrokenRule& entry : BrokenRules()) {
    EXPECT_TRUE(entry.run || names.contains(entry.test)) << entry.test << " is no test of this program";
  }
}

// With WRITE_DOCS=1 in the environment the tables are brought up to date; the sentences are written by people.
TEST(Rules, TheDocumentsTablesSayWhatTheCodeDoes) {
  std::string document = ReadFile(kDocument);
  const std::string rules = RuleTable(document), levels = LevelTable();
  EXPECT_EQ(rules.find("MISSING"), std::string::npos) << "a rule without its sentence";
  if (std::getenv("WRITE_DOCS")) {
    const auto replace = [&](const char* head, const std::string& table) {
      const std::size_t start = document.find(head) + std::strlen(head);
      std::size_t end = start;
      while (end < document.size() && document[end] == '|') end = document.find('\n', end) + 1;
      document.replace(start, end - start, table);
    };
    replace(kRuleHead, rules);
    replace(kLevelHead, levels);
    std::ofstream(kDocument) << document;
  }
  EXPECT_EQ(Between(document, kRuleHead, "\n\n") + "\n", rules) << kHowToUpdate;
  EXPECT_EQ(Between(document, kLevelHead, "\n\n") + "\n", levels) << kHowToUpdate;
}

TEST(Rules, AWaiverLetsABreachThroughUpToItsBoundAndCountsIt) {
  RuleRig rig;
  rig.simulation.waivers().push_back({Rule::StallTooLong, "KeStallExecutionProcessor", 3100, "power-on sequence"});
  rig.OnTask([] { KeStallExecutionProcessor(3100); });
  EXPECT_TRUE(rig.simulation.violations().empty());
  EXPECT_EQ(rig.simulation.waivers()[0].hits, 1u);
  rig.OnTask([] { KeStallExecutionProcessor(3101); });
  ASSERT_EQ(rig.simulation.violations().size(), 1u);
  EXPECT_EQ(rig.simulation.violations()[0].rule, Rule::StallTooLong);
}

}  // namespace
}  // namespace platform
