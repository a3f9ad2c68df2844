#!/usr/bin/env python3
"""How fast hk_results reads, against grep, and how much memory it takes.

A log of 500 boards, of which a few or all have errors in every record, and one of many boards with few lists
each. Both programs read the same file in turns; the median of their processor times counts, as a shared machine says little of the clock on the wall.
"""
import os
import resource
import statistics
import subprocess
import sys
import tempfile

ROUNDS = 5


def write_log(path, boards, lists, good_boards=0.95):
    """Lists of five records. Every record of the other boards has errors."""
    bad_boards = boards - round(boards * good_boards)
    with open(path, 'w', encoding='ascii') as log:
        for number in range(lists):
            seconds = 10 * number
            time = f'2026-11-22T{seconds // 3600 % 24:02}:{seconds // 60 % 60:02}:{seconds % 60:02}+00:00'
            clean = 'errors 0,0,0 hist 0,0 0,0 0,0 0,0 0,0\n'
            for board in range(boards):
                start = f'{time} rack{board % 97} Stress 02{board:010x} : '
                count = 2400 * (number + 1) + board % 50
                wrong = f'errors {number},0,0 hist 3,40 4,33 7,218 3,8 4,9\n' if board < bad_boards else clean
                failed = f'errors 0,0,{number} hist 0,0 0,0 0,0 0,0 0,0\n' if board < bad_boards else clean
                log.write(f'{start}<OL>\n'
                          f'{start}<LI> 3 sp1 consume read {2 * count} verify {2 * count} {wrong}'
                          f'{start}<LI> 4 sp4 produce wrote {count} verify {count} {failed}'
                          f'{start}<LI> 5 sp5 loop wrote {count} read {count} {wrong}'
                          f'{start}<LI> 0 sp2 loop wrote {count} read {count} {wrong}'
                          f'{start}<LI> 5 sp8 loop wrote {count} read {count} {wrong}'
                          f'{start}</OL><P>\n')


def run(command):
    """Processor seconds and greatest memory, in bytes."""
    # Not to /dev/null: grep(1) ends at the first match if nobody sees its output.
    with tempfile.TemporaryFile() as output, \
            subprocess.Popen(command, stdout=output, env={**os.environ, 'LC_ALL': 'C'}) as child:
        _, _, used = os.wait4(child.pid, 0)
        child.returncode = 0
    return used.ru_utime + used.ru_stime, used.ru_maxrss * 1024


def compare(program, path, what):
    """Prints the speed of both programs on the file."""
    size = os.path.getsize(path) / 1e6
    rounds = [(run([program, path]), run(['grep', '-c', '<LI>', path])) for _ in range(ROUNDS)]
    own = statistics.median(result[0][0] for result in rounds)
    grep = statistics.median(result[1][0] for result in rounds)
    print(f'{what}, {size:.0f} MB: hk_results {size / own:.0f} MB/s of processor time, '
          f'grep -c {size / grep:.0f} MB/s, ratio {grep / own:.2f}')


def main():
    program = sys.argv[1]
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, 'boards.log')
        for what, good_boards in (('1 board in 20 bad', 0.95), ('all boards bad   ', 0)):
            write_log(path, 500, 700, good_boards)
            compare(program, path, what)
        boards = 100_000
        write_log(path, boards, 2)
        _, memory = run([program, path])
        records = 5 * boards
        print(f'memory: {memory / 1e6:.0f} MB for {records} records of {boards} boards: '
              f'{(memory - 64e6) / records:.0f} bytes a record beyond 64 MB')


if __name__ == '__main__':
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    main()
