#!/usr/bin/env python3
"""Runs a full table of hk_stress twice with each seed on the simulated board, in the board's own time,
and compares the two logs byte for byte.

    ./bench seeds --seeds 100

All 49 records are in use, on the board of ./bench soak. Faults strike at random moments, which the seed
determines, so that each seed has another log. Both runs of a seed go at the same time: they disturb each
other as any load of the machine does. Logs that differ stay in the build folder. Exit status 1 if any does.
"""
import argparse
import filecmp
import hashlib
import os
import resource
import shlex
import subprocess
import sys
import time

from soak_faults import BOARD

# All 49 records in the 48 arguments that hk_stress reads. -b9600 and -b1200 make the lines slow and a run cheap.
PLAN = ('-d5 -l10 -S4 -b9600 -C1 -P4 -E33 -LKDhb1200 -E77 -Fhb9600 -E28'.split()
        + 2 * ['-S1'] + 2 * ['-S2'] + [f'-Y/r0/{i}' for i in range(17)]
        + [f'-M/r0/a{i}:/r0/b{i}:0' for i in range(16)])
# A run is cheap enough for a hundred seeds: the tests that load the machine most, -S4 (the first record),
# -D, -Y and -M, work 1 s in 300; those that make most calls, -S1, -S2 and -F, work 30 s in 300.
WORKLOAD = ('(sleep 1; while "$HK_CTL" hold 1 Y D M; do sleep 29; "$HK_CTL" hold S F; sleep 270; '
            '"$HK_CTL" release 1 Y D M S F; sleep 1; done) >/dev/null 2>&1 & exec "$@"')
KEYS = 's q p @50 s s'
TIME_IS_UP = 124  # the status of a run that --for ends
# Events an hour: most strike some times in ten minutes.
FAULTS = ('flip:2:3~60 drop:8:5~30 cut:3~30 insert:4:30~60 lines:2-8~20 garble:7s:3~60 lose:20:5~60 '
          'corrupt:16:3~60 lose:manufacturer:9~60 fail:datakey:9~60 fail:eeprom:9~60 full:r0~20 gone:eth0~20 '
          'gone:led~20').split()


def start(build, seed, seconds, log):
    command = [f'{build}/hk_board', '--quiet', '--clock', 'virtual', '--seed', str(seed), '--for', str(seconds),
               *BOARD, '--keys', KEYS, '--log', log]
    for fault in FAULTS:
        command += ['--fault', fault]
    environment = {**os.environ, 'HK_CTL': os.path.abspath(f'{build}/hk_ctl')}
    return subprocess.Popen([*command, '--', 'sh', '-c', WORKLOAD, 'sh', f'{build}/hk_stress', *PLAN],
                            env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True)


def hash_of(log):
    with open(log, 'rb') as text:
        return hashlib.sha256(text.read()).hexdigest()


def try_seed(build, seed, seconds):
    """Two runs; prints their line. True if their logs are the same."""
    logs = [f'{build}/seed-{seed}-{number}.log' for number in (1, 2)]
    began = time.monotonic()
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    runs = [start(build, seed, seconds, log) for log in logs]
    messages = [run.communicate()[1] for run in runs]
    real = time.monotonic() - began
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    for run, message in zip(runs, messages):
        if run.returncode != TIME_IS_UP:
            sys.exit(f'{shlex.join(run.args)}\nended with status {run.returncode}:\n{message}')
    is_same = filecmp.cmp(*logs, shallow=False)
    print(f'seed {seed:4}: {seconds} s on the board twice in {real:6.1f} s, {used:6.1f} s of processor time, '
          f'log {hash_of(logs[0])[:16]}, {"same" if is_same else "DIFFERENT"}', flush=True)
    if is_same:
        for log in logs:
            os.unlink(log)
    return is_same


def main():
    arguments = argparse.ArgumentParser(prog='./bench seeds', usage='%(prog)s [--seeds N] [--first N] [--seconds N]',
                                        description=__doc__.split('\n\n')[0])
    arguments.add_argument('build', help=argparse.SUPPRESS)  # the folder of the programs, from ./bench
    arguments.add_argument('--seeds', type=int, default=3, help='how many (3)')
    arguments.add_argument('--first', type=int, default=1, help='the first of them (1)')
    arguments.add_argument('--seconds', type=int, default=600, help='on the board, for each run (600)')
    given = arguments.parse_args()
    results = [try_seed(given.build, seed, given.seconds) for seed in range(given.first, given.first + given.seeds)]
    print(f'{results.count(True)} of {len(results)} seeds have the same log twice')
    sys.exit(0 if all(results) else 1)


if __name__ == '__main__':
    main()
