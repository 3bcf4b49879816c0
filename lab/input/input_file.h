// Files that a person gives the tool: found, read, and named when they are wrong.
#pragma once
#include <compare>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

// Both count from 1; 0 stands for "at the beginning".
struct InputPosition {
  unsigned line = 0, column = 0;
  auto operator<=>(const InputPosition&) const = default;
};

// Mistakes in a file: what() holds one line `file:line:column: message` for each.
class InputError : public std::runtime_error {
 public:
  InputError(std::string_view file, InputPosition at, std::string_view message);
  explicit InputError(const std::string& lines) : std::runtime_error(lines) {}
};

// The mistakes of one file while it is read.
class InputProblems {
 public:
  explicit InputProblems(std::string file) : file_(std::move(file)) {}

  void Add(InputPosition at, std::string_view message) { Add(at, at, message); }
  // `order`: the position among the others, where that is not the one that is shown.
  void Add(InputPosition at, InputPosition order, std::string_view message);
  std::size_t Count() const { return problems_.size(); }
  // Throws InputError when there are any: in order of position, each once, the first hundred.
  void Throw() const;

 private:
  struct Problem {
    InputPosition order;
    std::string line;
    auto operator<=>(const Problem&) const = default;
  };
  std::string file_;
  std::vector<Problem> problems_;
};

inline constexpr const char* kStandardInput = "-";

// What errors call the file: "<stdin>" for "-".
std::string InputName(const std::string& file);

// The whole file, or standard input for "-". InputError for what is no file, cannot be read, or has more than
// `mostBytes`.
std::string ReadInput(const std::string& file, std::size_t mostBytes = std::string::npos);

// Whether two names stand for one regular file, one that is there or one to be written.
bool SameFile(const std::string& first, const std::string& second);

}  // namespace lab
