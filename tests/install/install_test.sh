#!/usr/bin/env bash
# install_test.sh BUILD_DIR CONSUMER_SOURCE_DIR
set -euo pipefail
build_dir="$1"
consumer_src="$2"
work="$(mktemp -d)"
trap 'rm -rf "${work}"' EXIT
prefix="${work}/prefix"

"${CMAKE_COMMAND}" --install "${build_dir}" --prefix "${prefix}" >/dev/null
lib="$(find "${prefix}" -name 'libsetvault.so.*.*' | head -n 1)"
test -n "${lib}" || { echo "FAIL: no versioned libsetvault installed"; exit 1; }

soname="$(objdump -p "${lib}" | awk '/SONAME/ {print $2}')"
case "${soname}" in
  libsetvault.so.[0-9]*) ;;
  *) echo "FAIL: unexpected SONAME '${soname}'"; exit 1 ;;
esac

# Every strongly defined function or object must belong to the library's
# namespaces (weak symbols are standard-library template instances).
leaked="$(nm -D --defined-only -C "${lib}" | awk '$2 ~ /^[TDBR]$/ {$1=""; $2=""; print}' \
  | grep -v -E '^ +(KorvoSetvault::|Mandrel::|typeinfo|vtable|VTT|__odr_asan)' || true)"
if [ -n "${leaked}" ]; then
  echo "FAIL: symbols outside the public API are exported:"; echo "${leaked}" | head -n 20; exit 1
fi

flags=()
if [ "${SANITIZE:-OFF}" = "ON" ]; then flags=(-DCMAKE_CXX_FLAGS=-fsanitize=address,undefined); fi

"${CMAKE_COMMAND}" -S "${consumer_src}" -B "${work}/cmake-build" -G Ninja \
  -DCMAKE_PREFIX_PATH="${prefix}" -DCMAKE_CXX_COMPILER="${CXX}" "${flags[@]}" >/dev/null
"${CMAKE_COMMAND}" --build "${work}/cmake-build" >/dev/null
LD_LIBRARY_PATH="${prefix}/lib:${prefix}/lib64:${LD_LIBRARY_PATH:-}" "${work}/cmake-build/consumer"

pc_dir="$(dirname "$(find "${prefix}" -name setvault.pc | head -n 1)")"
cflags="$(PKG_CONFIG_PATH="${pc_dir}" pkg-config --cflags setvault)"
libs="$(PKG_CONFIG_PATH="${pc_dir}" pkg-config --libs setvault)"
# shellcheck disable=SC2086
"${CXX}" -std=c++17 ${flags[@]/-DCMAKE_CXX_FLAGS=/} ${cflags} "${consumer_src}/consumer.cc" \
  -o "${work}/pc-consumer" ${libs}
LD_LIBRARY_PATH="${prefix}/lib:${prefix}/lib64:${LD_LIBRARY_PATH:-}" "${work}/pc-consumer"
echo "install test passed"
