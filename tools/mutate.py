#!/usr/bin/env python3
"""Makes one small change of the program at a time and reports which changes the tests do not notice.

    tools/mutate.py                              a constant or comparison in a random hundred lines
    tools/mutate.py --kind statements            deletes statements; see program_changes.py for the kinds
    tools/mutate.py --sample 300 --seed 2        more, others
    tools/mutate.py --files 'serial/*' --files 'fio/*' --sample 0    every change in two folders
    tools/mutate.py --kind statements --retry    those that were not noticed last time, again
    tools/mutate.py --replay 'fio/fio_frame.cpp:31'  the changes of one line again

The programs are changed, not the simulated board: it comes from the build of the host preset, which
must be there. The tests of a change are in layers, the quick ones first; the first layer that notices
it ends them. A change counts as noticed when tests fail or do not end, twice in a row. A change that
does not build is no change.

It works on a copy of the project below build/mutation, or below HK_MUTATION_FOLDER, where another
one runs at the same time. Each result goes to KIND.results there, and the next call goes on after it, as
long as programs and tests are the same. A changed program may kill every process it sees, map memory without end
or leave files anywhere: its tests run in namespaces of their own, with limited memory and in a scratch
folder. Needs root, or the right to make such namespaces.

Changes that alter nothing anybody could see are listed in equivalent_changes.txt; they are made all the
same, and counted apart when they are not noticed. With --least the exit status is 1 when fewer per cent
of the others are noticed. It is 2 when there is no such change.
"""

import argparse
import collections
import filecmp
import fnmatch
import hashlib
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time

from change_tests import BOARD, BUILD, COPY, OTHER_TARGETS, ROOT, UNIT_TESTS, WORK, layers_for
from program_changes import KINDS, changes_of

FOLDERS = ("runtime", "supervisor", "serial", "fio", "storage", "panel", "ctl", "results")
# What a result is of, beside the programs.
JUDGES = ("simulator", "tests", "boards", "tools", "cmake", "CMakeLists.txt", "README.md", "man")
MEMORY_MAX_KB = 8 << 20
BUILD_LIMIT_S = 3600

EQUIVALENT = os.path.join(ROOT, "tools", "equivalent_changes.txt")
NO_BUILD, SURVIVED, IS_EQUIVALENT = "does not build", "SURVIVED", "equivalent"


def read(path, folder=ROOT):
    with open(os.path.join(folder, path)) as source:
        return source.read()


def write(path, text):
    with open(os.path.join(COPY, path), "w") as source:
        source.write(text)


def listed(*folders):
    """The files of the project, or those of some folders."""
    return subprocess.run(["git", "ls-files", *folders], cwd=ROOT, check=True, text=True,
                          stdout=subprocess.PIPE).stdout.splitlines()


def all_changes(patterns, kind):
    chosen = [path for path in listed(*FOLDERS) if any(fnmatch.fnmatch(path, pattern) for pattern in patterns)]
    return [change for path in chosen if path.endswith((".cpp", ".h"))
            for change in changes_of(path, read(path), kind)]


# Running

