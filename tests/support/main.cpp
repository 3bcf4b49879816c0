// Main of every test program: the test framework's own options, and --seeds A..B (seeds.h).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/seeds.h"

int main(int argumentCount, char** arguments) {
  testing::InitGoogleTest(&argumentCount, arguments);
  for (int i = 1; i + 1 < argumentCount; ++i) {
    if (std::string(arguments[i]) == "--seeds" && !tests::ParseSeedRange(arguments[i + 1])) {
      std::fprintf(stderr, "--seeds wants A..B, not %s\n", arguments[i + 1]);
      return 2;
    }
  }
  return RUN_ALL_TESTS();
}
