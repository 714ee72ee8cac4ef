#!/usr/bin/env python3
"""Makes small mistakes in the library, one at a time, and tells which ones the tests catch.

Each mistake ("mutant") is made in a copy of the tree below build/mutants/, built there with
assertions and -O1, and tried with the test program: fast tests first, slow ones last, up to the
first failure. A mutant is caught when a test fails, crashes or hangs. One that does not compile, or
that compiles to the very same bytes, is no mutant: the next one is drawn. The choice depends on
--seed and the sources alone.

    run.py --list | head        the mistakes that would be made
    run.py --count 20 --only src/storage/map_sort.cpp
    run.py --again caught.txt   those of an earlier run's output, if they still can be made

Linux, Python's standard library; the build needs what `./dev test` needs.
"""
import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import queue
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
COPIED = ["CMakeLists.txt", "cmake", "docs", "fuzz", "include", "src", "tests", "tools", "README.md"]
CONFIGURATION = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-w",
                 "-DCMAKE_CXX_FLAGS_DEBUG=-O1", "-DAOSTORAGE_BUILD_EXAMPLES=OFF",
                 "-DAOSTORAGE_BUILD_BENCH=OFF", "-DAOSTORAGE_INSTALL=OFF"]
if shutil.which("ld.lld"):  # links in half the time
    CONFIGURATION.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld")

Mutant = collections.namedtuple("Mutant", "file line column length old new kind")


def name_of(mutant):
    return f"{mutant.file}:{mutant.line}:{mutant.column} {mutant.kind}: {mutant.old} -> {mutant.new}"


# --- What can be changed ---------------------------------------------------------------------------

