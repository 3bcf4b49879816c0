// The command line. The only user of the option parser; every mistake in the options is exit code 2.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <system_error>

#include "lab/decode/decode_drom.h"
#include "lab/decode/decode_packet.h"
#include "lab/decode/decode_properties.h"
#include "lab/input/console.h"
#include "lab/input/input_file.h"
#include "lab/input/suggest.h"
#include "lab/machine/fault_profiles.h"
#include "lab/report/json_report.h"
#include "lab/report/svg.h"
#include "lab/run/print_run.h"
#include "lab/run/soak.h"
#include "lab/scenario/generate.h"
#include "sim/fabric/fabric.h"

namespace {

struct Options {
  std::string color = "auto";
  std::vector<std::string> files;
  std::string seed, seeds = "1..100", shard = "1/1";
  std::vector<std::string> faults{"none"};
  lab::RunOptions run;
  bool json = false;
  unsigned verbosity = 0;
  std::string picture, state;
};

lab::Console MakeConsole(const Options& options) {
  if (options.color == "always") return lab::Console(lab::ColorMode::Always);
  if (options.color == "never") return lab::Console(lab::ColorMode::Never);
  return lab::Console(lab::ColorMode::Auto);
}

lab::ExitCode UsageError(const std::string& message) {
  lab::Console().Message("usb4lab: " + message);
  return lab::ExitCode::Usage;
}

bool ParseSeed(const std::string& text, std::uint64_t& seed) {
  std::size_t used = 0;
  try {
    seed = std::stoull(text, &used, 0);
  } catch (const std::exception&) {
    return false;
  }
  return used == text.size() && text[0] != '-';
}

bool TakeSeed(Options& options) {
  std::uint64_t seed = 0;
  if (options.seed.empty()) return true;
  if (!ParseSeed(options.seed, seed)) return false;
  options.run.seed = seed;
  return true;
}

bool KnownFaults(const std::vector<std::string>& names, std::string& message) {
  const std::vector<std::string>& known = lab::FaultProfileNames();
  for (const std::string& name : names) {
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    message = fmt::format("unknown fault profile \"{}\"{}", name, lab::Suggestion(name, known));
    return false;
  }
  return true;
}

// True also when no file is asked for.
bool WriteFile(const std::string& file, const std::string& text) {
  if (file.empty()) return true;
  std::ofstream out(file, std::ios::binary);
  out << text;
  out.close();
  if (!out) lab::Console().Message("usb4lab: cannot write " + file);
  return out.good();
}

// No option may write over what is read, or over what another one writes.
std::string Clash(const Options& options) {
  std::vector<std::pair<std::string, std::string>> outputs;
  for (const auto& [option, file] :
       {std::pair("--pcapng", options.run.captureFile), std::pair("--trace", options.run.traceFile),
        std::pair("--svg", options.picture), std::pair("--state", options.state)}) {
    if (!file.empty()) outputs.emplace_back(option, file);
  }
  for (auto output = outputs.begin(); output != outputs.end(); ++output) {
    for (const std::string& input : options.files) {
      if (lab::SameFile(output->second, input)) {
        return fmt::format("{} would write over the input file {}", output->first, input);
      }
    }
    for (auto other = outputs.begin(); other != output; ++other) {
      if (lab::SameFile(output->second, other->second)) {
        return fmt::format("{} and {} name one file, {}", other->first, output->first, output->second);
      }
    }
  }
  return "";
}

lab::ExitCode RunCommand(Options& options) {
  std::string message = Clash(options);
  if (!message.empty()) return UsageError(message);
  if (!KnownFaults(options.faults, message)) return UsageError(message);
  options.run.faults = options.faults.front();
  if (!TakeSeed(options)) return UsageError("--seed wants a number, not \"" + options.seed + "\"");
  if (options.run.stopAtStep != 0 && !options.run.seed) {
    return UsageError("--stop-at needs --seed: without it a run makes no scheduling choices");
  }
  const lab::Console console = MakeConsole(options);
  const lab::Scenario scenario = lab::FindScenario(options.files.front(), options.run.seed.value_or(0));
  options.run.registers = options.verbosity > 1;
  lab::LiveEvents::Listener live;
  if (!options.json) {
    console.Out(console.Paint(lab::Style::Strong, scenario.name));
    live = [&console](const lab::LiveEvent& event) { lab::PrintEvent(console, event); };
  }
  const lab::RunReport report = lab::RunScenario(scenario, options.run, live);
  const bool drawn = WriteFile(options.picture, lab::FormatSvg(report.domains));
  if (options.json) {
    fmt::print("{}", lab::FormatJson(report));
  } else {
    lab::PrintReport(console, report, options.verbosity,
                     lab::ReplayCommand(scenario.file, options.run, report.failedStep));
  }
  return report.code == lab::ExitCode::Held && !drawn ? lab::ExitCode::InputOutput : report.code;
}

lab::ExitCode ExplainCommand(Options& options) {
  if (!TakeSeed(options)) return UsageError("--seed wants a number, not \"" + options.seed + "\"");
  options.run.explain = true;
  const lab::Console console = MakeConsole(options);
  const lab::RunReport report =
      lab::RunScenario(lab::FindScenario(options.files.front(), options.run.seed.value_or(0)), options.run);
  for (const std::string& text : report.explanations) fmt::print("{}", text);
  for (const std::string& failure : report.failures) console.Message("failed: " + failure);
  for (const platform::Violation& violation : report.violations) {
    console.Message(fmt::format("violation: {}: {}", platform::RuleName(violation.rule), violation.detail));
  }
  if (!report.hang.empty()) console.Message("hang: " + report.hang);
  return report.code;
}

lab::ExitCode SoakCommand(Options& options) {
  lab::SoakOptions soak;
  std::string message = Clash(options);
  if (!message.empty()) return UsageError(message);
  if (!KnownFaults(options.faults, message)) return UsageError(message);
  if (!lab::ParseSeedRange(options.seeds, soak.firstSeed, soak.lastSeed)) {
    return UsageError("--seeds wants A..B with A not above B, not \"" + options.seeds + "\"");
  }
  if (!lab::ParseShard(options.shard, soak.shard, soak.shards)) {
    return UsageError("--shard wants I/N with I in 1 to N, not \"" + options.shard + "\"");
  }
  soak.scenarios = options.files;
  soak.faults = options.faults;
  soak.stateFile = options.state;
  return lab::Soak(soak, MakeConsole(options));
}

lab::ExitCode GenerateCommand(Options& options) {
  if (!TakeSeed(options)) return UsageError("--seed wants a number, not \"" + options.seed + "\"");
  fmt::print("{}", lab::GenerateScenario(options.run.seed.value_or(0)));
  return lab::ExitCode::Held;
}

using Decoder = lab::ExitCode (*)(const std::string& file, const lab::Console& console);

struct DumpKind {
  const char* name;
  const char* help;
  Decoder decode;
};

constexpr DumpKind kDumpKinds[] = {
    {"packet", "control packets, one a line in hex, with or without CRC", lab::DecodePackets},
    {"drom", "the DROM image of a router, in hex", lab::DecodeDrom},
    {"properties", "the property block of a host, in hex as it travels", lab::DecodeProperties},
};

void AddColor(CLI::App& app, Options& options) {
  app.add_option("--color", options.color, "auto, always or never")->check(CLI::IsMember({"auto", "always", "never"}));
}

void AddRun(CLI::App& app, Options& options) {
  app.add_option("scenario", options.files, "scenario file; - for standard input")->required()->expected(1);
  app.add_option("--seed", options.seed, "one interleaving; without it, first come, first served");
  app.add_option("--faults", options.faults, "fault profile")->expected(1);
  app.add_option("--stop-at", options.run.stopAtStep,
                 "end after this scheduling choice, with the domain as it is then");
  app.add_option("--pcapng", options.run.captureFile, "capture the control rings in this file");
  app.add_option("--trace", options.run.traceFile, "write a timeline for the Perfetto viewer to this file");
  app.add_option("--svg", options.picture, "draw the domains at the end in this file");
  app.add_flag("--json", options.json, "one JSON document instead of text");
  app.add_flag("-v", options.verbosity, "list adapters in the tree; -vv: registers too");
  AddColor(app, options);
}

void AddSoak(CLI::App& app, Options& options) {
  app.add_option("scenarios", options.files, "scenario files; \"generated\": one of its own for each seed")->required();
  app.add_option("--seeds", options.seeds, "A..B");
  app.add_option("--shard", options.shard, "I/N: every N-th run, from the I-th on");
  app.add_option("--faults", options.faults, "fault profiles, each with every seed");
  app.add_option("--state", options.state, "keep in this file how far it is, and go on from there");
  AddColor(app, options);
}

lab::ExitCode Dispatch(int count, char** arguments) {
  Options options;
  CLI::App app("The connection manager driver on a simulated machine.", "usb4lab");
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand("run", "play a scenario, show what happens, judge it");
  CLI::App* explain = app.add_subcommand("explain", "why each device of a scenario has, or has not, its tunnel");
  CLI::App* soak = app.add_subcommand("soak", "many seeds of scenarios; prints each failure as its replay command");
  CLI::App* generate = app.add_subcommand("generate", "print the scenario that stands for a seed of \"generated\"");
  CLI::App* decode = app.add_subcommand("decode", "explain a dump from the bench");
  AddRun(*run, options);
  AddSoak(*soak, options);
  explain->add_option("scenario", options.files, "scenario file; - for standard input")->required()->expected(1);
  explain->add_option("--seed", options.seed, "one interleaving");
  AddColor(*explain, options);
  generate->add_option("--seed", options.seed, "which one");
  decode->require_subcommand(1);
  Decoder decoder = nullptr;
  for (const DumpKind& kind : kDumpKinds) {
    CLI::App* dump = decode->add_subcommand(kind.name, kind.help);
    dump->add_option("file", options.files, "text file; - for standard input")->required()->expected(1);
    dump->callback([&decoder, &kind] { decoder = kind.decode; });
    AddColor(*dump, options);
  }
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) return UsageError(error.what());
    app.exit(error);  // help was asked for
    return lab::ExitCode::Held;
  }
  if (run->parsed()) return RunCommand(options);
  if (explain->parsed()) return ExplainCommand(options);
  if (generate->parsed()) return GenerateCommand(options);
  return soak->parsed() ? SoakCommand(options) : decoder(options.files.front(), MakeConsole(options));
}

// A result that nobody can read is none, unless there is worse to report.
lab::ExitCode WithOutput(lab::ExitCode code) {
  const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (!written) lab::Console().Message("usb4lab: cannot write the results");
  return code == lab::ExitCode::Held && !written ? lab::ExitCode::InputOutput : code;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    return static_cast<int>(WithOutput(Dispatch(count, arguments)));
  } catch (const lab::InputError& error) {
    lab::Console().Message(error.what());
    return static_cast<int>(lab::ExitCode::Usage);
  } catch (const sim::TopologyError& error) {
    lab::Console().Message(std::string("usb4lab: ") + error.what());
    return static_cast<int>(lab::ExitCode::Usage);
  } catch (const std::system_error& error) {  // what the library for output throws when it cannot write
    std::fprintf(stderr, "usb4lab: %s\n", error.what());
    return static_cast<int>(lab::ExitCode::InputOutput);
  }
}
