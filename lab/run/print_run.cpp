// Layout of a run's text. Data on standard output; what stopped a run goes to standard error as well as into the
// verdict.
#include "lab/run/print_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "lab/input/duration.h"
#include "lab/report/tree.h"

namespace lab {
namespace {

void PrintViolation(const Console& console, const platform::Violation& violation) {
  console.Out(fmt::format("{}  {} in {} on task {} at IRQL {}, {} ms: {}", console.Paint(Style::Bad, "violation"),
                          platform::RuleName(violation.rule), violation.call, violation.task, violation.irql,
                          FormatMs(violation.when), violation.detail));
  for (const std::string& frame : violation.stack) console.Out("             " + frame);
}

void PrintLeftovers(const Console& console, const RunReport& report) {
  for (const Leftovers& left : report.leftovers) {
    console.Out(fmt::format("left over  {}: pool {} bytes, handles {}, mappings {}, buffers {}, references {}",
                            left.host, left.poolBytes, left.objects, left.mappings, left.buffers, left.references));
  }
}

void PrintFindings(const Console& console, const RunReport& report) {
  for (const platform::Waiver& waiver : report.waivers) {
    console.Out(console.Paint(Style::Faint,
                              fmt::format("tolerated  {} in {}, {} times (known behaviour): {}",
                                          platform::RuleName(waiver.rule), waiver.where, waiver.hits, waiver.reason)));
  }
  for (const sim::ProtocolError& error : report.waivedErrors) {
    console.Out(console.Paint(Style::Faint, fmt::format("excused    {} ({} times): a fault has struck in this run",
                                                        error.Text(), error.count)));
  }
  for (const std::string& failure : report.failures) console.Out(console.Paint(Style::Bad, "failed     ") + failure);
  for (const sim::ProtocolError& error : report.protocolErrors) {
    console.Out(fmt::format("{}{} ({} times, first at {} ms)", console.Paint(Style::Bad, "protocol   "), error.Text(),
                            error.count, FormatMs(error.when)));
  }
  for (const platform::Violation& violation : report.violations) PrintViolation(console, violation);
  if (!report.hang.empty()) console.Out(console.Paint(Style::Bad, "hang       ") + report.hang);
}

std::string VerdictText(const RunReport& report) {
  switch (report.code) {
    case ExitCode::Held:
      return report.stopReached ? "stopped after the choice that was asked for; nothing has failed up to there"
                                : "pass";
    case ExitCode::Failed:
      return "fail: an expectation or the hardware's view of it does not hold";
    case ExitCode::Violation:
      return "fail: the verifier stopped the driver";
    case ExitCode::Hang:
      return "fail: no progress";
    case ExitCode::InputOutput:
      return "fail: a file could not be written";
    case ExitCode::Usage:
      break;
  }
  return "fail";
}

std::string ForShell(const std::string& word) {
  const auto plain = [](unsigned char c) { return std::isalnum(c) || std::strchr("_./-+=:,@%", c) != nullptr; };
  if (std::all_of(word.begin(), word.end(), plain)) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

}  // namespace

void PrintEvent(const Console& console, const LiveEvent& event) {
  console.Out(fmt::format("{:>14} ms  {:<10} {:<28} {}", FormatMs(event.when), event.where,
                          console.Paint(Style::Strong, event.event), event.effect));
}

void PrintReport(const Console& console, const RunReport& report, unsigned verbosity, const std::string& replay) {
  console.Out("");
  for (const DomainView& domain : report.domains) {
    std::string tree = FormatTree(domain, verbosity);
    tree.pop_back();
    console.Out(tree);
  }
  PrintLeftovers(console, report);
  PrintFindings(console, report);
  console.Out(fmt::format("run        {} ms of virtual time, {} choices, {} faults, trace {:016x}",
                          FormatMs(report.virtualTime), report.step, report.faultsFired, report.traceHash));
  const bool good = report.code == ExitCode::Held;
  console.Out("verdict    " + console.Paint(good ? Style::Good : Style::Bad, VerdictText(report)));
  if (!good) console.Message("replay: " + replay);
}

std::string ReplayCommand(const std::string& scenario, const RunOptions& options, std::uint64_t step) {
  std::string command = "./usb4lab run " + ForShell(scenario);
  if (options.seed) command += fmt::format(" --seed {}", *options.seed);
  if (options.faults != "none") command += " --faults " + options.faults;
  if (step != 0) command += fmt::format(" --stop-at {}", step);
  return command;
}

}  // namespace lab
