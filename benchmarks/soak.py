#!/usr/bin/env python3
"""Runs all kinds of tests of hk_stress at once on the simulated board, for hours of the board's own time, with
random faults, and judges the run by what hk_results reads from the log.

    ./bench soak 24 --seed 3

The seed determines the faults, and so the whole log. Each fault has a window of seconds. With --work SECONDS
the tests work the last seconds of each half hour and are held before, which makes a day cheap; faults strike
while they work. The run is good if

  - the counters that a fault moves have moved between the start of its window and the grace after its end;
  - no error counter of any record has moved at any other time;
  - every test makes progress, unless a fault hinders it;
  - hk_results finds every record that the options bring, and names those that failed, no others.

A counter is read from one list to the next. Faults at one place, the devices that a test uses, are so far
apart that every error belongs to one of them. Faults at different places overlap.
"""
import argparse
import collections
import csv
import datetime
import json
import os
import re
import shlex
import subprocess
import sys
import time

from soak_faults import (BOARD, LEAST_S, LEAST_WORK_S, LINES, PERIOD_S, PLAN, RECORDS, SETTLE_S, drawn_faults,
                         is_at_work)

HOUR = 3600
MOST_HOURS = 10000
# The tests that load the machine most work 10 s in 100, for an hour of them costs ten minutes each: -D,
# -Y, and the loopback -S4. -M works all the time.
WORKLOAD = ('(sleep 5; "$HK_CTL" hold 7; "$HK_CTL" release M; while sleep 85; do "$HK_CTL" release Y D 7; '
            'sleep 10; "$HK_CTL" hold Y D 7; done) >/dev/null 2>&1 & exec "$@"')
# With --work all of them but the panel work at the end of each period, those that load the machine most for 10 s.
OTHERS = ' '.join(str(number) for number, name in enumerate(RECORDS, 1) if name != 'K')
SHORT_WORKLOAD = f'''(
until_work() {{ sleep $((({2 * PERIOD_S} - WORK - $(date +%s) % {PERIOD_S}) % {PERIOD_S})); }}
sleep 5; "$HK_CTL" hold {OTHERS}
while until_work; do
    "$HK_CTL" release {OTHERS}; sleep 10; "$HK_CTL" hold Y D 7
    sleep $(({PERIOD_S} - $(date +%s) % {PERIOD_S})); "$HK_CTL" hold {OTHERS}
done) >/dev/null 2>&1 & exec "$@"'''
HELD = ('S4', 'Y', 'D')  # most of the time, by this workload
# Keys of the panel: the fourth ESC restarts the board's software, which here is a line in the log.
KEYS = 's q p @50 s s s s @540 r'
KEYS_S = 600


# The run.

