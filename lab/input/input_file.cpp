// Only regular files and standard input are read; anything else is named as what it is.
#include "lab/input/input_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace lab {
namespace {

constexpr std::size_t kMostProblems = 100;
constexpr std::size_t kChunk = 64 * 1024;

std::string Line(std::string_view file, InputPosition at, std::string_view message) {
  return fmt::format("{}:{}:{}: {}", file, std::max(at.line, 1u), std::max(at.column, 1u),
                     message.substr(0, message.find('\n')));
}

// Why a name stands for no file that can be read; empty when it does.
const char* Obstacle(std::filesystem::file_type type) {
  switch (type) {
    case std::filesystem::file_type::regular:
      return "";
    case std::filesystem::file_type::not_found:
      return "no such file";
    case std::filesystem::file_type::directory:
      return "is a directory, not a file";
    case std::filesystem::file_type::fifo:
      return "is a pipe, not a file (- reads standard input)";
    case std::filesystem::file_type::socket:
      return "is a socket, not a file";
    case std::filesystem::file_type::character:
    case std::filesystem::file_type::block:
      return "is a device, not a file (- reads standard input)";
    default:
      return "cannot be read";
  }
}

}  // namespace

InputError::InputError(std::string_view file, InputPosition at, std::string_view message)
    : std::runtime_error(Line(file, at, message)) {}

void InputProblems::Add(InputPosition at, InputPosition order, std::string_view message) {
  problems_.push_back({order, Line(file_, at, message)});
}

void InputProblems::Throw() const {
  std::vector<Problem> sorted = problems_;
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  if (sorted.empty()) return;
  std::string lines;
  for (std::size_t i = 0; i < std::min(sorted.size(), kMostProblems); ++i) {
    lines += (i == 0 ? "" : "\n") + sorted[i].line;
  }
  if (sorted.size() > kMostProblems) lines += fmt::format("\n{}: {} more errors", file_, sorted.size() - kMostProblems);
  throw InputError(lines);
}

std::string InputName(const std::string& file) {
  return file == kStandardInput ? "<stdin>" : file;
}

bool SameFile(const std::string& first, const std::string& second) {
  std::error_code error;
  if (std::filesystem::exists(first, error) && !std::filesystem::is_regular_file(first, error)) return false;
  if (std::filesystem::equivalent(first, second, error)) return true;
  return std::filesystem::weakly_canonical(first, error) == std::filesystem::weakly_canonical(second, error);
}

std::string ReadInput(const std::string& file, std::size_t mostBytes) {
  std::ifstream opened;
  if (file != kStandardInput) {
    std::error_code error;
    const std::string obstacle = Obstacle(std::filesystem::status(file, error).type());
    if (!obstacle.empty()) throw InputError(file, {}, obstacle);
    opened.open(file, std::ios::binary);
    if (!opened) throw InputError(file, {}, "cannot be read");
  }
  std::istream& in = file == kStandardInput ? std::cin : opened;
  std::string text, chunk(kChunk, '\0');
  while (in && text.size() <= mostBytes) {
    in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
    text.append(chunk, 0, static_cast<std::size_t>(in.gcount()));
  }
  if (in.bad()) throw InputError(InputName(file), {}, "cannot be read");
  if (text.size() > mostBytes) {
    throw InputError(InputName(file), {}, fmt::format("has more than {} bytes, which is the limit", mostBytes));
  }
  return text;
}

}  // namespace lab
