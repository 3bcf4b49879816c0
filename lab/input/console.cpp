// Escape sequences live here and nowhere else.
#include "lab/input/console.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace lab {
namespace {

bool WantsColor(ColorMode mode) {
  if (mode != ColorMode::Auto) return mode == ColorMode::Always;
  const char* refused = std::getenv("NO_COLOR");
  return (refused == nullptr || *refused == '\0') && isatty(STDOUT_FILENO) == 1;
}

const char* Escape(Style style) {
  switch (style) {
    case Style::Good:
      return "\x1b[32m";
    case Style::Bad:
      return "\x1b[1;31m";
    case Style::Faint:
      return "\x1b[2m";
    case Style::Strong:
      return "\x1b[1m";
    case Style::Plain:
      break;
  }
  return "";
}

}  // namespace

Console::Console(ColorMode mode) : color_(WantsColor(mode)) {}

void Console::Out(std::string_view text) const {
  fmt::print(stdout, "{}\n", text);
}

void Console::Message(std::string_view text) const {
  std::fflush(stdout);
  fmt::print(stderr, "{}\n", text);
}

std::string Console::Paint(Style style, std::string_view text) const {
  if (!color_ || style == Style::Plain) return std::string(text);
  return fmt::format("{}{}\x1b[0m", Escape(style), text);
}

std::string Printable(std::string_view bytes) {
  std::string text;
  for (char c : bytes.substr(0, bytes.find('\0'))) {
    text += c >= 0x20 && c < 0x7F ? std::string(1, c) : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
  }
  return text;
}

}  // namespace lab
