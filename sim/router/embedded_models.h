// The model files of models/, compiled into the library so that no program needs the source tree.
#pragma once
#include <span>
#include <string_view>

namespace sim {

struct EmbeddedModel {
  std::string_view name;  // file name without its suffix
  std::string_view text;
};

std::span<const EmbeddedModel> EmbeddedModels();

}  // namespace sim
