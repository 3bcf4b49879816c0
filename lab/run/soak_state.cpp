// Text, one key a line; then the findings, and a last line that says that nothing is missing.
#include "lab/run/soak_state.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>

namespace lab {
namespace {

constexpr const char* kFirstWord = "campaign ";
constexpr const char* kNumbers = "progress ";
constexpr const char* kLastLine = "end";

}  // namespace

bool LoadSoakState(const std::string& file, SoakState& state, std::string& why) {
  std::error_code error;
  if (std::filesystem::status(file, error).type() == std::filesystem::file_type::not_found) return true;
  std::ifstream in(file);
  if (!in) {
    why = "cannot read " + file;
    return false;
  }
  std::string campaign, word;
  SoakState read;
  if (!std::getline(in, campaign) || !campaign.starts_with(kFirstWord)) {
    why = file + " holds no campaign";
    return false;
  }
  read.campaign = campaign.substr(std::string_view(kFirstWord).size());
  if (read.campaign != state.campaign) {
    why = fmt::format("{} belongs to another campaign: {}", file, read.campaign);
    return false;
  }
  in >> word >> read.next >> read.runs >> read.failed >> read.faultsFired >> read.virtualTime >> read.milliseconds >>
      read.code;
  const bool numbers = in && word + " " == kNumbers;
  std::getline(in, word);
  while (std::getline(in, word) && word != kLastLine) read.findings.push_back(word);
  if (!numbers || word != kLastLine) {
    why = file + " is cut short";
    return false;
  }
  state = std::move(read);
  return true;
}

bool SaveSoakState(const std::string& file, const SoakState& state) {
  const std::string fresh = file + ".new";
  std::ofstream out(fresh);
  out << kFirstWord << state.campaign << '\n';
  out << fmt::format("{}{} {} {} {} {} {} {}\n", kNumbers, state.next, state.runs, state.failed, state.faultsFired,
                     state.virtualTime, state.milliseconds, state.code);
  for (const std::string& finding : state.findings) out << finding << '\n';
  out << kLastLine << '\n';
  out.close();
  std::error_code error;
  if (out) std::filesystem::rename(fresh, file, error);
  return out.good() && !error;
}

}  // namespace lab
