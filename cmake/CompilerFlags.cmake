# Warning and sanitizer flags shared by every target of the project.
add_library(setvault_flags INTERFACE)
target_compile_options(setvault_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow
                       -Wnon-virtual-dtor -Wformat=2 -Wno-format-nonliteral)
if(SETVAULT_SANITIZE)
  target_compile_options(setvault_flags INTERFACE -fsanitize=address,undefined
                         -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(setvault_flags INTERFACE -fsanitize=address,undefined)
endif()

# Every translation unit of the project sees the library's RapidJSON
# configuration (assertions throw, no noexcept) before any RapidJSON header.
target_compile_options(setvault_flags INTERFACE
  "SHELL:-include ${PROJECT_SOURCE_DIR}/include/setvault/rapidjson_config.h")
