#!/usr/bin/env python3
"""Runs hk_stress with all 49 records in use on the simulated board, once for each stop signal, and
reports what it costs: time to start and to stop, processor time and memory by test.

    benchmarks/full_table.py [--release] BUILD_FOLDER [SECONDS]      60 s for each signal by default

With --release the tests that the command line holds are at work too, and -S1 takes the place of -D, which
would take the machine's memory. Exit status 1 when a run was not as it should be.
"""

import collections
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

RELEASED = "--release" in sys.argv
BOARD = ("--quiet --cable 1-2 --cable 3-5 --cable 7-8 --loop 4 --loop 6 --spi loop "
         "--spi reserved=loop --datakey present --eeprom good").split() + RELEASED * ["--release"]
PLAN = ("-C1 -P2 -C3 -P5 -E4 -E6 -S4 -S8".split() + 8 * ["-S1"] + 8 * ["-S2"]
        + [f"-Y/r0/{i}" for i in range(8)] + [f"-M/r0/a{i}:/r0/b{i}:0" for i in range(8)]
        + 7 * ["-S1" if RELEASED else "-D"] + ["-E78"])
# The last word of a run, said on the board, with which whatever is left of the program goes.
COUNT_LEFT = ('"$@"; status=$?; '
              'echo $(grep -lxs hk_stress /proc/[0-9]*/comm | wc -l) left >&2; exit $status')
TICK_S = 1 / os.sysconf("SC_CLK_TCK")


def children(pid):
    with open(f"/proc/{pid}/task/{pid}/children") as listed:
        return [int(child) for child in listed.read().split()]


def descendant(pid, name):
    for child in children(pid):
        with open(f"/proc/{child}/comm") as comm:
            if comm.read().strip() == name:
                return child
        found = descendant(child, name)
        if found:
            return found
    return None


def cpu_s(pid):
    with open(f"/proc/{pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) * TICK_S


def memory_kb(pid):
    """Its own pages, and its share of those it has in common with others."""
    with open(f"/proc/{pid}/smaps_rollup") as rollup:
        return int(re.search(r"Pss: +(\d+)", rollup.read())[1])


def show_costs(board, supervisor, seconds):
    tests = collections.defaultdict(list)
    for argument, pid in zip(PLAN, sorted(children(supervisor))):  # forked in this order
        option = argument[:3] if argument.startswith("-S") else argument[:2]
        tests[option].append((100 * cpu_s(pid) / seconds, memory_kb(pid)))
    boards = [board, *children(board)]
    rows = [("hk_board", [(100 * cpu_s(pid) / seconds, memory_kb(pid)) for pid in boards]),
            ("supervisor", [(100 * cpu_s(supervisor) / seconds, memory_kb(supervisor))]),
            *tests.items()]
    print("| Process | Number | CPU each, % | Memory each, KiB |\n|---|---|---|---|")
    for name, costs in rows:
        cpu, memory = zip(*costs)
        print(f"| {name} | {len(costs)} | {min(cpu):.2f} to {max(cpu):.2f} | {max(memory)} |")
    everything = [cost for _, costs in rows[1:] for cost in costs]
    print(f"All of hk_stress: {sum(cost[0] for cost in everything):.1f} % of a processor, "
          f"{sum(cost[1] for cost in everything) / 1024:.1f} MiB.")


def items_of(log):
    """Those of the last list."""
    last = log[log.rindex("<OL>"):log.rindex("</OL>")].split("\n")
    return [line[line.index("<LI>"):] for line in last if "<LI>" in line]


def is_fault(item):
    """A busy machine makes receivers hear silence and crossovers miss their deadline."""
    bad, failed, silent = map(int, re.search(r" errors (\d+),(\d+),(\d+) ", item).groups())
    is_loop = " loop " in item
    return bool(bad or (failed and not is_loop)
                or (silent and not is_loop and " consume " not in item))


def one_run(build, number, seconds, show):
    with tempfile.NamedTemporaryFile("r") as log:
        begin = time.monotonic()
        run = subprocess.Popen([f"{build}/hk_board", *BOARD, "--log", log.name, "--", "/bin/sh",
                                "-c", COUNT_LEFT, "sh", f"{build}/hk_stress", *PLAN],
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        while "numproc" not in (line := run.stderr.readline()):
            assert line, "the program did not start"
        started = time.monotonic()
        time.sleep(seconds)
        supervisor = descendant(run.pid, "hk_stress")
        tests = len(children(supervisor))
        if show:
            show_costs(run.pid, supervisor, seconds)
        stopping = time.monotonic()
        os.kill(supervisor, number)
        report, messages = run.communicate(timeout=30)
        stopped = time.monotonic()
        items = items_of(log.read())
    left = messages.split("\n")[-2]
    ended = report.count(" pid   -7 ")
    errors = [item for item in items if " errors 0,0,0 " not in item]
    print(f"{signal.Signals(number).name}: started in {started - begin:.2f} s, stopped in "
          f"{stopped - stopping:.2f} s, exit status {run.returncode}, {tests} tests, "
          f"{left}, {len(items)} list items, {ended} report lines; "
          f"with errors: {errors or 'none'}", flush=True)
    return ((run.returncode, tests, left, len(items), ended) == (0, 48, "0 left", 49, 45)
            and not any(map(is_fault, errors)))


def main():
    arguments = [word for word in sys.argv[1:] if word != "--release"]
    if len(arguments) not in (1, 2):
        sys.exit(__doc__)
    seconds = float(arguments[1]) if len(arguments) == 2 else 60
    good = [one_run(arguments[0], number, seconds, number == signal.SIGTERM)
            for number in (signal.SIGTERM, signal.SIGQUIT, signal.SIGUSR2, signal.SIGTSTP)]
    sys.exit(0 if all(good) else 1)


if __name__ == "__main__":
    main()
