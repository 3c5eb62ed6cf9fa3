# Warning and sanitizer flags shared by every target of the project.
add_library(setvault_flags INTERFACE)
target_compile_options(setvault_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow
                       -Wnon-virtual-dtor -Wformat=2 -Wno-format-nonliteral)
if(SETVAULT_SANITIZE)
  target_compile_options(setvault_flags INTERFACE -fsanitize=address,undefined
                         -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(setvault_flags INTERFACE -fsanitize=address,undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(setvault_flags INTERFACE
      "-fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitizer_ignore.txt")
  endif()
endif()

# Every translation unit of the project sees the library's RapidJSON
# configuration (assertions throw, no noexcept) before any RapidJSON header.
target_compile_options(setvault_flags INTERFACE
  "SHELL:-include ${PROJECT_SOURCE_DIR}/include/setvault/rapidjson_config.h")

# Fuzzer builds instrument the library too, so that the fuzzers are guided by
# its coverage.
if(SETVAULT_BUILD_FUZZERS)
  target_compile_options(setvault_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Coverage builds (scripts/coverage.sh) instrument every target for gcov.
option(SETVAULT_COVERAGE "Build with gcov instrumentation for coverage reports" OFF)
if(SETVAULT_COVERAGE)
  target_compile_options(setvault_flags INTERFACE --coverage -O0)
  target_link_options(setvault_flags INTERFACE --coverage)
endif()
