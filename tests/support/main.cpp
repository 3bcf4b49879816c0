// Main of every test program: the test framework's own options, and --seeds A..B (support/seeds.h).
#include <gtest/gtest.h>

int main(int argumentCount, char** arguments) {
  testing::InitGoogleTest(&argumentCount, arguments);
  return RUN_ALL_TESTS();
}
