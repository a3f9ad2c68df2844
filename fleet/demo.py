#!/usr/bin/env python3
"""Four boards, one collector, one alert.

    fleet/demo.py BUILD     BUILD has hk_board, hk_stress and, where it is built, hk_results

The cable of one board breaks after some seconds. The alert names the board, the record and the
counter; the verdict on the collector's file says the same.
"""
import pathlib
import re
import subprocess
import sys
import time

import chain

BUILD = pathlib.Path(sys.argv[1]).resolve()
BOARDS = ('rack1-1', 'rack1-2', 'rack1-3', 'rack1-4')
FAULTY = 'rack1-3'
FAULT = 'pull:2:2000'  # frames from port 2 no longer arrive: after some twelve seconds
LIMIT_S = 60           # from the first list with an error to the alert
ERRORS = re.compile(r' errors (?!0,0,0 )')


def say(text):
    print(f'{time.strftime("%H:%M:%S")} {text}', flush=True)


def start_board(parts, name):
    fault = ['--fault', FAULT] if name == FAULTY else []
    return subprocess.Popen(
        [BUILD / 'hk_board', '--quiet', '--log', parts.folder / f'{name}.log', '--name', name,
         '--mac', f'02:00:00:00:00:0{name[-1]}', '--cable', '2-8', '--loop', '5s', *fault,
         '--forward', parts.start_board(name), '--', BUILD / 'hk_stress', '-d1', '-l5', '-h', '-E55', '-h', '-E28'],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def first_error(parts):
    return next((line for line in parts.kept_lines() if ERRORS.search(line)), None)


def watch(parts):
    """Waits for the fault and for the alert. Returns the alerts of the faulty board."""
    line = chain.wait_for('an error', lambda: first_error(parts), 120)
    seen = time.monotonic()
    say(f'the first error is in the collector\'s file:\n    {line.strip()}')
    alerts = chain.wait_for('the alert', lambda: parts.alerts('StressErrorMoves'), LIMIT_S)
    say(f'{time.monotonic() - seen:.1f} s later the alert is in Alertmanager:')
    for summary in sorted(alert['annotations']['summary'] for alert in alerts):
        print('   ', summary)
    return alerts


def logged(parts):
    """The number of lines that the boards have logged."""
    return sum(line.count(' Stress ') for name in BOARDS
               for line in (parts.folder / f'{name}.log').read_text().splitlines())


def verdict(parts):
    """Shows what hk_results says of the file. Returns False if it finds no fault."""
    chain.wait_for('the last lines', lambda: len(set(parts.kept_lines())) >= logged(parts))
    results = BUILD / 'hk_results'
    if not results.exists():
        say('hk_results is not built here; the lines are in ' + str(parts.kept))
        return True
    say('the verdict on the collector\'s file:')
    return subprocess.run([results, parts.kept], check=False).returncode == 1


def main():
    missing = chain.missing_packages()
    if missing:
        print('Skipped\nnot installed:', ', '.join(missing))
        return 77
    chain.enter()
    parts = chain.Chain(BUILD / 'fleet' / 'demo')
    parts.start_collector()
    parts.start_mtail()
    parts.start_prometheus()
    parts.start_alertmanager()
    say('collector, mtail, Prometheus and Alertmanager run')
    boards = [start_board(parts, name) for name in BOARDS]
    say(f'the boards {", ".join(BOARDS)} run; the cable of {FAULTY} will break')
    alerts = watch(parts)
    for board in boards:
        board.terminate()
    for board in boards:
        board.wait()
    say('the boards are stopped')
    is_confirmed = verdict(parts)
    parts.stop_all()
    return 0 if is_confirmed and all(alert['labels']['host'] == FAULTY for alert in alerts) else 1


if __name__ == '__main__':
    sys.exit(main())