SWAPS = {
    "compare": {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="},
    "logic": {"&&": "||", "||": "&&"},
    "arithmetic": {"+": "-", "-": "+", "+=": "-=", "-=": "+=", "*": "/", "/": "*"},
    "bits": {"&": "|", "|": "&", "<<": ">>", ">>": "<<", "|=": "&=", "&=": "|="},
}
WORDS = {"true": "false", "false": "true", "std::min": "std::max", "std::max": "std::min"}
NUMBER = re.compile(r"(?<![\w.])(0[xX][0-9a-fA-F]+|\d+)[uU]?(?![\w.'])")
NEGATION = re.compile(r"(?<=[(\s])!(?=[\w(])")
STEP = re.compile(r"(?<!\S)(\+\+|--)(?=\w)")
CONDITION = re.compile(r"\bif \(")
# A call, an assignment or a step that is a statement of its own, on one line.
STATEMENT = re.compile(
    r"^\s*((?:\+\+|--)[\w.>\[\]-]+|[\w.:>\[\]*-]+(?:\(.*\)| (?:[-+|&^*]|<<|>>)?= .+));\s*$")
# Lines that do nothing, or that only stand guard.
SKIPPED = re.compile(
    r"^\s*(#|assert\b|static_assert\b|template\b|using\b|enum\b|namespace\b|friend\b|\[\[|"
    r"(public|private|protected):)|\boperator\b|= (default|delete);|"
    r"^\s*(?!.*\bconstexpr\b)[\w:<>*&, ]+ \w+ = (0|1|true|false|nullptr);\s*$")


def blank_out(text):
    """The text with comments and literals blanked, every other character where it was."""
    pattern = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|' + r"(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"
    return re.sub(pattern, lambda m: re.sub(r"[^\n]", " ", m.group()), text, flags=re.S)


def closing(line, start):
    """Where the parenthesis opened at `start` closes, if it does so on this line."""
    depth = 0
    for i in range(start, len(line)):
        depth += {"(": 1, ")": -1}.get(line[i], 0)
        if depth == 0:
            return i
    return None


def changes_of_line(line, before, rng):
    """(column, old, new, kind) for everything that can go wrong in one blanked line."""
    for kind, swaps in SWAPS.items():
        for m in re.finditer(r"(?<=\s)([-+*/<>=!&|]{1,2})(?=\s|$)", line):
            if m.group(1) in swaps:
                yield m.start(), m.group(1), swaps[m.group(1)], kind
    for old, new in WORDS.items():
        for m in re.finditer(rf"(?<![\w:]){old}\b", line):
            yield m.start(), old, new, "word"
    for m in NUMBER.finditer(line):
        octal = re.fullmatch("0[0-7]+", m.group(1))
        value = int(m.group(1), 8 if octal else 0)
        yield m.start(1), m.group(1), str(value + (1 if value == 0 else rng.choice((1, -1)))), "constant"
    for m in NEGATION.finditer(line):
        yield m.start(), "!", "", "negation"
    for m in STEP.finditer(line):
        yield m.start(), m.group(1), {"++": "--", "--": "++"}[m.group(1)], "step"
    for m in CONDITION.finditer(line):
        end = closing(line, m.end() - 1)
        if end is not None:
            old = line[m.end() - 1:end + 1]
            yield m.end() - 1, old, f"(!{old})", "condition"
    m = STATEMENT.match(line)
    if m and line.count("(") == line.count(")") and (not before or before[-1] in ";{}):"
                                                     or before.endswith("else")):
        yield m.start(1), m.group(1), "", "statement"


def mutants_of_file(name, text, rng):
    """All mutants of one file in the order in which they are drawn: kinds take turns."""
    by_kind = collections.defaultdict(list)
    original, before, asserting = text.split("\n"), "", False
    for number, line in enumerate(blank_out(text).split("\n"), 1):
        asserting = asserting or re.match(r"\s*(static_)?assert\b", line) is not None
        if not asserting and not SKIPPED.search(line):
            for column, old, new, kind in changes_of_line(line, before, rng):
                # A literal inside is shown as it stands in the source.
                shown = original[number - 1][column:column + len(old)]
                by_kind[kind].append(Mutant(name, number, column + 1, len(old), shown,
                                            new.replace(old, shown), kind))
        if line.rstrip().endswith(";"):
            asserting = False
        before = line.strip() or before
    drawn = []
    for kind in sorted(by_kind):
        rng.shuffle(by_kind[kind])
    while any(by_kind.values()):
        kinds = [kind for kind in sorted(by_kind) if by_kind[kind]]
        rng.shuffle(kinds)
        drawn += [by_kind[kind].pop() for kind in kinds]
    return drawn


def reaches():
    """How many sources of the library see each header, by its path below src/."""
    names = {path.relative_to(ROOT / "src").as_posix(): path for path in (ROOT / "src").rglob("*.*")}
    seen = {name: set(re.findall(r'#include "([^"]+)"', path.read_text()))
            for name, path in names.items() if path.suffix in (".cpp", ".h")}
    counts = collections.Counter()
    for name in seen:
        if name.endswith(".h"):
            continue
        found, waiting = set(), [name]
        while waiting:
            for other in seen.get(waiting.pop(), set()) - found:
                found.add(other)
                waiting.append(other)
        counts.update(found)
    return counts


def all_mutants(seed, only, reach):
    """Every mutant of the library; any beginning of the list is spread over the files by their size."""
    keyed, counts = [], reaches()
    for path in sorted((ROOT / "src").rglob("*")):
        name = path.relative_to(ROOT).as_posix()
        if path.suffix not in (".cpp", ".h") or (only and not any(o in name for o in only)):
            continue
        if path.suffix == ".h" and counts[path.relative_to(ROOT / "src").as_posix()] > reach:
            continue
        text = path.read_text()
        rng = random.Random(f"{seed} {name}")
        size = max(1, sum(1 for line in blank_out(text).split("\n") if line.strip()))
        for i, mutant in enumerate(mutants_of_file(name, text, rng)):
            keyed.append(((i + rng.random()) / size, name_of(mutant), mutant))
    return [mutant for _, _, mutant in sorted(keyed)]


# --- Trying them -----------------------------------------------------------------------------------


def limited():
    """Before a test program runs: no mutant may eat the machine, and tests send SIGINT, which is
    ignored in what was started in the background."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    # Some tests set limits of their own, so the hard ones stay.
    for which, limit in ((resource.RLIMIT_FSIZE, 6 << 30), (resource.RLIMIT_AS, 8 << 30)):
        resource.setrlimit(which, (limit, resource.getrlimit(which)[1]))


class Workshop:
    """A copy of the tree with its build, for one mutant at a time."""

    def __init__(self, directory, build_jobs, shards):
        self.directory, self.build_jobs, self.shards = directory, build_jobs, shards
        self.tree, self.build = directory / "tree", directory / "build"
        self.program = self.build / "tests" / "aostorage_tests"
        self.library = self.build / "src" / "libaostorage.a"

    def prepare(self):
        """Brings the copy up to date, without touching what is the same, and builds it."""
        for name in COPIED:
            self.bring(ROOT / name, self.tree / name)
        done = subprocess.run(["cmake", "-S", self.tree, "-B", self.build, *CONFIGURATION],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            sys.exit(f"{done.stdout[-5000:]}\nmutants: cannot configure {self.build}")
        if not self.make():
            sys.exit(f"{self.last_output[-5000:]}\nmutants: the tree as it is does not build")
        self.original_bytes = self.fingerprint()

    def bring(self, source, target):
        if source.is_dir():
            target.mkdir(parents=True, exist_ok=True)
            names = {p.name for p in source.iterdir() if p.name != "__pycache__"}
            for stale in {p.name for p in target.iterdir()} - names:
                path = target / stale
                shutil.rmtree(path) if path.is_dir() else path.unlink()
            for name in names:
                self.bring(source / name, target / name)
        elif not target.exists() or target.read_bytes() != source.read_bytes():
            shutil.copy(source, target)  # a new time: it is to be built again

    def make(self):
        done = subprocess.run(["ninja", "-C", self.build, f"-j{self.build_jobs}", "aostorage_tests"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.last_output = done.stdout
        return done.returncode == 0

    def fingerprint(self):
        return hashlib.sha256(self.library.read_bytes()).digest()

    def run_tests(self, tests, seconds, fail_fast=True, report=None, broken_off=None):
        """None when all pass, else (what happened, the test it happened in). `broken_off`, an event,
        ends it early."""
        with tempfile.TemporaryDirectory(prefix="mutant") as scratch:
            os.chmod(scratch, 0o755)  # some tests give up root's rights
            command = [self.program, "--gtest_color=no", f"--gtest_filter={':'.join(tests)}"]
            command += ["--gtest_fail_fast"] if fail_fast else []
            command += [f"--gtest_output=json:{report}"] if report else []
            with open(os.path.join(scratch, "output"), "w+b") as output:
                run = subprocess.Popen(
                    command, stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                    cwd=scratch, env=dict(os.environ, TMPDIR=scratch),
                    start_new_session=True,
                    preexec_fn=limited)
                end = time.time() + seconds
                try:
                    while run.poll() is None and time.time() < end:
                        if broken_off and broken_off.is_set():
                            return None
                        time.sleep(0.05)
                    status = run.returncode
                finally:
                    try:  # and what it has started
                        os.killpg(run.pid, signal.SIGKILL)
                    except ProcessLookupError:
                        pass
                    run.wait()
                if status == 0:
                    return None
                output.seek(0)
                text = output.read().decode(errors="replace")
        begun = re.findall(r"^\[ RUN      \] (\S+)", text, flags=re.M)
        failed = re.findall(r"^\[  FAILED  \] (\S+?)(?:,| \()", text, flags=re.M)
        what = "hangs" if status is None else "fails" if status == 1 else f"crashes ({status})"
        self.last_output = text
        return what, (failed or begun[-1:] or ["before the first test"])[0]

    def try_mutant(self, mutant, plan):
        """(verdict, test): caught, survived, or no mutant at all."""
        path = self.tree / mutant.file
        original = path.read_text()
        lines = original.split("\n")
        line, start = lines[mutant.line - 1], mutant.column - 1
        lines[mutant.line - 1] = line[:start] + mutant.new + line[start + mutant.length:]
        try:
            path.write_text("\n".join(lines))
            if not self.make():
                return "does not compile", ""
            if self.fingerprint() == self.original_bytes:
                return "same program", ""
            for stage in plan:
                enough = threading.Event()
                with concurrent.futures.ThreadPoolExecutor(len(stage)) as pool:
                    runs = [pool.submit(self.run_tests, tests, limit, broken_off=enough)
                            for tests, limit in stage]
                    for run in concurrent.futures.as_completed(runs):
                        if run.result() is not None:
                            enough.set()
                            what, test = run.result()
                            return f"caught, {what}", test
            return "SURVIVED", ""
        finally:
            path.write_text(original)

    def time_tests(self):
        """A report of how long each test takes in the tree as it is; the last one, if it is of this
        very program."""
        report, known = self.directory / "times.json", self.directory / "times.sha256"
        program = hashlib.sha256(self.program.read_bytes()).hexdigest()
        if report.exists() and known.exists() and known.read_text() == program:
            return report
        failure = self.run_tests(["*"], 1800, fail_fast=False, report=report)
        if failure is not None:
            sys.exit(f"{self.last_output[-5000:]}\nmutants: the tree as it is {failure[0]}: {failure[1]}")
        known.write_text(program)
        return report

    def make_plan(self, most_seconds):
        """Stages of shards of tests, fast tests first, of those that take no longer than that."""
        report, times = self.time_tests(), []
        for suite in json.loads(report.read_text())["testsuites"]:
            for test in suite["testsuite"]:
                times.append((float(test["time"].rstrip("s")), f"{suite['name']}.{test['name']}"))
        if not times:
            sys.exit("mutants: no tests")
        times.sort()
        self.quick = {name for seconds, name in times if seconds < 1}
        plan = []
        for least, most in ((0, 0.1), (0.1, 1), (1, 3), (3, 1e9)):
            chosen = [entry for entry in times if least <= entry[0] < min(most, most_seconds)]
            stage = [chosen[i::self.shards] for i in range(self.shards)]
            plan.append([([name for _, name in shard], 10 * sum(t for t, _ in shard) + 20)
                         for shard in stage if shard])
        print(f"# {len(times)} tests, {sum(t for t, _ in times):.0f} s in one go", flush=True)
        return [stage for stage in plan if stage]


def run_all(options, mutants):
    os.nice(options.nice)
    base = pathlib.Path(options.dir).resolve()
    jobs = options.jobs
    shops = [Workshop(base / str(i), 2 if jobs == 1 else 1, 2 if jobs == 1 else 1)
             for i in range(jobs)]
    for shop in shops:
        shop.prepare()
    plan = shops[0].make_plan(options.most_seconds)
    free, lock, tally = queue.Queue(), threading.Lock(), collections.Counter()
    caught_by = collections.defaultdict(collections.Counter)  # of each directory of src/: test, times
    for shop in shops:
        free.put(shop)
    waiting = iter(mutants)
    begun = time.time()

    def work():
        while True:
            with lock:
                if tally["caught"] + tally["SURVIVED"] + tally["under way"] >= options.count:
                    return
                mutant = next(waiting, None)
                if mutant is None:
                    return
                tally["under way"] += 1
                # What has caught others nearby goes first.
                near = caught_by[os.path.dirname(mutant.file)]
                first = [test for test, _ in near.most_common(8)]
            shop = free.get()
            start = time.time()
            try:
                verdict, test = shop.try_mutant(mutant, ([[(first, 60)]] if first else []) + plan)
            finally:
                free.put(shop)
            with lock:
                tally["under way"] -= 1
                tally[verdict.split(",")[0]] += 1
                if test in shops[0].quick:
                    near[test] += 1
                print(f"{verdict}\t{test}\t{time.time() - start:.0f} s\t{name_of(mutant)}", flush=True)

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for done in [pool.submit(work) for _ in range(jobs)]:
            done.result()
    tried = tally["caught"] + tally["SURVIVED"]
    if tried == 0:
        sys.exit("mutants: none could be made")
    print(f"# {tried} mutants, {tally['caught']} caught ({100 * tally['caught'] / tried:.1f} %), "
          f"{tally['SURVIVED']} survived; besides, {tally['does not compile']} did not compile, "
          f"{tally['same program']} made no difference; {time.time() - begun:.0f} s")


def main():
    parser = argparse.ArgumentParser(description="Mistakes in the library, and whether a test minds.")
    parser.add_argument("--count", type=int, default=200, help="how many mutants (200)")
    parser.add_argument("--seed", default="1", help="of the choice (1)")
    parser.add_argument("--only", action="append", default=[], metavar="FILE",
                        help="only files whose path contains this; may be given again")
    parser.add_argument("--list", action="store_true", help="list them and try none")
    parser.add_argument("--again", metavar="OUTPUT",
                        help="those named in the output of a run, or in lines of it")
    parser.add_argument("--but-not", metavar="OUTPUT", help="all but those named in it: to go on")
    parser.add_argument("--reach", type=int, default=1000, metavar="N",
                        help="leave out headers that more sources than this include")
    parser.add_argument("--most-seconds", type=float, default=1e9, metavar="SECONDS",
                        help="leave out the tests that take longer, for a first look")
    parser.add_argument("--nice", type=int, default=10, help="priority (10)")
    parser.add_argument("--jobs", type=int, default=1, help="copies of the tree at work (1)")
    parser.add_argument("--dir", default=ROOT / "build" / "mutants", help="where the copies lie")
    options = parser.parse_args()

    mutants = all_mutants(options.seed, options.only, options.reach)

    def named(output):
        with open(output) as lines:
            return {line.rstrip("\n").split("\t")[-1] for line in lines}

    if options.again:
        names = named(options.again)
        mutants = [mutant for mutant in mutants if name_of(mutant) in names]
        options.count = len(mutants)
    if options.but_not:
        names = named(options.but_not)
        mutants = [mutant for mutant in mutants if name_of(mutant) not in names]
    if options.list:
        for mutant in mutants[:options.count]:
            print(name_of(mutant))
        print(f"# {len(mutants)} can be made", file=sys.stderr)
        return
    run_all(options, mutants)


if __name__ == "__main__":
    main()
