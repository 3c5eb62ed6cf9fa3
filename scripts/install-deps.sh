#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test and benchmark.
# Safe to run repeatedly. Needs root (or sudo) on a Debian 12 machine.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "${here}/.." && pwd)"

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi

packages=(
  build-essential cmake ninja-build pkg-config clang
  rapidjson-dev libsqlite3-dev sqlite3 uuid-dev libcli11-dev libre2-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  help2man gcovr valgrind strace
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

export DEBIAN_FRONTEND=noninteractive
if [ "${#missing[@]}" -gt 0 ] || [ ! -f "${root}/.deps/valijson/include/valijson/validator.hpp" ]; then
  "${sudo_cmd[@]}" apt-get update -qq
fi
if [ "${#missing[@]}" -gt 0 ]; then
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# valijson is header-only, but its Debian package depends on several unrelated
# JSON libraries and Qt. Only its headers are needed, so the package is unpacked
# into the work tree instead of installed.
if [ ! -f "${root}/.deps/valijson/include/valijson/validator.hpp" ]; then
  tmp="$(mktemp -d)"
  trap 'rm -rf "${tmp}"' EXIT
  (cd "${tmp}" && apt-get download -qq libvalijson-dev)
  dpkg -x "${tmp}"/libvalijson-dev_*.deb "${tmp}/x"
  mkdir -p "${root}/.deps/valijson"
  rm -rf "${root}/.deps/valijson/include"
  cp -r "${tmp}/x/usr/include" "${root}/.deps/valijson/include"
fi
echo "dependencies installed"
