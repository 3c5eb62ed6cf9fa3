#!/usr/bin/env bash
# package-test.sh [BUILD_DIR]: builds the Debian package from BUILD_DIR
# (default build/), installs it and checks what a user of the package gets: the
# tool runs and stores data, a program builds against the library through
# pkg-config and through find_package, the manual page and bash completion are
# in place. As root the package is installed with dpkg into the machine and
# removed afterwards; otherwise it is unpacked into a directory and used there.
# Either way the tool is also run from an unpacked copy in an unrelated
# directory, which it must find its library from.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
deb="$("${root}/scripts/package.sh" "${1:-${root}/build}" | tail -n 1)"
version="$(dpkg-deb -f "${deb}" Version)"
work="$(mktemp -d)"
installed=0
cleanup() {
  if [ "${installed}" = 1 ]; then dpkg --purge setvault >/dev/null; fi
  rm -rf "${work}"
}
trap cleanup EXIT
fail() { echo "package test FAILED: $*" >&2; exit 1; }
step() { echo "-- $*"; }

step "the package holds the library, headers, CMake and pkg-config files, tool, manual page and completion"
listing="$(dpkg-deb -c "${deb}" | awk '{print $6}' | sed 's|^\./|/|')"
for pattern in '/usr/lib/.*libsetvault\.so\.[0-9]+$' '/usr/include/setvault/setvault\.h$' \
  '/usr/lib/.*cmake/Setvault/SetvaultConfig\.cmake$' '/usr/lib/.*pkgconfig/setvault\.pc$' \
  '/usr/bin/setvault$' '/usr/share/man/man1/setvault\.1\.gz$' \
  '/usr/share/bash-completion/completions/setvault$'; do
  grep -Eq "${pattern}" <<<"${listing}" || fail "nothing in the package matches ${pattern}"
done

step "an unpacked copy in an unrelated directory finds its own library"
relocated="${work}/some/where"
mkdir -p "${relocated}"
dpkg -x "${deb}" "${relocated}"
resolved="$(env -u LD_LIBRARY_PATH ldd "${relocated}/usr/bin/setvault" | awk '/libsetvault/ {print $3}')"
[[ "${resolved}" == "${relocated}/"* ]] || fail "the tool resolves libsetvault to '${resolved}'"
env -u LD_LIBRARY_PATH "${relocated}/usr/bin/setvault" --version | grep -qF "${version}" \
  || fail "the unpacked tool does not report version ${version}"

if [ "$(id -u)" -eq 0 ]; then
  step "dpkg -i"
  dpkg -i "${deb}" >/dev/null
  installed=1
  prefix=/usr
else
  step "not root: using the unpacked copy instead of installing"
  prefix="${relocated}/usr"
fi
libdir="$(dirname "$(find "${prefix}/lib" -name libsetvault.so.0 -print -quit)")"
tool="${prefix}/bin/setvault"

step "the installed tool runs: version, schema load, set, get"
"${tool}" --version | grep -qF "${version}" || fail "'setvault --version' does not report ${version}"
store=(--store "${work}/store.db" --schema-db "${work}/schema.db")
"${tool}" "${store[@]}" schema load "${prefix}/share/doc/setvault/examples/schemas" >/dev/null
"${tool}" "${store[@]}" set korvo system host '{"hostname": "package-test"}' >/dev/null
"${tool}" "${store[@]}" get korvo system host | grep -q '"package-test"' \
  || fail "get does not show the value set"

step "the manual page and the completion are installed and describe the tool"
zcat "${prefix}/share/man/man1/setvault.1.gz" | grep -q '^\.SS "setvault schema load"' \
  || fail "the manual page lacks the schema load command"
completed="$(bash -c 'source "$1"; COMP_WORDS=(setvault schema ""); COMP_CWORD=2; _setvault
                      echo "${COMPREPLY[*]}"' _ "${prefix}/share/bash-completion/completions/setvault")"
[[ " ${completed} " == *" load "* ]] || fail "completing 'setvault schema' offers '${completed}'"

step "a program builds against the installed library through find_package and pkg-config"
consumer="${root}/tests/install/consumer"
cmake -S "${consumer}" -B "${work}/consumer" -G Ninja -DCMAKE_PREFIX_PATH="${prefix}" >/dev/null
cmake --build "${work}/consumer" >/dev/null
LD_LIBRARY_PATH="${libdir}" "${work}/consumer/consumer" >/dev/null
pc_flags="$(PKG_CONFIG_PATH="$(dirname "$(find "${prefix}/lib" -name setvault.pc -print -quit)")" \
  pkg-config --cflags --libs setvault)"
# shellcheck disable=SC2086  # the flags are a list of words
c++ -std=c++17 "${consumer}/consumer.cc" -o "${work}/pc-consumer" ${pc_flags}
LD_LIBRARY_PATH="${libdir}" "${work}/pc-consumer" >/dev/null

if [ "${installed}" = 1 ]; then
  step "dpkg --purge"
  dpkg --purge setvault >/dev/null
  installed=0
  [ ! -e /usr/bin/setvault ] || fail "/usr/bin/setvault is still there after removal"
fi
echo "package test passed (${deb##*/})"
