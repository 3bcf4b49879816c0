// Strict on digits, generous on spaces.
#include "lab/input/hex_file.h"

#include <fmt/format.h>

#include <cctype>
#include <sstream>

#include "lab/input/input_file.h"

namespace lab {
namespace {

class LineParser {
 public:
  LineParser(const std::string& file, unsigned number, const std::string& text)
      : file_(file), number_(number), text_(text) {}

  HexLine Parse() {
    HexLine line;
    line.line = number_;
    SkipSpaces();
    if (text_.compare(at_, 4, "pdf=") == 0) line.pdf = ParsePdf();
    for (SkipSpaces(); at_ < text_.size(); SkipSpaces()) {
      const unsigned high = Digit();
      if (at_ == text_.size() || text_[at_] == ' ') Fail("a byte needs two hex digits");
      line.bytes.push_back(static_cast<std::uint8_t>(high << 4 | Digit()));
    }
    return line;
  }

 private:
  [[noreturn]] void Fail(const std::string& message) const {
    throw InputError(file_, {number_, static_cast<unsigned>(at_ + 1)}, message);
  }
  void SkipSpaces() {
    while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_]))) ++at_;
  }
  unsigned Digit() {
    const auto c = static_cast<unsigned char>(text_[at_]);
    if (!std::isxdigit(c)) Fail(fmt::format("'{}' is no hex digit", text_[at_]));
    ++at_;
    return static_cast<unsigned>(std::isdigit(c) ? c - '0' : std::tolower(c) - 'a' + 10);
  }
  unsigned ParsePdf() {
    at_ += 4;
    unsigned pdf = 0;
    const std::size_t start = at_;
    while (at_ < text_.size() && std::isdigit(static_cast<unsigned char>(text_[at_])) && at_ < start + 2) {
      pdf = pdf * 10 + static_cast<unsigned>(text_[at_++] - '0');
    }
    if (at_ == start || pdf > 15) Fail("pdf= wants a number in 0 to 15");
    return pdf;
  }

  const std::string& file_;
  unsigned number_;
  const std::string& text_;
  std::size_t at_ = 0;
};

}  // namespace

std::vector<HexLine> ReadHexLines(const std::string& file) {
  std::istringstream in(ReadInput(file));
  const std::string name = InputName(file);
  std::vector<HexLine> lines;
  std::string text;
  for (unsigned number = 1; std::getline(in, text); ++number) {
    text.resize(std::min(text.size(), text.find('#')));
    HexLine line = LineParser(name, number, text).Parse();
    if (line.pdf || !line.bytes.empty()) lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<std::uint32_t> ReadHexWords(const std::string& file) {
  std::vector<std::uint8_t> bytes;
  for (const HexLine& line : ReadHexLines(file)) bytes.insert(bytes.end(), line.bytes.begin(), line.bytes.end());
  if (bytes.empty() || bytes.size() % 4 != 0) {
    throw InputError(InputName(file), {1, 1},
                     fmt::format("{} bytes, which are no whole number of words", bytes.size()));
  }
  std::vector<std::uint32_t> words;
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    words.push_back(static_cast<std::uint32_t>(bytes[i]) << 24 | static_cast<std::uint32_t>(bytes[i + 1]) << 16 |
                    static_cast<std::uint32_t>(bytes[i + 2]) << 8 | bytes[i + 3]);
  }
  return words;
}

}  // namespace lab
