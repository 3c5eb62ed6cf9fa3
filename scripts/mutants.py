#!/usr/bin/env python3
"""Mutation testing of the library: does the suite notice small faults?

Collects every candidate mutation in src/**/*.cc (flipped comparisons and
conditions, off-by-one bounds, dropped statements and early returns, swapped
arguments), draws a fixed sample from them with a seed, and for each mutant in
turn: writes it into the source file, rebuilds incrementally in a dedicated
build directory, runs the test binaries of the touched subsystem
(src/<dir>/ -> tests/<dir>/*_test.cc; the whole ctest when there are none),
and puts the file back. With --map (a per-test coverage map written by
scripts/coverage_map.py) a mutant is judged instead by every test of the whole
suite that reaches its line, which gives the whole suite's verdict without
running the tests that cannot notice the change; the tests that failed are
recorded in BUILD_DIR/mutants.json. A mutant is "killed" when a test fails or times out,
"survived" when every test passes, and "stillborn" when it does not compile.

The same seed over the same sources gives the same mutants. The source file is
restored on every exit path; a run killed outright leaves a backup that the
next run restores before it starts.
"""

import argparse
import concurrent.futures
import glob
import json
import os
import random
import re
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

COMPARE_FLIP = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">"}
BOUND_SHIFT = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}
KEYWORDS = {"if", "while", "for", "switch", "return", "sizeof", "catch", "defined",
            "static_cast", "decltype"}
# Arguments of these are interchangeable, so swapping them changes nothing.
COMMUTATIVE = {"min", "max", "swap", "Min", "Max", "hypot"}


class Mutant:
    """One candidate change: replaces `old` by `new` at a column of a line."""

    def __init__(self, path, line, col, kind, old, new):
        self.path, self.line, self.col = path, line, col
        self.kind, self.old, self.new = kind, old, new

    def describe(self):
        return "%s:%d: %s: '%s' -> '%s'" % (self.path, self.line, self.kind,
                                           self.old.strip(), self.new.strip())

    def apply(self, text):
        lines = text.split("\n")
        source = lines[self.line - 1]
        assert source[self.col:self.col + len(self.old)] == self.old, self.describe()
        lines[self.line - 1] = source[:self.col] + self.new + source[self.col + len(self.old):]
        return "\n".join(lines)


def in_string_or_comment(line, col):
    """True when column `col` of `line` lies in a string, char literal or // comment."""
    quote = None
    i = 0
    while i < col:
        c = line[i]
        if quote:
            if c == "\\":
                i += 1
            elif c == quote:
                quote = None
        elif c in "\"'":
            quote = c
        elif line.startswith("//", i):
            return True
        i += 1
    return quote is not None


def code_lines(text):
    """Yields (number, line) for lines that hold code (no comments, no preprocessor)."""
    in_block = False
    for number, line in enumerate(text.split("\n"), 1):
        stripped = line.strip()
        if in_block:
            if "*/" in stripped:
                in_block = False
            continue
        if stripped.startswith("/*"):
            in_block = "*/" not in stripped
            continue
        if not stripped or stripped.startswith(("//", "#")):
            continue
        yield number, line


STATEMENT_START = re.compile(r"[;{}:]\s*$")
CALL_STATEMENT = re.compile(r"^\s+[A-Za-z_][\w:]*(?:(?:\.|->)[A-Za-z_]\w*)*(?:<[\w:, ]*>)?\(.*\);\s*$")
ASSIGNMENT = re.compile(r"^\s+[A-Za-z_][\w.\->\[\]]*\s(?:=|\+=|-=|\|=|&=)\s.*;\s*$")
GUARD_RETURN = re.compile(r"^\s*if \(.*\) (?:return\b.*|continue|break);\s*$")
SWAP = re.compile(r"\b([A-Za-z_]\w*)\(([A-Za-z_][\w.]*(?:\(\))?), ([A-Za-z_][\w.]*(?:\(\))?)\)")


def balanced(text):
    return text.count("(") == text.count(")")


