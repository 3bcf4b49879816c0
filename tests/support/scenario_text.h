// Scenarios that stand as text in a test.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "lab/run/run.h"

namespace tests {

// "01 ab" or "01ab".
std::vector<std::uint8_t> Bytes(const std::string& hex);
// The path of a file with that text, among the test's temporary files.
std::string WriteFile(const std::string& name, const std::string& text);
// What reading that scenario file complains about, without the file's name; empty when it reads well.
std::string ComplaintAbout(const std::string& path);
// What reading the text as a scenario complains about, without the file's name; empty when it reads well.
std::string Complaint(const std::string& text);
// Runs the text as a scenario; its file is called text.toml.
lab::RunReport Play(const std::string& text, const lab::RunOptions& options = {});

}  // namespace tests
