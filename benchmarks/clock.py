#!/usr/bin/env python3
"""How fast the board's own time passes (hk_board --clock virtual), against the goals for it.

An hour on the board of a crossover alone and of the demo's job, and of both under the emulator if the
PowerPC program is built. On a busy machine look at the processor seconds, of board and program
together: the real ones then say how busy it is. On a virtual machine the hypervisor takes processors away
for a time: each line has these seconds too, for each processor.
"""
import argparse
import os
import resource
import shutil
import subprocess
import time

HOUR = 3600
STEAL = 8  # field of a line of /proc/stat
EMULATOR = 'qemu-ppc'
POWERPC_PROGRAM = 'build/powerpc/hk_stress'

CROSSOVER = (['--cable', '2-8'], ['-d1', '-l10', '-E28'])
DEMO = (['--cable', '2-8', '--loop', '5s', '--cable', '1-4'],
        ['-d1', '-l10', '-C1', '-P4', '-h', '-E55', '-h', '-E28'])

# Job, options, whether it is emulated, most real seconds for an hour on the board.
JOBS = (
    ('-E28', CROSSOVER, False, 80),
    ("the demo's job", DEMO, False, 150),
    ('-E28, PowerPC', CROSSOVER, True, 160),
    ("demo's, PowerPC", DEMO, True, 300),
)


def stolen():
    """Seconds that the hypervisor has taken from each processor, see the column steal in proc(5)."""
    with open('/proc/stat', encoding='ascii') as lines:
        rows = [line.split() for line in lines if line.startswith('cpu') and line[3].isdigit()]
    return [int(row[STEAL]) / os.sysconf('SC_CLK_TCK') for row in rows]


def run(command):
    """Real and processor seconds of a command and everything that it started; seconds stolen meanwhile."""
    began, stolen_before = time.monotonic(), stolen()
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    taken = [after - before for before, after in zip(stolen_before, stolen())]
    return time.monotonic() - began, used, taken


def measure(build, job, seconds):
    """Runs one job and prints its line."""
    name, (board_options, plan), is_emulated, goal = job
    program = [EMULATOR, POWERPC_PROGRAM] if is_emulated else [f'{build}/hk_stress']
    board = [f'{build}/hk_board', '--quiet', '--clock', 'virtual', '--for', str(seconds)]
    real, used, taken = run([*board, *board_options, '--', *program, *plan])
    print(f'{name:16}{real:8.1f} s real, {used:6.1f} s of processor time, '
          f'{"+".join(f"{each:.1f}" for each in taken)} s stolen, {seconds / real:6.1f} times real time; '
          f'goal {goal * seconds / HOUR:.1f} s, {HOUR / goal:.1f} times', flush=True)


def main():
    arguments = argparse.ArgumentParser(prog='./bench clock', usage='%(prog)s [--seconds N]',
                                        description=__doc__.split('\n\n')[0])
    arguments.add_argument('build', help=argparse.SUPPRESS)  # the folder of the programs, from ./bench
    arguments.add_argument('--seconds', type=int, default=HOUR, help='on the board, for each job (3600)')
    given = arguments.parse_args()
    can_emulate = shutil.which(EMULATOR) and os.path.exists(POWERPC_PROGRAM)
    load = os.getloadavg()[0]
    print(f'{given.seconds} s on the board; load of this machine {load:.1f}, {os.cpu_count()} processors', flush=True)
    for job in JOBS:
        if job[2] and not can_emulate:
            print(f'{job[0]:16}left out: needs {EMULATOR} and {POWERPC_PROGRAM} (cmake --preset powerpc)')
        else:
            measure(given.build, job, given.seconds)


if __name__ == '__main__':
    main()
