#!/usr/bin/env python3
"""Flips one condition or constant of the module at a time and sees whether a test notices.

In:  --count mutants spread evenly over the module's sources (--seed picks which), --minutes as a bound.
Out: every mutant that no test noticed, a table per file, the share that survived; exit 1 above --survive percent or
when fewer than --least were counted.

A mutant that does not compile, or whose library is byte for byte the original, is not counted; one that a
static_assert refuses is caught. Each worker has a copy of the tree and a build directory under build/mutation, so
the sources of the work tree are never touched. Tests are those with the label "module", each file's quickest first.
"""
import argparse
import collections
import concurrent.futures
import dataclasses
import hashlib
import os
import pathlib
import queue
import random
import re
import resource
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
MODULE = pathlib.Path("orch/src/dhcp_vex")
WORK = ROOT / "build" / "mutation"
CPU_SECONDS = 15  # for one test: a mutant that makes it run for ever is caught then

# (what to look for, what stands there instead); spaces around < and > tell them from template brackets.
OPERATORS = [
    (r" == ", " != "), (r" != ", " == "), (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "),
    (r" && ", " || "), (r" \|\| ", " && "), (r" \+ ", " - "), (r" - ", " + "), (r" & ", " | "), (r" \| ", " & "),
    (r"\+\+", "--"), (r" \+= ", " -= "), (r"(?<=[(& |])!(?=[\w(])", ""), (r"\btrue\b", "false"),
    (r"\bfalse\b", "true"), (r"\bbreak;", ";"), (r"\bcontinue;", ";"), (r" \? ", " ? !"),
]
NUMBER = re.compile(r"(?<![\w.\"'])(0x[0-9A-Fa-f]+|\d+)(?=[uUlL]*\b)(?![.\"'])")
# Lines whose change says nothing about behaviour: layout is asserted, comments and text of messages are not code.
LEVEL = re.compile(r"(?<=DhcpVexDebugOut\()\d|(?<=DhcpVexDiagLog\()\d")  # these ignore their level
SKIP = re.compile(r"^\s*(//|#|static_assert|using |namespace |template|extern|\*)|constexpr char|kSourcePath|alignas")


@dataclasses.dataclass(frozen=True)
class Mutant:
    file: str
    line: int
    column: int
    old: str
    new: str
    text: str

    def __str__(self):
        return f"{self.file}:{self.line}:{self.column + 1}: '{self.old.strip()}' -> '{self.new.strip()}' in: {self.text.strip()}"


def mutants_of(path):
    """Every change that the tables above allow in one source."""
    for number, line in enumerate((ROOT / path).read_text().splitlines(), 1):
        if SKIP.search(line):
            continue
        code = re.sub(r'"(\\.|[^"\\])*"', lambda text: '"' + "~" * (len(text.group()) - 2) + '"', line)
        code = LEVEL.sub("~", code).split("//")[0]
        for pattern, new in OPERATORS:
            for found in re.finditer(pattern, code):
                yield Mutant(str(path), number, found.start(), found.group(), new, line)
        for found in NUMBER.finditer(code):
            old = found.group(1)
            yield Mutant(str(path), number, found.start(), old, str(int(old, 0) + 1), line)


def choose(count, seed):
    """The same number from every file as far as it has them, in an order that a seed fixes."""
    random.seed(seed)
    per_file = [list(mutants_of(path.relative_to(ROOT))) for path in sorted((ROOT / MODULE).iterdir())
                if path.suffix in (".cpp", ".h") and path.name != "dhcp_vex_platform.h"]
    for mutants in per_file:
        random.shuffle(mutants)
    chosen = []
    while len(chosen) < count and any(per_file):
        chosen.extend(mutants.pop() for mutants in per_file if mutants)
    return chosen[:count], sum(map(len, per_file)) + len(chosen)


class Worker:
    """A copy of the tree with its build; tries one mutant after the other."""

    def __init__(self, number):
        self.source = WORK / f"source{number}"
        self.build = WORK / f"build{number}"
        self.library = self.build / "lib" / "libvex_dhcp.so"

    def prepare(self):
        shutil.rmtree(self.source, ignore_errors=True)
        files = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, check=True).stdout
        for name in filter(None, os.fsdecode(files).split("\0")):
            if (ROOT / name).is_file():
                (self.source / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(ROOT / name, self.source / name)  # new to ninja, whatever an earlier run left behind
        self.call("cmake", "--preset", "debug", "-B", str(self.build), check=True)
        self.call("cmake", "--build", str(self.build), "--target", "module_tests", "-j", "1", check=True)
        started = time.monotonic()
        done = self.test(900)
        if done.returncode != 0:
            sys.exit(f"the tests fail without any change:\n{done.stdout[-4000:]}")
        self.seconds = time.monotonic() - started
        self.original = self.digest()

    def call(self, *command, check=False, timeout=None, cpu_seconds=None):
        def limit():
            if cpu_seconds:
                resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds))

        try:
            return subprocess.run(command, cwd=self.source, capture_output=True, text=True, check=check,
                                  stdin=subprocess.DEVNULL, timeout=timeout, preexec_fn=limit)
        except subprocess.CalledProcessError as error:
            sys.exit(f"{' '.join(command)} failed:\n{error.stdout[-4000:]}{error.stderr[-4000:]}")

    def test(self, timeout):
        return self.call("ctest", "--test-dir", str(self.build), "-L", "module", "--stop-on-failure",
                         "--no-tests=error", timeout=timeout, cpu_seconds=CPU_SECONDS)

    def digest(self):
        return hashlib.sha256(self.library.read_bytes()).digest()

    def verdict(self, mutant):
        """"caught", "survived", or why the mutant does not count."""
        path = self.source / mutant.file
        original = path.read_text()
        lines = original.splitlines(keepends=True)
        line = lines[mutant.line - 1]
        end = mutant.column + len(mutant.old)
        lines[mutant.line - 1] = line[:mutant.column] + mutant.new + line[end:]
        try:
            path.write_text("".join(lines))
            done = self.call("cmake", "--build", str(self.build), "--target", "vex_dhcp", "-j", "1")
            if done.returncode != 0:
                return "caught" if "static assertion failed" in done.stdout else "does not compile"
            if self.digest() == self.original:
                return "same code"
            # A mutant that makes a test wait for ever counts as caught.
            return "survived" if self.test(30 + 4 * self.seconds).returncode == 0 else "caught"
        except subprocess.TimeoutExpired:
            return "caught"
        finally:
            path.write_text(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=300)
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--survive", type=float, default=10, help="percent that may survive")
    parser.add_argument("--least", type=int, default=150, help="mutants that must be counted")
    parser.add_argument("--jobs", type=int, default=int(os.environ.get("JOBS", os.cpu_count())))
    args = parser.parse_args()

    chosen, possible = choose(args.count, args.seed)
    print(f"{len(chosen)} of {possible} possible mutants", flush=True)
    workers = queue.Queue()
    crew = [Worker(number) for number in range(args.jobs)]
    with concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
        list(pool.map(Worker.prepare, crew))
        for worker in crew:
            workers.put(worker)
        end = time.monotonic() + 60 * args.minutes

        def attempt(mutant):
            if time.monotonic() > end:
                return mutant, "no time"
            worker = workers.get()
            try:
                verdict = worker.verdict(mutant)
            finally:
                workers.put(worker)
            if verdict == "survived":
                print(f"survived: {mutant}", flush=True)
            return mutant, verdict

        results = list(pool.map(attempt, chosen))

    table = collections.defaultdict(collections.Counter)
    for mutant, verdict in results:
        table[mutant.file][verdict] += 1
        table["all"][verdict] += 1
    columns = ["caught", "survived", "does not compile", "same code", "no time"]
    print(f"\n{'':50}" + "".join(f"{name:>18}" for name in columns))
    for name, counts in sorted(table.items(), key=lambda row: (row[0] == "all", row[0])):
        print(f"{name:50}" + "".join(f"{counts[column]:18}" for column in columns))
    counted = table["all"]["caught"] + table["all"]["survived"]
    share = 100 * table["all"]["survived"] / max(counted, 1)
    print(f"\n{counted} mutants counted, {table['all']['survived']} survived: {share:.1f} % (at most {args.survive:g} %)")
    if counted < args.least:
        print(f"that is no evidence: at least {args.least} must be counted, give it more time or mutants")
    return 1 if counted < args.least or share > args.survive else 0


if __name__ == "__main__":
    sys.exit(main())
