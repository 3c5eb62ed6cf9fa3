#!/usr/bin/env bash
# demo.sh: installs the dependencies, builds the setvault tool and walks
# through a day of administration on a store in the working tree
# (demo-store/, recreated on each run). Every command is printed before it
# runs, ready to paste; the demo fails when one ends with another exit status
# than the one its "# exits N" comment announces.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${root}/build"

say() { printf '\n== %s\n' "$*"; }

say "Installing the Debian packages the build needs (scripts/install-deps.sh)"
"${root}/scripts/install-deps.sh" 2>&1 | sed 's/^/   | /'
say "Configuring the build in ${build_dir}"
cmake -S "${root}" -B "${build_dir}" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo 2>&1 |
  grep -E '^-- (Build files|Configuring done)' | sed 's/^/   | /'
say "Building the library and the setvault tool"
cmake --build "${build_dir}" --target setvault_tool -j "$(nproc)" 2>&1 | sed 's/^/   | /'

store_dir="${root}/demo-store"
rm -rf "${store_dir}"
mkdir -p "${store_dir}"
cd "${store_dir}"
printf '["korvo.system.*"]\n' > allowlist.json

say "The walk-through: paste these lines into a shell to do the same"
failures=0
while IFS= read -r -u 3 line; do
  case "${line}" in
    '') ;;
    '#'*) printf '\n%s\n' "${line}" ;;
    *)
      printf '$ %s\n' "${line}"
      expected=0
      if [[ "${line}" =~ \#\ exits\ ([0-9]+) ]]; then expected="${BASH_REMATCH[1]}"; fi
      status=0
      eval "${line}" || status=$?
      if [ "${status}" -ne 0 ]; then printf '(exit status %d)\n' "${status}"; fi
      if [ "${status}" -ne "${expected}" ]; then
        printf '!! expected exit status %d\n' "${expected}"
        failures=$((failures + 1))
      fi
      ;;
  esac
done 3<<DEMO
# The tool reads these variables; --store and --schema-db do the same per command.
export PATH="${build_dir}/tools:\$PATH"
export SETVAULT_STORE="${store_dir}/store.db" SETVAULT_SCHEMA_DB="${store_dir}/schema.db"
export SETVAULT_NOTIFY_DIR="${store_dir}" SETVAULT_NOTIFY_ALLOWLIST="${store_dir}/allowlist.json"
# A mistyped store is an error, never an empty store.
setvault get korvo system host  # exits 1
# Load the example type definitions and look at one.
setvault schema load ${root}/examples/schemas
setvault schema list | head -c 300; echo
setvault schema show korvo net vswitch
# Set and get: the host identity; vital members go to their own column.
setvault set korvo system host '{"hostname": "host-lab-01", "systemUuid": "4c4c4544-0042-3510"}'
setvault get korvo system host --effective --origin
# Virtual switches are instances, named by their id; update merges.
setvault set korvo net vswitch vs0 '{"mtu": 9000, "uplinks": ["eth0", "eth1"]}'
setvault update korvo net vswitch vs0 '{"portgroups": [{"name": "vm", "vlanId": 20}]}'
setvault set-instances korvo net vswitch '{"vs1": {"mtu": 1500}, "vs2": {"mtu": 9000}}'
setvault instances korvo net vswitch --filter '{"mtu": 9000}'
setvault ids korvo net vswitch
# A validation failure lists every finding; nothing is written.
setvault set korvo net vswitch vs3 '{"mtu": 99999, "speed": "fast"}'  # exits 4
setvault validate korvo system host '{"hostname": 42}'  # exits 4
# A reboot-required change is staged, and becomes current once the boot confirms it.
setvault kernel-options update '{"logLevel": "debug", "hugePages": 512}'
setvault get korvo hvcore options  # exits 3
setvault boot-status korvo hvcore options
setvault get korvo hvcore options
# Export, edit, and compare the edited document with the store.
setvault export
setvault export korvo.net.vswitch > vswitch.json
sed -i 's/"mtu":1500/"mtu":9000/; s/{"mtu":9000,"name":"vs2"}/{"mtu":9000,"name":"vs4"}/' vswitch.json
setvault diff vswitch.json
setvault import vswitch.json --dry-run
# Deletes say how many objects they removed.
setvault delete-instances korvo net vswitch --filter '{"mtu": 1500}'
setvault delete korvo net vswitch vs1  # exits 3
# Change notifications: watch stands in for the management daemon.
setvault kv set NOTIFY_NEXD true
setvault watch --count 1 --timeout 30 > watch.log &
until [ -S trsLocalSocketNexdNotifyMirk ]; do sleep 0.1; done
setvault set korvo system host '{"hostname": "host-lab-02"}' > /dev/null
wait \$!; cat watch.log
DEMO

if [ "${failures}" -ne 0 ]; then
  say "${failures} command(s) ended with an unexpected exit status"
  exit 1
fi
say "Done: the store is in ${store_dir}"
