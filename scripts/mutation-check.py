#!/usr/bin/env python3
"""Breaks the code on purpose, one break after the other, and looks whether a test notices.

The breaks are those of tests/mutations/, a file for each tool or part. All happens in a copy, build/mutations/tree, which
is brought up to date each time: the sources stay as they are, whatever ends this program. First the tests run on the
unbroken copy.

Exit status: 0 every break is noticed, but for those that are said to make no difference; 1 one is not, or one is that is
said to make none; 2 the lists do not fit the sources, or the unbroken copy is not in order.

A list begins with settings for all of its breaks. Each break then is a paragraph: what comes of it, in a line; the text
that is taken out, in lines that begin with "- ", which must be in the file exactly once; what takes its place, in lines
that begin with "+ "; and settings for this one alone. The settings, any of which may also stand in a paragraph of their
own, for the breaks behind it:

    program: sceneutils_tests       the test program
    tests: NAMES                    what --gtest_filter takes
    file: PATH                      where the text is
    survives: REASON                for a break that makes no difference that a test could notice
"""

import argparse
import fcntl
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LISTS = "tests/mutations"
WORK = ROOT / "build" / "mutations"
TREE = WORK / "tree"
BUILD = TREE / "build" / "release"
NOT_COPIED = {"build", ".git", ".cache"}
SETTINGS = ("program", "tests", "file", "survives")
SHORTEST_TIME_LIMIT = 30  # seconds
TIMES_AS_LONG = 5  # as the unbroken tests take


class Trouble(Exception):
    """What makes it pointless to go on."""


class Mutation:
    def __init__(self, where, name, settings):
        self.where = where
        self.name = name
        self.settings = settings
        self.effect = ""
        self.old = []
        self.new = []

    @property
    def file(self):
        return self.settings["file"]

    @property
    def tests(self):
        return self.settings["program"], self.settings["tests"]

    @property
    def reason(self):
        return self.settings.get("survives", "")

    def apply(self, text):
        old = "\n".join(self.old)
        count = text.count(old)
        if count != 1:
            raise Trouble(f"{self.where}: the text is in {self.file} {count} times: {old}")
        return text.replace(old, "\n".join(self.new))

    def check(self):
        for setting in ("program", "tests", "file"):
            if not self.settings.get(setting):
                raise Trouble(f"{self.where}: no '{setting}:'")
        if not self.effect:
            raise Trouble(f"{self.where}: does not say what comes of it")
        if self.old == self.new:
            raise Trouble(f"{self.where}: changes nothing")
        path = ROOT / self.file
        if not path.is_file():
            raise Trouble(f"{self.where}: there is no {self.file}")
        self.apply(path.read_text())


def paragraphs(text):
    """The line numbers and lines of each."""
    lines = []
    for number, line in enumerate(text.split("\n") + [""], 1):
        if line.strip():
            lines.append((number, line))
        elif lines:
            yield lines
            lines = []


def read_list(path):
    defaults = {}
    mutations = []
    for lines in paragraphs(path.read_text()):
        mutation = Mutation(f"{LISTS}/{path.name}:{lines[0][0]}", path.stem, dict(defaults))
        for number, line in lines:
            key = line.split(":", 1)[0]
            if line[:2] in ("- ", "+ ") or line in ("-", "+"):
                (mutation.old if line[0] == "-" else mutation.new).append(line[2:])
            elif key in SETTINGS:
                mutation.settings[key] = line.split(":", 1)[1].strip()
            elif mutation.effect or mutation.old:
                raise Trouble(f"{LISTS}/{path.name}:{number}: does not belong there: {line}")
            else:
                mutation.effect = line
        if mutation.old:
            mutation.check()
            mutations.append(mutation)
        elif mutation.effect or mutation.new:
            raise Trouble(f"{mutation.where}: takes nothing out")
        else:
            defaults = mutation.settings
    return mutations


def read_lists(names):
    paths = sorted((ROOT / LISTS).glob("*.txt"))
    unknown = set(names) - {path.stem for path in paths}
    if unknown:
        raise Trouble(f"there is no {LISTS}/{unknown.pop()}.txt")
    return [mutation for path in paths if not names or path.stem in names for mutation in read_list(path)]


def files_below(folder):
    for place, folders, names in os.walk(folder):
        if pathlib.Path(place) == folder:
            folders[:] = [name for name in folders if name not in NOT_COPIED]
        for name in names:
            yield (pathlib.Path(place) / name).relative_to(folder)


def update_tree():
    """Leaves alone what is the same already, so that it is not built again."""
    TREE.mkdir(parents=True, exist_ok=True)
    wanted = set(files_below(ROOT))
    for name in set(files_below(TREE)) - wanted:
        (TREE / name).unlink()
    for name in wanted:
        copy = TREE / name
        if copy.is_file() and copy.read_bytes() == (ROOT / name).read_bytes():
            continue
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(ROOT / name, copy)


def run(command, limit=None, **settings):
    """The exit status, None if it took too long; and what was written."""
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               start_new_session=True, **settings)
    try:
        output, _ = process.communicate(timeout=limit)
        return process.returncode, output.decode(errors="replace")
    except BaseException as error:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        if isinstance(error, subprocess.TimeoutExpired):
            return None, ""
        raise


