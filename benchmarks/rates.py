#!/usr/bin/env python3
"""How fast a producer sends (-C1 -P4) on the simulated board, against what the line and its pauses give.

A turn of the producer is a block of 16 characters of 10 bits and a pause of 2 ms. The blocks are counted
between the second list and the last one, so that the start of the run does not count. With --clock real a
pause is as long as this machine makes it: how long a sleep of 2 ms takes meanwhile is measured beside the run.
Steal is the share of time in which another guest had this machine's processors.
"""
import argparse
import datetime
import re
import statistics
import subprocess
import sys
import threading
import time

BITS_OF_BLOCK = 16 * 10
PAUSE_S = 0.002

# Speed in bit/s, most difference in per cent with the machine's clock.
SPEEDS = ((1200, 2), (9600, 2), (38400, 10), (115200, 10))
VIRTUAL_PERCENT = 2

LINE = re.compile(r'^(\S+ \S+) .*<LI> \d+ sp4 produce wrote (\d+)')


class SleepMeter(threading.Thread):
    """Measures how long a sleep of the producer's pause takes on this machine, 20 times a second."""

    def __init__(self):
        super().__init__(daemon=True)
        self.is_over = threading.Event()
        self.seconds = []

    def run(self):
        while not self.is_over.wait(0.05):
            began = time.monotonic()
            time.sleep(PAUSE_S)
            self.seconds.append(time.monotonic() - began)

    def mean(self):
        self.is_over.set()
        self.join()
        return statistics.fmean(self.seconds)


def steal_ticks():
    """Ticks of all processors: stolen by other guests, and in all."""
    with open('/proc/stat', encoding='ascii') as stat:
        ticks = [int(word) for word in stat.readline().split()[1:9]]
    return ticks[7], sum(ticks)


def lists_of(log):
    """Seconds and blocks of each list that shows the producer."""
    for line in log.splitlines():
        if found := LINE.match(line):
            yield datetime.datetime.fromisoformat(found[1]).timestamp(), int(found[2])


def measure(build, clock, bps, seconds):
    """Blocks that the producer has sent, those expected in the same time, and the pause in seconds."""
    command = [f'{build}/hk_board', '--clock', clock, '--for', str(seconds), '--cable', '1-4', '--',
               f'{build}/hk_stress', '-d1', '-l5', f'-b{bps}', '-C1', '-P4']
    meter = SleepMeter()
    meter.start()
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    pause = meter.mean() if clock == 'real' else PAUSE_S
    lists = list(lists_of(done.stdout))
    if len(lists) < 3:
        sys.exit(f'{bps} bit/s: fewer than three lists in the log; the run must be longer')
    (begin_s, begin), (end_s, end) = lists[1], lists[-1]
    return end - begin, (end_s - begin_s) / (BITS_OF_BLOCK / bps + pause), pause


def main():
    arguments = argparse.ArgumentParser(prog='./bench rates', usage='%(prog)s [--clock real|virtual] [--seconds N]',
                                        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument('build', help=argparse.SUPPRESS)  # the folder of the programs, from ./bench
    arguments.add_argument('--clock', choices=('real', 'virtual'), default='real')
    arguments.add_argument('--seconds', type=int, default=30, help='of each speed, at least 20 (30)')
    given = arguments.parse_args()
    stolen, ticks = steal_ticks()
    print('  bit/s  pause, ms  expected   counted  difference', flush=True)
    is_good = True
    for bps, real_percent in SPEEDS:
        counted, expected, pause = measure(given.build, given.clock, bps, given.seconds)
        percent = (counted / expected - 1) * 100
        limit = VIRTUAL_PERCENT if given.clock == 'virtual' else real_percent
        is_good = is_good and abs(percent) <= limit
        print(f'{bps:7}{pause * 1000:11.2f}{expected:10.0f}{counted:10}{percent:+10.2f} %, at most {limit} %', flush=True)
    stolen_now, ticks_now = steal_ticks()
    print(f'steal: {(stolen_now - stolen) * 100 / max(1, ticks_now - ticks):.1f} %')
    return 0 if is_good else 1


if __name__ == '__main__':
    sys.exit(main())