def candidates_in(path, text):
    """Every mutation this tool knows how to make in one source file."""
    found = []
    lines = text.split("\n")
    previous_code = ""
    for number, line in code_lines(text):
        def add(col, kind, old, new):
            if not in_string_or_comment(line, col):
                found.append(Mutant(path, number, col, kind, old, new))

        for m in re.finditer(r"(?<= )(==|!=|<=|>=|<|>)(?= )", line):
            add(m.start(), "flip-comparison", m.group(1), COMPARE_FLIP[m.group(1)])
            if m.group(1) in BOUND_SHIFT:
                add(m.start(), "off-by-one", m.group(1), BOUND_SHIFT[m.group(1)])
        for m in re.finditer(r" ([+-]) 1\b(?![.\w])", line):
            add(m.start(), "off-by-one", m.group(0), "")
        for m in re.finditer(r" (&&|\|\|) ", line):
            add(m.start(), "flip-condition", m.group(0), " || " if m.group(1) == "&&" else " && ")
        for m in re.finditer(r"(?<=[( ])!(?=[\w(])", line):
            add(m.start(), "flip-condition", "!", "")
        for m in re.finditer(r"\breturn (true|false);", line):
            add(m.start(), "flip-condition", m.group(0),
                "return %s;" % ("false" if m.group(1) == "true" else "true"))
        for m in SWAP.finditer(line):
            name, a, b = m.groups()
            if name not in KEYWORDS and name not in COMMUTATIVE and a != b:
                start = m.start(2)
                old = line[start:m.end(3)]
                add(start, "swap-arguments", old, "%s, %s" % (b, a))

        stripped = line.strip()
        starts_statement = STATEMENT_START.search(previous_code) is not None
        if starts_statement and balanced(stripped):
            indent = len(line) - len(line.lstrip())
            if GUARD_RETURN.match(line) or stripped in ("return;", "continue;", "break;"):
                add(indent, "drop-early-return", stripped, "")
            elif ((CALL_STATEMENT.match(line) or ASSIGNMENT.match(line))
                  and not stripped.startswith(("return", "case ", "default", "using ",
                                               "typedef ", "static_assert", "throw "))):
                add(indent, "drop-statement", stripped, "")
        previous_code = line
    return found


def source_files():
    return sorted(os.path.relpath(p, ROOT)
                  for p in glob.glob(os.path.join(ROOT, "src", "**", "*.cc"), recursive=True))


def draw_sample(seed, count):
    """Shuffles each kind's candidates with the seed and takes them in turn."""
    by_kind = {}
    for path in source_files():
        with open(os.path.join(ROOT, path)) as f:
            for mutant in candidates_in(path, f.read()):
                by_kind.setdefault(mutant.kind, []).append(mutant)
    rng = random.Random(seed)
    queues = []
    for kind in sorted(by_kind):
        pool = by_kind[kind]
        rng.shuffle(pool)
        queues.append(pool)
    total = sum(len(q) for q in queues)
    sample = []
    while len(sample) < min(count, total):
        for queue in queues:
            if queue and len(sample) < count:
                sample.append(queue.pop())
    return sample, {k: len(v) for k, v in by_kind.items()}, total


DESCRIBED = re.compile(r"^(.*?):(\d+): ([\w-]+): '(.*)' -> '(.*)'$")


def replay_sample(record, outcome):
    """The mutants an earlier run recorded (those with `outcome`, if given), found again in
    today's sources by file, kind and text at the nearest line; also the ones not found."""
    sample, missing, by_path = [], [], {}
    for described, result in sorted(record.items()):
        if outcome and result.get("outcome") != outcome:
            continue
        match = DESCRIBED.match(described)
        if not match:
            missing.append(described)
            continue
        path, line, kind, old, new = match.groups()
        if path not in by_path:
            full = os.path.join(ROOT, path)
            by_path[path] = candidates_in(path, open(full).read()) if os.path.exists(full) else []
        same = [m for m in by_path[path]
                if (m.kind, m.old.strip(), m.new.strip()) == (kind, old, new)]
        if same:
            sample.append(min(same, key=lambda m: abs(m.line - int(line))))
        else:
            missing.append(described)
    return sample, missing


