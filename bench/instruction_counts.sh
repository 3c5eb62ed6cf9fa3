#!/bin/sh
# Prints, as a Markdown table, the instructions per call of each store operation and of its
# hand-written floor (bench/instruction_counts.cc), counted by callgrind as the inclusive
# cost of the functions that make the counted calls, and, when strace is installed, the
# system calls per call: the difference between runs of 2N and N calls, divided by N, so
# that setting up the store and the warm-up cancel out. Unlike wall times, these counts do
# not depend on the machine's load. Needs valgrind; takes a few minutes.
#
# Usage: bench/instruction_counts.sh [BUILD_DIR (default build)]
set -eu
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-"$source_dir/build"}
calls=200       # per side for single objects
list_calls=2    # per side for whole lists of 1,000 objects

if [ ! -f "$build_dir/build.ninja" ]; then
  cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
fi
ninja -C "$build_dir" -j2 instruction_counts >&2
program="$build_dir/bench/instruction_counts"

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Inclusive instructions of the function named $2 in the callgrind output $1.
inclusive() {
  callgrind_annotate --inclusive=yes --threshold=100 --auto=no "$1" |
    awk -v name="$2" 'index($0, name "(") { gsub(/,/, "", $1); print $1; exit }'
}

# System calls of `program $1 $2 $3`, as "name count" lines (strace -c summary).
syscalls() {
  strace -f -c -o "$tmp/strace" "$program" "$1" "$2" "$3" >/dev/null
  # Columns: % time, seconds, usecs/call, calls, [errors,] syscall.
  awk 'NR > 2 && $1 !~ /^-/ && $NF != "total" { print $NF, $4 }' "$tmp/strace" | sort
}

# System calls per object of one side: "5.00 (fcntl 2, stat 2, pread64 1)".
syscalls_per_object() {
  syscalls "$1" "$2" "$4" > "$tmp/once"
  syscalls "$1" $(($2 * 2)) "$4" > "$tmp/twice"
  join -a1 -a2 -e 0 -o 0,1.2,2.2 "$tmp/once" "$tmp/twice" |
    awk -v n="$(($2 * $3))" '
      { d = ($3 - $2) / n; total += d }
      d >= 0.05 { parts = parts sep sprintf("%s %.2g", $1, d); sep = ", " }
      END { printf "%.2f", total; if (parts != "") printf " (%s)", parts }'
}

echo "| Operation | Library (instructions/call) | Floor (instructions/call) | Ratio | System calls per call, library / floor |"
echo "|---|---:|---:|---:|---|"
"$program" --list | while IFS="$(printf '\t')" read -r operation objects label; do
  n=$calls
  [ "$objects" -gt 1 ] && n=$list_calls
  valgrind --tool=callgrind --callgrind-out-file="$tmp/callgrind" "$program" "$operation" "$n" \
    >/dev/null 2>&1
  library=$(inclusive "$tmp/callgrind" CountedLibraryCalls)
  floor=$(inclusive "$tmp/callgrind" CountedFloorCalls)
  system_calls="(strace not installed)"
  if command -v strace >/dev/null; then
    system_calls="$(syscalls_per_object "$operation" "$n" "$objects" library) / $(syscalls_per_object "$operation" "$n" "$objects" floor)"
  fi
  awk -v label="$label" -v l="$library" -v f="$floor" -v per="$((n * objects))" -v s="$system_calls" '
    function group(x,   s, out) {  # 14420 -> 14,420
      s = sprintf("%.0f", x)
      for (out = ""; length(s) > 3; s = substr(s, 1, length(s) - 3)) out = "," substr(s, length(s) - 2) out
      return s out
    }
    BEGIN { printf "| %s | %s | %s | %.2f | %s |\n", label, group(l / per), group(f / per), l / f, s }'
done
