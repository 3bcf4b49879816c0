# Compiler flags of every target. WCHAR is 16 bits wide everywhere: objects with and without it link silently and disagree.
add_compile_options(-fshort-wchar -Wall -Wextra -Wconversion -Wshadow -Werror -Wno-missing-field-initializers)

option(KIVUSB4_SANITIZE "address and undefined-behaviour sanitizers" OFF)
option(KIVUSB4_WINDOWS "compile check of the driver against the published headers" OFF)
option(KIVUSB4_TESTS "the test programs" OFF)
option(KIVUSB4_BENCH "the benchmarks" OFF)
option(KIVUSB4_COVERAGE "count the lines and branches that run" OFF)

if(KIVUSB4_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(KIVUSB4_COVERAGE)
  add_compile_options(--coverage -fprofile-update=single)
  add_link_options(--coverage)
endif()

# ccache sees through a precompiled header only when the preprocessor leaves its mark.
add_compile_options($<$<NOT:$<BOOL:${KIVUSB4_WINDOWS}>>:-fpch-preprocess>)

# The driver's dialect.
set(KIVUSB4_DRIVER_FLAGS -fno-exceptions -fno-rtti -fno-threadsafe-statics)