def run(command, limit_s):
    """Exit status, None when it had to be ended."""
    with open(os.path.join(WORK, "last_output"), "w") as output:
        process = subprocess.Popen(command, cwd=WORK, stdout=output, stderr=subprocess.STDOUT,
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
    guard = (f"ulimit -S -v {MEMORY_MAX_KB}; [ ! -e /sbin/reboot ] || mount --bind /bin/true /sbin/reboot; "
             f"cd {scratch}; {command}")
    return run(["unshare", "--pid", "--fork", "--kill-child", "--mount", "--mount-proc", "--ipc",
                "sh", "-c", guard], limit_s)


def build(targets):
    status = run(["cmake", "--build", BUILD, "--target", *targets, "--", "-j2"], BUILD_LIMIT_S)
    if status is None:
        sys.exit(f"the build did not end within {BUILD_LIMIT_S} s")
    return status == 0


def failed_test():
    with open(os.path.join(WORK, "last_output"), errors="replace") as output:
        text = output.read()
    found = re.search(r"Test +#\d+: (\S+).*\*\*\*|\[  FAILED  \] (\S+)|^(\w+\.\w+): ", text, re.MULTILINE)
    started = re.findall(r"\[ RUN      \] (\S+)|Start +\d+: (\S+)", text)
    return next(filter(None, found.groups())) if found else "in ".join(filter(None, started[-1])) if started else "?"


def what_notices(layer):
    """None when nothing does. A busy machine alone must not: once again."""
    for _ in range(2):
        status = run_apart(layer.command, layer.limit_s)
        if status == 0:
            return None
    return f"{layer.name}: {'' if status is not None else 'does not end in '}{failed_test()}"


def verdict_on(layers):
    """What noticed the change in the copy, NO_BUILD or SURVIVED."""
    for layer in layers:
        if not build(layer.targets):
            return NO_BUILD
        noticed = what_notices(layer)
        if noticed:
            return noticed
    return SURVIVED


def judge(change):
    original = read(change.path, COPY)
    write(change.path, change.applied_to(original))
    try:
        verdict = verdict_on(layers_for(change.path))
    finally:
        write(change.path, original)
    return IS_EQUIVALENT if verdict == SURVIVED and is_equivalent(change) else verdict


# The unchanged program

def copy_project():
    """Whether the copy was another one."""
    is_other = False
    for path in listed():
        source, target = os.path.join(ROOT, path), os.path.join(COPY, path)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        if not os.path.exists(target) or not filecmp.cmp(source, target, shallow=False):
            shutil.copy(source, target)
            is_other = True
    return is_other


def build_copy():
    subprocess.run(["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DHK_TESTS=ON", "-DHK_SIMULATOR=OFF",
                    f"-DHK_BOARD={BOARD}", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O0 -g0",
                    "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"], check=True, stdout=subprocess.DEVNULL)
    if not os.path.lexists(f"{BUILD}/hk_board"):
        os.symlink(BOARD, f"{BUILD}/hk_board")
    if not build((*UNIT_TESTS, *OTHER_TARGETS)):
        sys.exit(f"the unchanged program does not build, see {WORK}/last_output")


def prepare(changes):
    """Builds the copy. Each layer passes with the unchanged program, and gets its time limit."""
    path = os.path.join(WORK, "limits.json")
    if copy_project() or not os.path.exists(path):
        write(path, "{}")
    build_copy()
    limits = json.loads(read(path))
    for layer in (layer for layers in {layers_for(change.path) for change in changes} for layer in layers):
        start = time.monotonic()
        noticed = layer.command not in limits and what_notices(layer)
        if noticed:
            sys.exit(f"the unchanged program fails: {noticed}, see {WORK}/last_output")
        layer.limit_s = limits.setdefault(layer.command, 20 + 5 * (time.monotonic() - start))
        write(path, json.dumps(limits))


# The changes

def describe(change):
    return f"{change.path}:{change.line}: {change}"


def equivalent_changes():
    return [line for line in read(EQUIVALENT).split("\n") if line and not line.startswith("#")]


def is_equivalent(change):
    return f"{change.path}: {change}" in equivalent_changes()


def warn_of_wrong_entries():
    """Each stands for one change; the program has changed since these were listed."""
    known = collections.Counter(f"{change.path}: {change}" for kind in KINDS for change in all_changes("*", kind))
    for line, entries in collections.Counter(equivalent_changes()).items():
        if known[line] != entries:
            print(f"{os.path.basename(EQUIVALENT)}: {entries} for {known[line]} such changes: {line}", file=sys.stderr)


def sample(changes, chance, count):
    """One change in each of `count` lines, so that a table of bytes is not most of the sample. In no order:
    the first half is a sample too."""
    lines = {}
    for change in changes:
        lines.setdefault((change.path, change.line), []).append(change)
    chosen = chance.sample(sorted(lines), min(count, len(lines)))
    return [chance.choice(lines[line]) for line in chosen]


def read_options():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kind", choices=KINDS, default=KINDS[0], help="what is changed")
    parser.add_argument("--sample", type=int, default=100, metavar="N", help="lines to change; 0: every change")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="of the random choice")
    parser.add_argument("--files", action="append", metavar="GLOB",
                        help="only in these, as in 'fio/*'; may be repeated")
    parser.add_argument("--replay", metavar="FILE:LINE", action="append", default=[],
                        help="the changes of one line, also if they have a result; may be repeated")
    parser.add_argument("--retry", action="store_true", help="only those that were not noticed last time, again")
    parser.add_argument("--least", type=float, default=0, metavar="PERCENT", help="of the changes must be noticed")
    parser.add_argument("--list", action="store_true", help="only show the changes")
    options = parser.parse_args()
    options.results = os.path.join(WORK, f"{options.kind}.results")
    options.changes = all_changes(options.files or "*", options.kind)
    if options.replay:
        options.changes = [c for c in options.changes if f"{c.path}:{c.line}" in options.replay]
    elif options.retry:
        last = {**read_results(options.results + ".old"), **read_results(options.results)}
        options.changes = [c for c in options.changes if last.get(describe(c)) in (SURVIVED, IS_EQUIVALENT)]
    elif 0 < options.sample < len(options.changes):
        options.changes = sample(options.changes, random.Random(options.seed), options.sample)
    return options


