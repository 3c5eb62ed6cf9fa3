# Locates the Debian-packaged dependencies. scripts/install-deps.sh installs them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(SQLite3 REQUIRED)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)

find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)

# valijson ships headers only; install-deps.sh unpacks them under .deps/.
find_path(VALIJSON_INCLUDE_DIR valijson/validator.hpp
          HINTS "${PROJECT_SOURCE_DIR}/.deps/valijson/include" REQUIRED)
