#!/usr/bin/env python3
"""Makes one small change of the program at a time and reports which changes the tests do not notice.

    tools/mutate.py                              a constant or comparison in a random hundred lines
    tools/mutate.py --kind statements            deletes statements; see program_changes.py for the kinds
    tools/mutate.py --sample 300 --seed 2        more, others
    tools/mutate.py --files 'serial/*' --sample 0    every change in a folder
    tools/mutate.py --replay 'fio/fio_frame.cpp:31'  the changes of one line again

It works on a copy of the project below build/mutation, or below HK_MUTATION_FOLDER, where another
one runs at the same time. A changed program may kill every process it
sees, map memory without end or leave files anywhere: its tests run in namespaces of their own, with
limited memory and in a scratch folder. Needs root, or the right to make such namespaces.

Changes that alter nothing anybody could see are listed in equivalent_changes.txt; they are made all the
same, and counted apart when they are not noticed.

A change counts as noticed when the tests fail or do not end, twice in a row. A change that does not
build is no change. With --least the exit status is 1 when fewer per cent are noticed.
"""

import argparse
import filecmp
import fnmatch
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time

from program_changes import KINDS, changes_of

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = os.path.join(ROOT, os.environ.get("HK_MUTATION_FOLDER", "build/mutation"))
COPY = os.path.join(WORK, "source")
BUILD = os.path.join(WORK, "build")
FOLDERS = ("runtime", "supervisor", "serial", "fio", "storage", "panel")
MEMORY_MAX_KB = 8 << 20

EQUIVALENT = os.path.join(ROOT, "tools", "equivalent_changes.txt")
# Each is a program of a second or two.
UNIT_TESTS = ("unit_tests", "call_trace_tests", "kernel_speed_tests", "option_walk_tests")
NO_BUILD = "does not build"
# Cases that run the whole program, by folder.
WHOLE_RUNS = {
    "serial": "ExpectedRuns.(receiver|crossover)|SerialLink|serial_cable_tests",
    "fio": "ExpectedRuns.(fio_loop|spi_)|FioLoop|SpiMemory",
    "storage": "ExpectedRuns.(files|file_copy|dram)|FailedSetUp|FileSystem",
    "panel": "Panel",
    "runtime": "KernelFacts|StartUp|ExpectedRuns|Stopping|Requests|FailedSetUp",
    "supervisor": "KernelFacts|Runs|StartUp|Timer|Stopping|Requests|SerialLink|FioLoop|FailedSetUp|Processes"
                  "|StandardDescriptors|SharedMemory|SystemLog|OptionWalk"
                  "|ExpectedRuns",
}

def read(path, folder=ROOT):
    with open(os.path.join(folder, path)) as source:
        return source.read()


def write(path, text):
    with open(os.path.join(COPY, path), "w") as source:
        source.write(text)


def all_changes(pattern, kind):
    listed = subprocess.run(["git", "ls-files", *FOLDERS], cwd=ROOT, check=True, text=True,
                            stdout=subprocess.PIPE).stdout.split()
    chosen = [path for path in listed if fnmatch.fnmatch(path, pattern)]
    return [change for path in chosen if path.endswith((".cpp", ".h"))
            for change in changes_of(path, read(path), kind)]


def run(command, limit_s, cwd):
    """Exit status, None when it had to be ended."""
    with open(os.path.join(WORK, "last_output"), "w") as output:
        process = subprocess.Popen(command, cwd=cwd, stdout=output, stderr=subprocess.STDOUT,
                                   stdin=subprocess.DEVNULL, start_new_session=True,
                                   env={**os.environ, "HK_WAIT_SECONDS": "20"})
        try:
            return process.wait(limit_s)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return None


def run_apart(command, limit_s):
    """Runs a shell command where a changed program can do no harm."""
    scratch = os.path.join(WORK, "scratch")
    subprocess.run(["rm", "-rf", scratch], check=True)
    os.makedirs(scratch)
    guard = (f"ulimit -v {MEMORY_MAX_KB}; [ ! -e /sbin/reboot ] || mount --bind /bin/true /sbin/reboot; "
             f"cd {scratch}; {command}")
    return run(["unshare", "--pid", "--fork", "--kill-child", "--mount", "--mount-proc", "--ipc",
                "sh", "-c", guard], limit_s, WORK)


def build(targets, options):
    return run(["cmake", "--build", BUILD, "--target", *targets, "--", f"-j{options.jobs}"],
               options.limit, WORK)


def failed_test():
    with open(os.path.join(WORK, "last_output"), errors="replace") as output:
        found = re.search(r"Test +#\d+: (\S+).*\*\*\*|\[  FAILED  \] (\S+)", output.read())
    return (found[1] or found[2]) if found else "a crash"


def tests_notice(command, options):
    """What noticed the change; None when nothing did. A busy machine alone must not: once again."""
    for _ in range(2):
        status = run_apart(command, options.limit)
        if status == 0:
            return None
    return failed_test() if status is not None else "does not end"


