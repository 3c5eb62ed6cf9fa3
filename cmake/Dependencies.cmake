# Locates the Debian-packaged dependencies. scripts/install-deps.sh installs them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(SQLite3 REQUIRED)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
# RE2: the linear-time engine behind "pattern" and "patternProperties".
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)

find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)

# valijson ships headers only; install-deps.sh unpacks them under .deps/.
find_path(VALIJSON_INCLUDE_DIR valijson/validator.hpp
          HINTS "${PROJECT_SOURCE_DIR}/.deps/valijson/include" REQUIRED)
