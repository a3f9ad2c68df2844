#!/usr/bin/env python3
"""hk_results --follow as a script uses it: python3 follow_test.py HK_RESULTS HK_BOARD.

The end of a run of --follow is the first failure with --fail-fast, or a signal. A list that has no end by
then is cut, if the end does not follow at once.
"""
import contextlib
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

RECORD = '<LI> 5 sp2 loop wrote {count} read {count} errors {errors},0,0 hist 0,0 0,0 0,0 0,0 0,0'
LIMIT_S = 60


def results_list(minute, errors=0):
    start = f'2026-11-22T01:{minute:02}:00+00:00 rack7 oven: '
    record = RECORD.format(count=1000 * minute, errors=errors)
    return [f'{start}{text}\n' for text in ('<OL>', record, '</OL><P>')]


def append(log, lines):
    with log.open('a', encoding='ascii') as file:
        file.writelines(lines)


def path_of(descriptor):
    """The file of a descriptor in /proc; none if it has been closed meanwhile."""
    with contextlib.suppress(OSError):
        return os.readlink(descriptor)
    return None


def has_open(process, log):
    names = f'/proc/{process.pid}/fd'
    return any(path_of(f'{names}/{each}') == str(log) for each in os.listdir(names))


@contextlib.contextmanager
def following(program, log, *options):
    """The process, once it has opened the log; it is killed if the test fails."""
    with subprocess.Popen([program, '--follow', *options, log], stdout=subprocess.PIPE, text=True) as process:
        try:
            end = time.monotonic() + LIMIT_S
            while not has_open(process, log):
                assert time.monotonic() < end, 'the log is not opened'
                time.sleep(0.01)
            yield process
        finally:
            process.kill()


def expect_end(process, status, said):
    text = process.communicate(timeout=LIMIT_S)[0]
    assert process.returncode == status and said in text, (process.returncode, text)


def expect_end_after_signal(program, board, log):
    """In the board's time the end of the list comes 0.1 s after the signal."""
    *begin, end = results_list(10)
    log.write_text(''.join(begin), encoding='ascii')
    script = f"{program} --follow {log} & sleep 1; kill -INT $!; sleep 0.1; echo '{end}' >>{log}; wait $!"
    subprocess.run([board, '--clock', 'virtual', '--', 'sh', '-c', script], stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True, timeout=LIMIT_S)


def main():
    program, board = sys.argv[1:]
    with tempfile.TemporaryDirectory() as name:
        log = pathlib.Path(name).resolve() / 'oven.log'
        append(log, results_list(10))
        with following(program, log) as process:
            append(log, results_list(11))
            process.send_signal(signal.SIGTERM)
            expect_end(process, 0, '2 lists')

        with following(program, log) as process:
            append(log, results_list(12)[:2])
            process.send_signal(signal.SIGINT)
            expect_end(process, 1, '1 of 3 lists is not complete')

        with following(program, log, '--fail-fast') as process:
            append(log, results_list(12)[2:])
            log.rename(log.with_suffix('.1'))
            append(log, results_list(13, errors=1) + results_list(14, errors=2))
            expect_end(process, 1, '4 lists')
        expect_end_after_signal(program, board, log)

    missing = [program, '--follow', '/proc/none.log']
    with subprocess.Popen(missing, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
        assert 'is not there: waiting for it' in process.stderr.readline()
        process.send_signal(signal.SIGTERM)
        expect_end(process, 2, 'NOTHING TESTED')

    wrong = subprocess.run([program, '--follow'], stdin=subprocess.DEVNULL, capture_output=True, check=False, text=True)
    assert wrong.returncode == 2 and wrong.stderr.startswith('hk_results: --follow'), wrong


if __name__ == '__main__':
    main()