class Restorer:
    """Keeps the original text of the file being mutated, on disk and in memory."""

    def __init__(self, build_dir):
        self.backup = os.path.join(build_dir, "mutant-backup.json")
        self.current = None

    def recover(self):
        if os.path.exists(self.backup):
            with open(self.backup) as f:
                saved = json.load(f)
            self._write(saved["path"], saved["text"])
            print("restored %s left mutated by an earlier run" % saved["path"])
            os.remove(self.backup)

    def mutate(self, mutant):
        full = os.path.join(ROOT, mutant.path)
        with open(full) as f:
            original = f.read()
        with open(self.backup, "w") as f:
            json.dump({"path": mutant.path, "text": original}, f)
        self.current = (mutant.path, original)
        self._write(mutant.path, mutant.apply(original))

    def restore(self):
        if self.current:
            self._write(*self.current)
            self.current = None
        if os.path.exists(self.backup):
            os.remove(self.backup)

    @staticmethod
    def _write(path, text):
        # Written in place (not renamed) so that the file keeps its inode and
        # mode; the new modification time makes the next build recompile it.
        with open(os.path.join(ROOT, path), "w") as f:
            f.write(text)


def test_targets(src_path):
    """Test binaries of the subsystem a source file belongs to (empty: none)."""
    subsystem = os.path.relpath(src_path, "src").split(os.sep)[0]
    tests = sorted(glob.glob(os.path.join(ROOT, "tests", subsystem, "*_test.cc")))
    return ["setvault_%s_%s" % (subsystem, os.path.basename(t)[:-len(".cc")]) for t in tests]


def run(cmd, timeout, log):
    log.write("$ %s\n" % " ".join(cmd))
    log.flush()
    try:
        done = subprocess.run(cmd, stdout=log, stderr=subprocess.STDOUT, timeout=timeout,
                              env=dict(os.environ, SETVAULT_SOURCE_DIR=ROOT))
        return done.returncode
    except subprocess.TimeoutExpired:
        return "timeout"


def reaching_tests(mutant, coverage_map):
    """Test binary to the gtest names, of every gtest test that reaches the mutant's line."""
    spot = "%s:%d" % (mutant.path, mutant.line)
    by_binary = {}
    for name, test in coverage_map.items():
        binary = os.path.basename(test["command"][0])
        if spot in test["lines"] and binary.startswith("setvault_"):
            by_binary.setdefault(binary, []).append(gtest_name(test["command"], name))
    return by_binary


def gtest_name(command, name):
    for arg in command:
        if arg.startswith("--gtest_filter="):
            return arg[len("--gtest_filter="):]
    return name


def failed_tests(report_path):
    """Names of the failed tests in a gtest JSON report (empty when none or unreadable)."""
    try:
        with open(report_path) as f:
            report = json.load(f)
    except (OSError, ValueError):
        return []
    return ["%s.%s" % (suite["name"], case["name"]) for suite in report.get("testsuites", [])
            for case in suite.get("testsuite", []) if case.get("failures")]


def run_binary(binary, names, killers, args, log):
    """Runs the named tests of one binary, adding the failed ones to `killers`;
    skipped once `killers` holds three."""
    if len(killers) >= 3:
        return
    report = os.path.join(args.build_dir, "mutant-report-%s.json" % binary)
    if os.path.exists(report):
        os.remove(report)
    code = run([os.path.join(args.build_dir, "tests", binary), "--gtest_brief=1",
                "--gtest_filter=" + ":".join(names), "--gtest_output=json:" + report],
               args.timeout, log)
    if code == "timeout":
        found = ["%s (timed out)" % binary]
    elif code != 0:
        found = failed_tests(report) or [binary]
    else:
        found = []
    killers.extend(found)  # list.extend is atomic under the interpreter lock


def earlier_killers(mutant, by_binary, earlier_record):
    """The reaching tests an earlier run recorded as this mutant's killers, by binary."""
    named = set((earlier_record or {}).get(mutant.describe(), {}).get("killers", []))
    found = {}
    for binary, names in by_binary.items():
        again = [n for n in names if n in named]
        if again:
            found[binary] = again
    return found


