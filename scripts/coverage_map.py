#!/usr/bin/env python3
"""Per-test coverage of src/: which lines and branches each ctest test reaches.

Runs every test of an instrumented build (`-DSETVAULT_COVERAGE=ON`) on its own,
with its gcov counters written under a directory of its own (GCOV_PREFIX), and
reads them back with `gcov --json-format`. The map it writes (JSON: test name to
the lines "src/x.cc:12" and branches "src/x.cc:12:b3" it reached, plus each
test's command) answers two questions:

  * which tests can a fault on a given line make fail (scripts/mutants.py
    --judge reach runs exactly those), and
  * which tests reach nothing that the rest of the suite does not also reach
    (--redundant prints them, largest first, as candidates to drop).

Exception branches are left out, as in scripts/coverage.sh.
"""

import argparse
import concurrent.futures
import glob
import gzip
import json
import os
import re
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def binary_of(test):
    return os.path.basename(test["command"][0])


def list_tests(build_dir, exclude, binaries):
    shown = subprocess.run(["ctest", "--test-dir", build_dir, "--show-only=json-v1"],
                           check=True, capture_output=True, text=True).stdout
    tests = []
    for test in json.loads(shown)["tests"]:
        if not test.get("command"):
            continue  # a test whose binary is not built
        if exclude and re.search(exclude, test["name"]):
            continue
        if binaries and not re.search(binaries, binary_of(test)):
            continue
        props = {p["name"]: p["value"] for p in test.get("properties", [])}
        tests.append({"name": test["name"], "command": test["command"],
                      "env": props.get("ENVIRONMENT", []),
                      "cwd": props.get("WORKING_DIRECTORY", build_dir)})
    return tests


def reached(prefix_dir, build_dir):
    """Lines and branches of src/ counted under one test's GCOV_PREFIX tree."""
    lines, branches = set(), set()
    gcdas = glob.glob(os.path.join(prefix_dir + build_dir, "src", "**", "*.gcda"),
                      recursive=True)
    for gcda in gcdas:
        gcno = os.path.join(build_dir, os.path.relpath(gcda, prefix_dir + build_dir))
        gcno = gcno[:-len(".gcda")] + ".gcno"
        if not os.path.exists(gcda[:-5] + ".gcno"):
            os.symlink(gcno, gcda[:-5] + ".gcno")
    if not gcdas:
        return lines, branches
    out = subprocess.run(["gcov", "--json-format", "--stdout", "--branch-probabilities"]
                         + gcdas, cwd=prefix_dir, capture_output=True, text=True).stdout
    for text in out.splitlines():
        if not text.startswith("{"):
            continue
        report = json.loads(text)
        for entry in report["files"]:
            # Paths are relative to the directory the object was compiled in.
            path = os.path.relpath(os.path.join(report["current_working_directory"],
                                                entry["file"]), ROOT)
            if not path.startswith("src/"):
                continue
            for line in entry["lines"]:
                if line["count"] > 0:
                    lines.add("%s:%d" % (path, line["line_number"]))
                for i, branch in enumerate(line.get("branches", [])):
                    if branch["count"] > 0 and not branch.get("throw"):
                        branches.add("%s:%d:b%d" % (path, line["line_number"], i))
    return lines, branches


def run_one(index, test, build_dir, work_dir, timeout):
    prefix = os.path.join(work_dir, str(index))
    shutil.rmtree(prefix, ignore_errors=True)
    env = dict(os.environ, GCOV_PREFIX=prefix, GCOV_PREFIX_STRIP="0")
    env.update(item.split("=", 1) for item in test["env"])
    try:
        code = subprocess.run(test["command"], cwd=test["cwd"], env=env, timeout=timeout,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode
    except subprocess.TimeoutExpired:
        code = "timeout"
    lines, branches = reached(prefix, build_dir)
    shutil.rmtree(prefix, ignore_errors=True)
    return test["name"], {"status": code, "command": test["command"],
                          "lines": sorted(lines), "branches": sorted(branches)}


def build_map(args):
    tests = list_tests(args.build_dir, args.exclude, args.binaries)
    work_dir = os.path.join(args.build_dir, "coverage-map.d")
    result = {}
    with concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
        futures = [pool.submit(run_one, i, t, args.build_dir, work_dir, args.timeout)
                   for i, t in enumerate(tests)]
        for done, future in enumerate(concurrent.futures.as_completed(futures), 1):
            name, entry = future.result()
            result[name] = entry
            flag = "" if entry["status"] == 0 else "  (status %s)" % entry["status"]
            print("[%d/%d] %s: %d lines, %d branches%s" % (
                done, len(tests), name, len(entry["lines"]), len(entry["branches"]), flag),
                flush=True)
    shutil.rmtree(work_dir, ignore_errors=True)
    with open(args.output, "w") as f:
        json.dump(result, f)


def redundant(map_path):
    """Drops tests greedily, largest reach first, while the rest still reach all."""
    with open(map_path) as f:
        tests = json.load(f)
    items = {name: set(t["lines"]) | set(t["branches"]) for name, t in tests.items()}
    count = {}
    for reach in items.values():
        for item in reach:
            count[item] = count.get(item, 0) + 1
    dropped = []
    for name in sorted(items, key=lambda n: -len(items[n])):
        if all(count[item] > 1 for item in items[name]):
            for item in items[name]:
                count[item] -= 1
            dropped.append(name)
    for name in dropped:
        print(name)


def compare(map_path, base_path, binaries):
    """Whole-suite lines and branches the base map reaches and this one does not.

    The tests of binaries matching `binaries` come from `map_path` (a map of
    only those binaries); every other test keeps its base entry.
    """
    with open(map_path) as f:
        new = json.load(f)
    with open(base_path) as f:
        base = json.load(f)
    kept = {n: t for n, t in base.items() if not re.search(binaries, binary_of(t))}
    kept.update(new)

    def union(tests):
        return set().union(*(set(t["lines"]) | set(t["branches"]) for t in tests.values()))
    lost = sorted(union(base) - union(kept))
    gained = union(kept) - union(base)
    print("tests: %d before, %d after" % (len(base), len(kept)))
    print("lost %d lines and %d branches, gained %d items" % (
        sum(1 for i in lost if i.count(":") == 1), sum(1 for i in lost if i.count(":") == 2),
        len(gained)))
    for item in lost:
        print("  lost " + item)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build-dir", default=os.path.join(ROOT, "build-coverage"))
    parser.add_argument("--output", help="map file (default: BUILD_DIR/coverage-map.json)")
    parser.add_argument("--exclude", default=r"^install\.", help="regex of tests to skip")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    parser.add_argument("--timeout", type=int, default=600)
    parser.add_argument("--binaries", help="regex: map only the tests of matching binaries")
    parser.add_argument("--compare", metavar="BASE_MAP",
                        help="print what the whole suite loses when the --binaries tests of "
                        "BASE_MAP are replaced by those of this map")
    parser.add_argument("--redundant", action="store_true",
                        help="print the tests an existing map shows as redundant")
    args = parser.parse_args()
    args.build_dir = os.path.abspath(args.build_dir)
    args.output = args.output or os.path.join(args.build_dir, "coverage-map.json")
    if args.compare:
        compare(args.output, args.compare, args.binaries or ".")
    elif args.redundant:
        redundant(args.output)
    else:
        build_map(args)
    return 0


if __name__ == "__main__":
    sys.exit(main())
