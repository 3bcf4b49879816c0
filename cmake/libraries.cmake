# What Debian ships and everything above the driver calls.
find_library(TOMLPLUSPLUS_LIBRARY tomlplusplus REQUIRED)
add_library(tomlplusplus INTERFACE IMPORTED GLOBAL)
target_link_libraries(tomlplusplus INTERFACE ${TOMLPLUSPLUS_LIBRARY})
target_compile_definitions(tomlplusplus INTERFACE TOML_HEADER_ONLY=0 TOML_SHARED_LIB=1)

# Options of the sanitizers' run time; linked into every program, harmless without sanitizers.
add_library(sanitizer_options OBJECT ${CMAKE_CURRENT_LIST_DIR}/sanitizer_options.cpp)