def reach_verdict(mutant, args, log):
    """Builds one mutant and runs every test that reaches its line: (outcome, detail, killers)."""
    by_binary = reaching_tests(mutant, args.coverage_map)
    targets = sorted(by_binary) or ["setvault_objects"]
    if run(["ninja", "-C", args.build_dir, "-j", str(args.jobs)] + targets, None, log) != 0:
        return "stillborn", "does not compile", []
    if not by_binary:
        return "survived", "no test reaches the line", []
    # The tests that killed this mutant in an earlier run (--earlier) go first:
    # when one still fails, the verdict needs no other test.
    earlier = earlier_killers(mutant, by_binary, args.earlier_record)
    if earlier:
        killers = []
        for binary, names in sorted(earlier.items()):
            run_binary(binary, names, killers, args, log)
        if killers:
            return "killed", "%s fails again" % killers[0], killers
    # Binaries run two at a time and stop once three of them have failed: a
    # mutant that many tests notice needs no more, and the record still shows
    # which mutants rest on a single test.
    killers = []
    with concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
        list(pool.map(lambda item: run_binary(item[0], item[1], killers, args, log),
                      sorted(by_binary.items())))
    tests = sum(len(n) for n in by_binary.values())
    if killers:
        return "killed", "%s fails, %d tests reach the line" % (killers[0], tests), killers
    return "survived", "%d reaching tests" % tests, []


def verdict(mutant, args, log):
    """Builds and tests one mutant: (killed, survived or stillborn; detail; killers)."""
    if args.coverage_map is not None:
        return reach_verdict(mutant, args, log)
    outcome, detail = folder_verdict(mutant, args, log)
    return outcome, detail, [detail] if outcome == "killed" else []


def folder_verdict(mutant, args, log):
    """Builds and tests one mutant with its own folder's tests."""
    targets = test_targets(mutant.path)
    build = ["ninja", "-C", args.build_dir, "-j", str(args.jobs)] + (targets or ["all"])
    if run(build, None, log) != 0:
        return "stillborn", "does not compile"
    if not targets:
        code = run(["ctest", "--test-dir", args.build_dir, "-j", str(args.jobs),
                    "--timeout", str(args.timeout), "--stop-on-failure"],
                   args.timeout * 4, log)
        return ("survived", "ctest") if code == 0 else ("killed", "ctest")
    for target in targets:
        code = run([os.path.join(args.build_dir, "tests", target), "--gtest_brief=1"],
                   args.timeout, log)
        if code == "timeout":
            return "killed", "%s timed out" % target
        if code != 0:
            return "killed", target
    return "survived", "%d test binaries" % len(targets)


def configure(args, log):
    launcher = []
    if subprocess.run(["sh", "-c", "command -v ccache"], stdout=subprocess.DEVNULL).returncode == 0:
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
    cmd = ["cmake", "-S", ROOT, "-B", args.build_dir, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
           "-DSETVAULT_BUILD_BENCHMARKS=OFF"] + launcher
    if run(cmd, None, log) != 0:
        sys.exit("configuring %s failed (log: %s)" % (args.build_dir, log.name))


