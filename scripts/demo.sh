#!/usr/bin/env bash
# demo.sh: installs the dependencies, builds, and runs the setvault tool on a
# store in the working tree (demo-store/, recreated on each run).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"${root}/scripts/install-deps.sh" >/dev/null
"${root}/scripts/build.sh" "${root}/build" >/dev/null

store_dir="${root}/demo-store"
rm -rf "${store_dir}"
export SETVAULT_STORE="${store_dir}/current-store.db"
export SETVAULT_SCHEMA_DB="${store_dir}/schema-store.db"
setvault="${root}/build/tools/setvault"

step() { printf '\n$ setvault %s\n' "$*"; "${setvault}" "$@" || printf '(exit status %d)\n' "$?"; }

echo "== libsetvault demo: store in ${store_dir}"
step schema load "${root}/examples/schemas"
step set korvo system host '{"hostname": "host-lab-01", "ntp": {"enabled": true, "servers": ["10.0.0.1"]}}'
step set-vital korvo system host '{"systemUuid": "4c4c4544-0042-3510-8052-b4c04f4e3732"}'
step get korvo system host
step set korvo net vswitch --instance vs0 '{"mtu": 9000, "uplinks": ["eth0", "eth1"], "portgroups": [{"name": "mgmt", "vlanId": 10}]}'
step update korvo net vswitch --instance vs0 '{"portgroups": [{"name": "vm", "vlanId": 20}], "teaming": {"policy": "failover"}}'
step set-instances korvo net vswitch '{"vs1": {"mtu": 1500}, "vs2": {"mtu": 9000}}'
step instances korvo net vswitch --filter '{"mtu": 9000}'
step revisions korvo net vswitch
step set korvo net vswitch --instance vs3 '{"mtu": 99999, "speed": "fast"}'
step validate korvo system host '{"hostname": 42}'
step delete-instances korvo net vswitch --filter '{"mtu": 1500}'
step instance-ids korvo net vswitch
step delete korvo net vswitch vs2
step get korvo net vswitch vs2
echo
echo "== the example program"
"${root}/build/examples/setvault_example_objects"