def end_what_is_left(mark):
    """Ends what tests that were ended themselves have started, which has that in its environment."""
    for environment in pathlib.Path("/proc").glob("[0-9]*/environ"):
        try:
            if mark.encode() in environment.read_bytes().split(b"\0"):
                os.kill(int(environment.parent.name), signal.SIGKILL)
        except OSError:  # it is another's, or has ended
            continue


def build(programs):
    return run(["cmake", "--build", str(BUILD), "-j", "1", "--target", *programs])


def prepare(programs):
    # The library's file has the same name and place all the time, so programs need not be linked again with it.
    status, output = run(["cmake", "--preset", "release", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
                          "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST", "-DSCENEUTILS_BUILD_BENCHMARKS=OFF"],
                         cwd=TREE)
    if status == 0:
        status, output = build(programs)
    if status != 0:
        raise Trouble(f"the unbroken copy does not build:\n{output}")


def run_tests(tests, limit=None):
    program, names = tests
    temporary = WORK / "tmp"
    shutil.rmtree(temporary, ignore_errors=True)
    temporary.mkdir()
    try:
        return run([str(BUILD / "tests" / program), "--gtest_brief=1", "--gtest_fail_fast", f"--gtest_filter={names}"],
                   limit, cwd=temporary, env={**os.environ, "TMPDIR": str(temporary)})
    finally:
        end_what_is_left(f"TMPDIR={temporary}")


def time_limits(mutations):
    """Runs the tests that are asked for on the unbroken copy."""
    limits = {}
    for mutation in mutations:
        if mutation.tests in limits:
            continue
        begin = time.monotonic()
        status, output = run_tests(mutation.tests)
        if status != 0:
            raise Trouble(f"{mutation.where}: its tests fail without it:\n{output}")
        if "Running 0 tests" in output or "[  PASSED  ] 0 tests" in output:
            raise Trouble(f"{mutation.where}: there are no such tests: {mutation.tests[1]}")
        limits[mutation.tests] = max(SHORTEST_TIME_LIMIT, TIMES_AS_LONG * (time.monotonic() - begin))
    return limits


def first_failure(output):
    for line in output.splitlines():
        if line.startswith("[  FAILED  ] ") and "." in line:
            return line[len("[  FAILED  ] "):].split(" ")[0].rstrip(",")
    return "a crash"


def verdict_on(mutation, limit):
    """Whether the tests notice, and in words what came of it. None: it does not compile."""
    path = TREE / mutation.file
    whole = path.read_text()
    try:
        path.write_text(mutation.apply(whole))
        status, output = build([mutation.settings["program"]])
        if status != 0:
            return None, "DOES NOT COMPILE\n" + output
        status, output = run_tests(mutation.tests, limit)
        if status is None:
            return True, "noticed: takes too long"
        return (True, f"noticed by {first_failure(output)}") if status != 0 else (False, "SURVIVED")
    finally:
        path.write_text(whole)


def run_all(mutations):
    begin = time.monotonic()
    update_tree()
    prepare(sorted({mutation.settings["program"] for mutation in mutations}))
    limits = time_limits(mutations)
    print(f"The unbroken tests pass ({time.monotonic() - begin:.0f} s).", flush=True)
    bad = 0
    counts = {}
    for mutation in mutations:
        started = time.monotonic()
        noticed, words = verdict_on(mutation, limits[mutation.tests])
        if noticed is False and mutation.reason:
            words = f"survived, as it may: {mutation.reason}"
        elif noticed and mutation.reason:
            words = f"WRONGLY SAID TO SURVIVE, {words}"
        is_bad = noticed is not (not mutation.reason)
        bad += is_bad
        print(f"{mutation.name}: {mutation.effect} ({mutation.where})\n    {words}, {time.monotonic() - started:.0f} s",
              flush=True)
        count = counts.setdefault(mutation.name, [0, 0, 0])
        count[2 if is_bad else 1 if mutation.reason else 0] += 1
    print_summary(counts, time.monotonic() - begin)
    return 1 if bad else 0


def print_summary(counts, seconds):
    width = max(map(len, counts))
    print(f"\n{'':{width}} noticed  survived, as they may  not in order")
    for name, count in {**counts, "all": [sum(column) for column in zip(*counts.values())]}.items():
        print(f"{name:{width}} {count[0]:7} {count[1]:22} {count[2]:13}")
    print(f"{seconds:.0f} s")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", metavar="NAME", action="append", default=[], help="the list of that name alone")
    parser.add_argument("--at", metavar="WHERE", action="append", default=[],
                        help="the break that is said to be at WHERE alone, FILE:LINE or its end")
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--list", action="store_true", help="only say what the breaks are")
    what.add_argument("--check", action="store_true", help="only look whether the lists fit the sources")
    arguments = parser.parse_args()
    try:
        mutations = read_lists(arguments.only)
        if arguments.at:
            mutations = [each for each in mutations if each.where.endswith(tuple(arguments.at))]
        if not mutations:
            raise Trouble("there are no such breaks")
        if arguments.list:
            for mutation in mutations:
                print(f"{mutation.where}: {mutation.effect}")
        if arguments.list or arguments.check:
            print(f"{len(mutations)} breaks")
            return 0
        WORK.mkdir(parents=True, exist_ok=True)
        with open(WORK / "lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)  # until the end: a second run waits
            return run_all(mutations)
    except Trouble as trouble:
        print(f"mutation-check: {trouble}", file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 130


sys.exit(main())