def baseline(sample, args, log):
    """The unmutated sources must pass the tests each mutant will be judged by."""
    if args.coverage_map is not None:
        if run(["ninja", "-C", args.build_dir, "-j", str(args.jobs)], None, log) != 0:
            sys.exit("the unmutated sources do not build (log: %s)" % log.name)
        return
    needed = sorted({t for m in sample for t in test_targets(m.path)})
    if run(["ninja", "-C", args.build_dir, "-j", str(args.jobs)] + needed, None, log) != 0:
        sys.exit("the unmutated sources do not build (log: %s)" % log.name)
    for target in needed:
        if run([os.path.join(args.build_dir, "tests", target), "--gtest_brief=1"],
               args.timeout, log) != 0:
            sys.exit("%s fails without any mutant (log: %s)" % (target, log.name))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--seed", type=int, default=16)
    parser.add_argument("--count", type=int, default=80, help="mutants in the sample")
    parser.add_argument("--limit", type=int, help="run only the first N of the sample")
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    parser.add_argument("--only", metavar="PREFIX",
                        help="run only the sample's mutants in files under PREFIX (e.g. src/store)")
    parser.add_argument("--build-dir", default=os.path.join(ROOT, "build-mutants"))
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    parser.add_argument("--timeout", type=int, default=300, help="seconds per test binary")
    parser.add_argument("--map", help="per-test coverage map (scripts/coverage_map.py): judge "
                        "each mutant by every test that reaches its line")
    parser.add_argument("--earlier", help="mutants.json of an earlier --map run: each "
                        "mutant's earlier killers run first")
    parser.add_argument("--replay", metavar="MUTANTS_JSON",
                        help="instead of drawing a sample, run the mutants an earlier run "
                        "recorded (found again by file, kind and text)")
    parser.add_argument("--outcome", choices=["killed", "survived", "stillborn"],
                        help="with --replay: only the mutants that had this outcome")
    args = parser.parse_args()
    args.build_dir = os.path.abspath(args.build_dir)
    args.earlier_record = None
    if args.earlier:
        with open(args.earlier) as f:
            args.earlier_record = json.load(f)
    args.coverage_map = None
    if args.map:
        with open(args.map) as f:
            args.coverage_map = json.load(f)

    if args.replay:
        with open(args.replay) as f:
            sample, missing = replay_sample(json.load(f), args.outcome)
        print("replaying %d mutants of %s; %d no longer found%s" % (
            len(sample), args.replay, len(missing), "".join("\n  " + m for m in missing)))
    else:
        sample, per_kind, total = draw_sample(args.seed, args.count)
        print("%d candidates (%s); sample of %d, seed %d" % (
            total, ", ".join("%s %d" % kv for kv in sorted(per_kind.items())), len(sample),
            args.seed))
    if args.only:
        prefix = os.path.normpath(args.only)
        sample = [m for m in sample if os.path.normpath(m.path).startswith(prefix + os.sep)]
    if args.list:
        for i, mutant in enumerate(sample, 1):
            print("%3d %s" % (i, mutant.describe()))
        return 0
    if args.limit:
        sample = sample[:args.limit]

    os.makedirs(args.build_dir, exist_ok=True)
    restorer = Restorer(args.build_dir)
    restorer.recover()

    def stop(signum, _frame):
        raise KeyboardInterrupt("signal %d" % signum)
    for sig in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(sig, stop)

    results = {"killed": [], "survived": [], "stillborn": []}
    record = {}
    with open(os.path.join(args.build_dir, "mutants.log"), "w") as log:
        configure(args, log)
        baseline(sample, args, log)
        try:
            for i, mutant in enumerate(sample, 1):
                started = time.time()
                restorer.mutate(mutant)
                try:
                    outcome, detail, killers = verdict(mutant, args, log)
                finally:
                    restorer.restore()
                results[outcome].append(mutant)
                record[mutant.describe()] = {"outcome": outcome, "killers": killers}
                print("[%d/%d] %-9s %s (%s, %.0f s)" % (i, len(sample), outcome,
                                                        mutant.describe(), detail,
                                                        time.time() - started), flush=True)
        except KeyboardInterrupt:
            print("interrupted; source restored", flush=True)
        finally:
            restorer.restore()

    with open(os.path.join(args.build_dir, "mutants.json"), "w") as f:
        json.dump(record, f, indent=1)
    ran = sum(len(v) for v in results.values())
    viable = len(results["killed"]) + len(results["survived"])
    print("\n%d of %d mutants run: killed %d, survived %d, stillborn %d" % (
        ran, len(sample), len(results["killed"]), len(results["survived"]),
        len(results["stillborn"])))
    if viable:
        print("kill rate: %d of %d that compile (%.0f%%)" % (
            len(results["killed"]), viable, 100.0 * len(results["killed"]) / viable))
    if results["survived"]:
        print("survivors:")
        for mutant in results["survived"]:
            print("  " + mutant.describe())
    return 0


if __name__ == "__main__":
    sys.exit(main())