def state_of_the_sources():
    """Changes with any file that a result depends on."""
    digest = hashlib.sha256()
    for path in listed(*FOLDERS, *JUDGES):
        with open(os.path.join(ROOT, path), "rb") as source:
            digest.update(hashlib.sha256(source.read()).digest())
    return digest.hexdigest()


def read_results(path):
    """What is in a file of results, whatever the sources were."""
    if not os.path.exists(path):
        return {}
    with open(path) as results:
        return dict(line.rstrip("\n").split("\t")[::-1] for line in results.readlines()[1:])


def begin_results(path):
    """Puts results of other sources aside."""
    state = state_of_the_sources() + "\n"
    if os.path.exists(path):
        with open(path) as results:
            if results.readline() == state:
                return
        os.replace(path, path + ".old")
        print("Programs or tests are others than last time: the results begin anew.")
    with open(path, "w") as results:
        results.write(state)


def report(changes, results, least):
    """Prints the figures; the exit status."""
    verdicts = [results[describe(change)] for change in changes]
    counts = collections.Counter(verdict.partition(":")[0] for verdict in verdicts)
    survivors, equivalent, unbuilt = counts.pop(SURVIVED, 0), counts.pop(IS_EQUIVALENT, 0), counts.pop(NO_BUILD, 0)
    noticed = counts.total()
    tried = noticed + survivors
    print(f"\n{noticed} of {tried} changes noticed ({100 * noticed / max(tried, 1):.1f} %), "
          f"{equivalent} more are equivalent, {unbuilt} do not build.")
    for layer, count in counts.most_common():
        print(f"  {count} by {layer}")
    print("Not noticed:", *(f"\n  {describe(c)}" for c, verdict in zip(changes, verdicts) if verdict == SURVIVED))
    return 100 * noticed < least * tried


def main():
    options = read_options()
    warn_of_wrong_entries()
    if not options.changes:
        print("there is no such change", file=sys.stderr)
        return 2
    if options.list:
        print("\n".join(map(describe, options.changes)))
        return 0
    os.makedirs(WORK, exist_ok=True)
    begin_results(options.results)
    results = read_results(options.results)
    left = [change for change in options.changes
            if options.replay or options.retry or describe(change) not in results]
    if left:
        prepare(left)
    for index, change in enumerate(left, 1):
        start = time.monotonic()
        results[describe(change)] = verdict = judge(change)
        with open(options.results, "a") as file:
            file.write(f"{verdict}\t{describe(change)}\n")
        print(f"{index}/{len(left)} {time.monotonic() - start:.0f} s {verdict}: {describe(change)}", flush=True)
    return report(options.changes, results, options.least)


if __name__ == "__main__":
    sys.exit(main())
