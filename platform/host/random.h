// Random streams by name: every stream is derived from the one root seed, so that a new draw in one place moves no
// other.
#pragma once
#include <cstdint>
#include <string_view>

namespace platform {

// FNV-1a; the one string hash that may reach a decision.
constexpr std::uint64_t HashText(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325u;
  for (char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
  return hash;
}

// A name with its hash, computed by the compiler where the name is a literal.
struct HashedName {
  std::string_view text;
  std::uint64_t hash;
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is a name.
  consteval HashedName(const char* literal) : text(literal), hash(HashText(literal)) {}
  constexpr explicit HashedName(std::string_view name) : text(name), hash(HashText(name)) {}
};

// SplitMix64: tiny, seedable from any number, the same on every compiler.
class RandomStream {
 public:
  explicit RandomStream(std::uint64_t seed = 0) : state_(seed) {}
  RandomStream(std::uint64_t rootSeed, std::string_view name) : state_(rootSeed ^ HashText(name)) {}

  std::uint64_t Next() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15u);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  }
  // Uniform in 0 .. bound-1; bound 0 gives 0.
  std::uint64_t Below(std::uint64_t bound) { return bound == 0 ? 0 : Next() % bound; }
  // Uniform in low .. high, both included.
  std::int64_t Between(std::int64_t low, std::int64_t high) {
    return low + static_cast<std::int64_t>(Below(static_cast<std::uint64_t>(high - low) + 1));
  }
  // True in `numerator` of `denominator` cases.
  bool Chance(std::uint64_t numerator, std::uint64_t denominator) { return Below(denominator) < numerator; }

 private:
  std::uint64_t state_;
};

}  // namespace platform
