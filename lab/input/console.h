// Text for a terminal: data on standard output, messages on standard error, colour only where it is wanted.
#pragma once
#include <string>
#include <string_view>

namespace lab {

enum class ColorMode { Auto, Always, Never };

enum class Style { Plain, Good, Bad, Faint, Strong };

class Console {
 public:
  explicit Console(ColorMode mode = ColorMode::Auto);

  void Out(std::string_view text) const;      // one line of data
  void Message(std::string_view text) const;  // one line for whoever watches
  // The text in its style for standard output; unchanged without colour.
  std::string Paint(Style style, std::string_view text) const;

 private:
  bool color_ = false;
};

// Text up to its NUL; what a terminal would obey stands as \xNN.
std::string Printable(std::string_view bytes);

}  // namespace lab
