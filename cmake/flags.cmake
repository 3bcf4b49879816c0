# Compiler flags of every target. WCHAR is 16 bits wide everywhere: objects with and without it link silently and disagree.
add_compile_options(-fshort-wchar -Wall -Wextra -Wconversion -Wshadow -Werror -Wno-missing-field-initializers)

option(KIVUSB4_SANITIZE "address and undefined-behaviour sanitizers" OFF)
option(KIVUSB4_WINDOWS "compile check of the driver against the published headers" OFF)
option(KIVUSB4_TESTS "the test programs" OFF)
option(KIVUSB4_BENCH "the benchmarks" OFF)
option(KIVUSB4_COVERAGE "count the lines and branches that run" OFF)
option(KIVUSB4_UNITY "compile several sources at once: a third of the time from nothing" ON)
option(KIVUSB4_FUZZ "the fuzzers with libFuzzer; wants clang" OFF)

set(CMAKE_UNITY_BUILD ${KIVUSB4_UNITY})
set(CMAKE_UNITY_BUILD_BATCH_SIZE 8)

if(KIVUSB4_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  add_compile_definitions(KIVUSB4_SANITIZED=1)
endif()
if(KIVUSB4_COVERAGE)
  add_compile_options(--coverage -fprofile-update=single)
  add_link_options(--coverage)
endif()

if(KIVUSB4_FUZZ)
  # The project's warnings are those of its first compiler; this one has others. It tells of its address sanitizer in a
  # way of its own.
  add_compile_options(-Wno-error)
  add_compile_definitions(__SANITIZE_ADDRESS__=1)
endif()

# ccache sees through a precompiled header only when the preprocessor leaves its mark.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT KIVUSB4_WINDOWS)
  add_compile_options(-fpch-preprocess)
endif()

# The driver's dialect.
set(KIVUSB4_DRIVER_FLAGS -fno-exceptions -fno-rtti -fno-threadsafe-statics)
if(KIVUSB4_FUZZ)
  list(APPEND KIVUSB4_DRIVER_FLAGS -fsanitize=fuzzer-no-link)  # what the fuzzer looks for new paths in
endif()
