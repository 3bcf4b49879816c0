#include "tests/support/scenario_text.h"

#include <gtest/gtest.h>

#include <fstream>

#include "lab/input/toml_reader.h"
#include "lab/scenario/scenario.h"

namespace tests {

std::vector<std::uint8_t> Bytes(const std::string& hex) {
  std::vector<std::uint8_t> bytes;
  std::string digits;
  for (char c : hex) {
    if (c != ' ') digits += c;
  }
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::string WriteFile(const std::string& name, const std::string& text) {
  const std::string path = testing::TempDir() + name;
  std::ofstream(path) << text;
  return path;
}

std::string ComplaintAbout(const std::string& path) {
  std::string what;
  try {
    lab::ReadScenario(path);
  } catch (const lab::InputError& error) {
    what = error.what();
  }
  for (std::size_t at = 0; (at = what.find(path + ":", at)) != std::string::npos;) what.erase(at, path.size() + 1);
  return what;
}

std::string Complaint(const std::string& text) {
  return ComplaintAbout(WriteFile("bad.toml", text));
}

lab::RunReport Play(const std::string& text, const lab::RunOptions& options) {
  return lab::RunScenario(lab::ReadScenario(WriteFile("text.toml", text)), options);
}

}  // namespace tests
