#!/bin/sh
# Builds and runs the benchmark suite on two cores and writes docs/benchmarks.md: the
# library beside its hand-written floors (floor_table: medians of interleaved repetitions),
# the medians of the Google Benchmark programs and the instructions and system calls per
# call of the same operations (bench/instruction_counts.sh, when valgrind is installed).
# Takes a few minutes.
#
# Usage: bench/run.sh [BUILD_DIR (default build)] [REPETITIONS (default 9, at least 7)]
set -eu
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-"$source_dir/build"}
repetitions=${2:-9}
out="$source_dir/docs/benchmarks.md"
programs="store_read_bench store_write_bench schema_store_bench db_store_bench json_validator_bench"

if [ ! -f "$build_dir/build.ninja" ]; then
  cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
# shellcheck disable=SC2086
ninja -C "$build_dir" -j2 floor_table $programs

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Both cores: the benchmarks are single-threaded, the second core takes the rest.
"$build_dir/bench/floor_table" "$repetitions" > "$tmp/floor.md"

for program in $programs; do
  "$build_dir/bench/$program" --benchmark_repetitions="$repetitions" \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
    --benchmark_min_time=0.2 \
    --benchmark_format=csv 2>/dev/null | grep '_median"' > "$tmp/$program.csv" || true
done

# Instruction counts, after the timed runs so that callgrind does not share their cores.
if command -v valgrind >/dev/null; then
  "$source_dir/bench/instruction_counts.sh" "$build_dir" > "$tmp/counts.md"
else
  echo "(valgrind is not installed)" > "$tmp/counts.md"
fi

{
  echo "# Benchmarks"
  echo
  echo "Written by \`bench/run.sh\` on $(date -u '+%Y-%m-%d %H:%M UTC')."
  echo
  echo "Machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), $(nproc) cores, $(awk '/MemTotal/ {printf "%.0f GiB", $2 / 1048576}' /proc/meminfo), $(uname -sr), SQLite $(sqlite3 --version 2>/dev/null | cut -d' ' -f1 || echo '?')."
  echo "Load average when the run started: $(cut -d' ' -f1-3 /proc/loadavg) (the machine may be shared:"
  echo "wall times are noisy, and the ratios, taken from interleaved runs, are the figures to read)."
  echo
  echo "## The library beside its floor"
  echo
  echo "The floor of an operation is the same work written by hand on the sqlite3 C API with"
  echo "statements prepared once, the same RapidJSON parsing, merging and serialization, and for"
  echo "writes the same compiled validator and split into value columns (\`bench/floor_table.cc\`)."
  echo "Each repetition times the library and its floor one after the other in the same process"
  echo "(the order alternating); the figures are medians per operation."
  echo
  cat "$tmp/floor.md"
  echo
  echo "## Google Benchmark programs (medians, real time)"
  echo
  echo "| Benchmark | Time | Unit |"
  echo "|---|---:|---|"
  for program in $programs; do
    # CSV columns: name, iterations, real_time, cpu_time, time_unit, ...
    awk -F, '{ gsub(/"/, "", $1); sub(/_median$/, "", $1); printf "| %s | %.2f | %s |\n", $1, $3, $5 }' \
      "$tmp/$program.csv"
  done
  echo
  echo "## Instruction and system call counts"
  echo
  echo "Counted by \`bench/instruction_counts.sh\`: each operation and its floor on a store of"
  echo "1,000 instances and the host object, callgrind's inclusive instruction count of the calls"
  echo "(200 per side, whole lists twice) and strace's system calls of 2N calls less those of N."
  echo "Unlike the times above, these counts do not depend on the machine's load."
  echo
  cat "$tmp/counts.md"
  if [ -f "$source_dir/docs/benchmark-notes.md" ]; then
    echo
    cat "$source_dir/docs/benchmark-notes.md"
  fi
} > "$out"
echo "wrote $out"
