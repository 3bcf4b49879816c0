#include "tests/support/scenario_text.h"

#include <gtest/gtest.h>

#include <fstream>

#include "lab/input/toml_reader.h"
#include "lab/scenario/scenario.h"

namespace tests {

std::string WriteFile(const std::string& name, const std::string& text) {
  const std::string path = testing::TempDir() + name;
  std::ofstream(path) << text;
  return path;
}

std::string Complaint(const std::string& text) {
  const std::string path = WriteFile("bad.toml", text);
  try {
    lab::ReadScenario(path);
  } catch (const lab::InputError& error) {
    const std::string what = error.what();
    return what.starts_with(path + ":") ? what.substr(path.size() + 1) : what;
  }
  return "";
}

lab::RunReport Play(const std::string& text, const lab::RunOptions& options) {
  return lab::RunScenario(lab::ReadScenario(WriteFile("text.toml", text)), options);
}

}  // namespace tests