def run(build, log, seconds, work, faults):
    keys = ' '.join([KEYS] * (1 + seconds // KEYS_S))
    command = [f'{build}/hk_board', '--quiet', '--clock', 'virtual', '--for', str(seconds), '--log', log, *BOARD,
               '--keys', keys]
    for fault in faults:
        command += ['--fault', f'{fault.text}@{fault.begin}-{fault.end}']
    workload = WORKLOAD if work == PERIOD_S else SHORT_WORKLOAD
    command += ['--', 'sh', '-c', workload, 'sh', f'{build}/hk_stress', *PLAN]
    environment = {**os.environ, 'HK_CTL': os.path.abspath(f'{build}/hk_ctl'), 'WORK': str(work)}
    done = subprocess.run(command, env=environment, capture_output=True, text=True, check=False)
    # Two tests with two records: the supervisor waits for ever, and the board ends it.
    if done.returncode != 124 or 'within 5 s of SIGTERM' not in done.stderr:
        sys.exit(f'{shlex.join(command)}\nended with status {done.returncode}:\n{done.stderr}')


# What the lists say.

def lists_of(build, log):
    """Of each record, what each list says of it: seconds since the start, second count, three errors."""
    table = subprocess.run([f'{build}/hk_results', '--format', 'csv', log],
                           capture_output=True, text=True, check=False)
    midnight = datetime.datetime(2026, 1, 1)
    lists = collections.defaultdict(list)
    for row in csv.DictReader(table.stdout.splitlines()):
        at = (datetime.datetime.fromisoformat(row['time']) - midnight).total_seconds()
        errors = [int(row[f'error {number}']) for number in (1, 2, 3)]
        lists[LINES[int(row['record']) - 1]].append((at, int(row['second count']), errors))
    return lists


def movements(lists):
    """Each step of a counter: counter, errors, and the seconds between which they came."""
    for record, rows in lists.items():
        for (before, _, old), (after, _, new) in zip([(0, 0, [0, 0, 0]), *rows], rows):
            for number in range(3):
                if new[number] != old[number]:
                    yield f'{record}.{number + 1}', new[number] - old[number], before, after + 1


def findings_of_counters(lists, faults):
    """Books each error on its fault; returns those that no fault explains."""
    findings = []
    for counter, errors, earliest, latest in movements(lists):
        owners = [fault for fault in faults if counter in fault.may and fault.is_there(earliest, latest)]
        if len(owners) == 1 and errors > 0:
            owners[0].counted[counter] += errors
        else:
            findings.append(f'{counter} moved by {errors} between {earliest:.0f} and {latest:.0f} s; '
                            f'faults then: {", ".join(fault.text for fault in owners) or "none"}')
    return findings


def findings_of_progress(lists, work, faults):
    findings = []
    for record in set(LINES) - set(HELD):
        for (before, old, _), (after, new, _) in zip(lists[record], lists[record][1:]):
            is_idle = new <= old and before > SETTLE_S and is_at_work(before, after, work)
            if is_idle and not any(record in fault.records and fault.is_there(before, after + 1) for fault in faults):
                findings.append(f'{record} makes no progress between {before:.0f} and {after:.0f} s')
    return findings


def findings_of_results(build, log, faults):
    """What hk_results says of the whole run, against what the faults have moved."""
    judged = subprocess.run([f'{build}/hk_results', '--format', 'json', '--expect', shlex.join(PLAN), log],
                            capture_output=True, text=True, check=False)
    runs = [run for board in json.loads(judged.stdout)['boards'] for run in board['runs']]
    if len(runs) != 1:
        return [f'hk_results sees {len(runs)} runs']
    struck = {counter.split('.')[0] for fault in faults for counter in fault.counted}
    findings = []
    for name, record in zip(RECORDS, runs[0]['records'], strict=True):
        good = ('fail',) if name in struck else ('not judged',) if name == 'K' else ('pass', 'stalled')
        if record['verdict'] not in good:
            findings.append(f'hk_results: {name} is {record["verdict"]}: {"; ".join(record["reasons"])}')
    return findings


def findings_of_panel(text):
    return [] if 'board: reboot requested' in text else ['the fourth ESC did not restart the board']


def strikes_of(text):
    return {match[1]: int(match[2]) for match in re.finditer(r'board: fault (\S+) struck (\d+) times?', text)}


def verdict_of(fault, strikes):
    if not strikes and (fault.moves or fault.counted):
        return 'NO STRIKE'
    if not strikes:
        return 'no strike, not seen'
    if not fault.moves <= set(fault.counted):
        return 'NOT COUNTED: ' + ' '.join(sorted(fault.moves - set(fault.counted)))
    return 'counted' if fault.counted else 'no counter, by design'


def print_table(faults, strikes):
    """A line for each fault; strikes are those of all its windows. Returns how many had each verdict."""
    verdicts = collections.Counter()
    print(f'{"fault":28}{"window, s":>16}{"strikes":>9}  {"errors counted":40}verdict')
    for fault in faults:
        struck = strikes.get(fault.text, 0)
        counted = ' '.join(f'{counter} {errors}' for counter, errors in sorted(fault.counted.items()))
        verdict = verdict_of(fault, struck)
        verdicts[verdict.split(':')[0]] += 1
        print(f'{fault.text:28}{f"{fault.begin}-{fault.end}":>16}{struck:9}  {counted or "-":40}{verdict}')
    return verdicts


def hours(text):
    """A type of argparse, which names it in its messages."""
    number = float(text)
    if not LEAST_S <= number * HOUR <= MOST_HOURS * HOUR:
        raise argparse.ArgumentTypeError(f'{text} hours: {LEAST_S / HOUR:.2f} to {MOST_HOURS} are possible')
    return number


def pause(text):
    number = float(text)
    if not 0 < number < MOST_HOURS * HOUR:
        raise argparse.ArgumentTypeError(f'{text}: a mean time above 0 s')
    return number


def arguments():
    given = argparse.ArgumentParser(prog='./bench soak', usage='%(prog)s HOURS [--seed N] [--every SECONDS] '
                                    '[--work SECONDS]', description=__doc__.split('\n\n')[0])
    given.add_argument('build', help=argparse.SUPPRESS)  # the folder of the programs, from ./bench
    given.add_argument('hours', type=hours, help='of the board\'s own time')
    given.add_argument('--seed', type=int, default=1, help='of the faults (1)')
    given.add_argument('--every', type=pause, default=60,
                       help='mean seconds without a fault at one place, beside the gap (60)')
    given.add_argument('--work', type=int, default=PERIOD_S,
                       help=f'seconds of each {PERIOD_S} that the tests work, {LEAST_WORK_S} at least ({PERIOD_S})')
    chosen = given.parse_args()
    if not LEAST_WORK_S <= chosen.work <= PERIOD_S:
        given.error(f'--work {chosen.work}: between {LEAST_WORK_S} and {PERIOD_S}')
    if chosen.work < PERIOD_S and chosen.hours * HOUR % PERIOD_S != 0:
        given.error(f'{chosen.hours:g} hours: with --work only whole half hours, at whose end the tests work')
    return chosen


def main():
    given = arguments()
    seconds = int(given.hours * HOUR)
    log = f'{given.build}/soak-{given.seed}.log'
    faults = drawn_faults(seconds, given.every, given.work, given.seed)
    began = time.monotonic()
    run(given.build, log, seconds, given.work, faults)
    real = time.monotonic() - began
    with open(log, encoding='utf-8') as lines:
        text = lines.read()
    lists = lists_of(given.build, log)
    findings = findings_of_counters(lists, faults) + findings_of_progress(lists, given.work, faults)
    findings += findings_of_results(given.build, log, faults) + findings_of_panel(text)
    verdicts = print_table(faults, strikes_of(text))
    for finding in findings:
        print(f'finding: {finding}')
    is_good = not findings and not any(verdict.isupper() for verdict in verdicts)
    worked = seconds * given.work / PERIOD_S / HOUR * 60
    print(f'{given.hours:g} h on the board, the tests worked {worked:.0f} min; {real:.0f} s at a load of {os.getloadavg()[1]:.0f}, '
          f'log of {os.path.getsize(log) / 1e6:.1f} MB: {log}')
    print(f'{"PASS" if is_good else "FAIL"}: {len(faults)} faults; '
          + ', '.join(f'{number} {verdict}' for verdict, number in sorted(verdicts.items()))
          + f'. Again: ./bench soak {given.hours:g} --seed {given.seed} --every {given.every:g} --work {given.work}')
    sys.exit(0 if is_good else 1)


if __name__ == '__main__':
    main()