def verdict_on(folder, options):
    """None, what noticed the change in the copy, or NO_BUILD."""
    whole_runs = (f"ctest --test-dir {BUILD} -j{options.tests_at_once} --stop-on-failure --no-tests=error "
                  f"-R '{WHOLE_RUNS[folder]}'")
    unit_tests = " && ".join(f"{BUILD}/{name} --gtest_brief=1" for name in UNIT_TESTS)
    for targets, command in ((UNIT_TESTS, unit_tests), (("all",), whole_runs)):
        status = build(targets, options)
        if status is None:
            sys.exit(f"the build did not end within {options.limit} s")
        if status != 0:
            return NO_BUILD
        noticed = tests_notice(command, options)
        if noticed:
            return noticed
    return None


def judge(change, options):
    original = read(change.path, COPY)
    write(change.path, change.applied_to(original))
    try:
        return verdict_on(change.path.split("/")[0], options)
    finally:
        write(change.path, original)


def copy_project():
    listed = subprocess.run(["git", "ls-files"], cwd=ROOT, check=True, text=True,
                            stdout=subprocess.PIPE).stdout.split("\n")
    for path in filter(None, listed):
        source, target = os.path.join(ROOT, path), os.path.join(COPY, path)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        if not os.path.exists(target) or not filecmp.cmp(source, target, shallow=False):
            shutil.copy(source, target)


def prepare(options):
    copy_project()
    subprocess.run(["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DHK_TESTS=ON",
                    "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O0 -g0"], check=True,
                   stdout=subprocess.DEVNULL)
    # The first build is the whole project's.
    if run(["cmake", "--build", BUILD, "--", f"-j{options.jobs}"], 3600, WORK) != 0:
        sys.exit(f"the unchanged program does not build, see {WORK}/last_output")
    for folder in sorted({change.path.split("/")[0] for change in options.changes}):
        verdict = verdict_on(folder, options)
        if verdict:
            sys.exit(f"the unchanged program fails: {verdict}, see {WORK}/last_output")


def describe(change):
    return f"{change.path}:{change.line}: {change}"


def is_equivalent(change):
    with open(EQUIVALENT) as listed:
        return f"{change.path}: {change}" in listed.read().split("\n")


def sample(changes, chance, count):
    """One change in each of `count` lines, so that a table of bytes is not most of the sample."""
    lines = {}
    for change in changes:
        lines.setdefault((change.path, change.line), []).append(change)
    chosen = chance.sample(sorted(lines), min(count, len(lines)))
    return [chance.choice(lines[line]) for line in sorted(chosen)]


def read_options():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kind", choices=KINDS, default=KINDS[0], help="what is changed")
    parser.add_argument("--sample", type=int, default=100, metavar="N", help="lines to change; 0: every change")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="of the random choice")
    parser.add_argument("--files", default="*", metavar="GLOB", help="only in these, as in 'fio/*'")
    parser.add_argument("--replay", metavar="FILE:LINE", action="append", default=[],
                        help="the changes of one line; may be repeated")
    parser.add_argument("--part", default="1/1", metavar="K/N",
                        help="the Kth of N parts, for several at a time; see HK_MUTATION_FOLDER")
    parser.add_argument("--limit", type=int, default=180, metavar="SECONDS", help="for each step of a change")
    parser.add_argument("--jobs", type=int, default=2, metavar="N", help="of a build")
    parser.add_argument("--tests-at-once", type=int, default=4, metavar="N")
    parser.add_argument("--least", type=float, default=0, metavar="PERCENT", help="of the changes must be noticed")
    parser.add_argument("--list", action="store_true", help="only show the changes")
    options = parser.parse_args()
    options.changes = all_changes(options.files, options.kind)
    if options.replay:
        options.changes = [c for c in options.changes if f"{c.path}:{c.line}" in options.replay]
    elif 0 < options.sample < len(options.changes):
        options.changes = sample(options.changes, random.Random(options.seed), options.sample)
    part, parts = map(int, options.part.split("/"))
    length = -(-len(options.changes) // parts)
    options.changes = options.changes[(part - 1) * length:part * length]
    return options


def main():
    options = read_options()
    if options.list:
        print("\n".join(map(describe, options.changes)))
        return
    prepare(options)
    survivors, noticed, equivalent, unbuilt = [], 0, 0, 0
    for index, change in enumerate(options.changes, 1):
        start = time.monotonic()
        verdict = judge(change, options)
        if verdict is None and is_equivalent(change):
            verdict = "equivalent"
            equivalent += 1
        elif verdict is None:
            survivors.append(change)
        elif verdict == NO_BUILD:
            unbuilt += 1
        else:
            noticed += 1
        print(f"{index}/{len(options.changes)} {time.monotonic() - start:.0f} s "
              f"{verdict or 'SURVIVED'}: {describe(change)}", flush=True)
    tried = noticed + len(survivors)
    print(f"\n{noticed} of {tried} changes noticed ({100 * noticed / max(tried, 1):.1f} %), "
          f"{equivalent} more are equivalent, {unbuilt} do not build. Not noticed:")
    for change in survivors:
        print("  " + describe(change))
    sys.exit(100 * noticed < options.least * tried)


if __name__ == "__main__":
    main()
