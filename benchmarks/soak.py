#!/usr/bin/env python3
"""Runs every test of hk_stress at once on the simulated board, for hours of the board's own time, with
random faults, and judges the run by what hk_results reads from the log.

    ./bench soak 24 --seed 3

The seed determines the faults, and so the whole log. Each fault has a window of seconds. The run is good if

  - the counters that a fault moves have moved between the start of its window and the grace after its end;
  - no error counter of any record has moved at any other time;
  - no test stands still without a fault;
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
import random
import re
import shlex
import subprocess
import sys
import time

HOUR = 3600
LIST_S = 10   # between results lists
GRACE_S = 5   # a test that waits for a reply counts what it misses after the window
SETTLE_S = 30  # at the start and before the end
GAP_S = GRACE_S + 3 * LIST_S  # at least, between faults at one place: a list can be lost in between
LAST_S = 5  # the last fault, until the end

BOARD = ('--cable 2-8 --cable 1-4 --loop 3 --loop 7s --fio 20=221,16=2 --spi 219 --spi reserved=loop '
         '--datakey present --eeprom good').split()
# -b9600 and -b1200 make the lines slow and an hour cheap. -F and -E28 have two records each.
PLAN = ('-d5 -l10 -b9600 -C1 -P4 -E33 -L -S1 -S2 -S4 -K -M /r0/a:/r0/b:0 -Y /r0/y -D -h -b1200 -E77 -F '
        '-h -b9600 -E28').split()
# The records of this plan, in their order. -K counts nothing and has no line in the lists.
RECORDS = 'C1 P4 E33 L S1 S2 S4 K M Y D E77 F20 F16 E2 E8'.split()
LINES = [record for record in RECORDS if record != 'K']
HELD = ('S4', 'Y', 'D')  # most of the time, see WORKLOAD
# The tests that load the machine most work 10 s in 100, for an hour of them costs ten minutes each: -D,
# -Y, and the loopback -S4. -M works all the time.
WORKLOAD = ('(sleep 5; "$HK_CTL" hold 7; "$HK_CTL" release M; while sleep 85; do "$HK_CTL" release Y D 7; '
            'sleep 10; "$HK_CTL" hold Y D 7; done) >/dev/null 2>&1 & exec "$@"')
# Keys of the panel: the fourth ESC restarts the board's software, which here is a line in the log.
KEYS = 's q p @50 s s s s @540 r'
KEYS_S = 600

# By the records of a place, which no fault of another place affects: a fault, its seconds at least and at
# most, the counters that it moves, and those that it may move. {1-9} stands for a number, {a|b} for one of
# these. A counter is a record and its place in the line.
Row = collections.namedtuple('Row', 'form least most moves may', defaults=('', ''))
PLACES = {
    'E2 E8': (
        Row('flip:2:{1-9}', 5, 30, 'E2.1'),
        Row('flip:8:{1-9}', 5, 30, 'E8.1'),
        Row('drop:2:{2-9}', 5, 30, 'E2.2 E2.3 E8.3'),
        Row('drop:8:{2-9}', 5, 30, 'E8.2'),
        Row('cut:2', 2, 30, 'E2.2 E2.3 E8.3'),
        Row('cut:8', 2, 30, 'E8.2'),
        Row('pull:2:{1-9}', 2, 30, 'E2.2 E2.3 E8.3'),
        Row('lostbyte:2:{20-90}', 5, 30, 'E2.1'),
        Row('insert:2:{20-90}', 5, 30, 'E2.1'),
        Row('speed:2:{12-40}', 2, 30, 'E2.1', 'E2.2 E2.3 E8.3'),
        Row('speed:8:-{12-40}', 2, 30, 'E8.1', 'E8.2'),
        Row('speed:2:{1-3}', 2, 30),
        Row('framing:2:{1-90}', 2, 30),
        Row('stall:2', 1, 10),
        Row('cts:2:0', 1, 30),
        Row('dcd:8:0', 1, 30),
        Row('lines:2-8', 1, 30),
    ),
    'E33': (
        Row('flip:3:{1-9}', 5, 30, 'E33.1'),
        Row('drop:3:{2-9}', 5, 30, 'E33.2 E33.3'),
        Row('cut:3', 2, 30, 'E33.1 E33.2 E33.3'),
        Row('insert:3:{20-90}', 5, 30, 'E33.1'),
        Row('framing:3:{1-90}', 2, 30),
        Row('stall:3', 1, 10),
        Row('cts:3:0', 1, 30),
        Row('lines:3', 1, 30),
    ),
    'E77': (
        Row('flip:7s:{1-4}', 10, 30, 'E77.2 E77.3', 'E77.1'),
        Row('drop:7s:{1-4}', 10, 30, 'E77.2 E77.3', 'E77.1'),
        Row('garble:7s:{1-9}', 10, 30, 'E77.1'),
        Row('cut:7s', 5, 30, 'E77.2 E77.3', 'E77.1'),
        Row('stall:7s', 1, 10),
    ),
    'C1 P4': (
        Row('flip:4:{1-9}', 2, 30, 'C1.1'),
        Row('insert:4:{20-90}', 5, 30, 'C1.1'),
        Row('speed:4:{12-40}', 2, 30, 'C1.1'),
        Row('speed:4:-{1-3}', 2, 30),
        Row('cut:4', 1, 30, 'C1.3'),
        Row('pull:4:{1-9}', 1, 30, 'C1.3'),
        Row('stall:4', 1, 10, 'C1.3'),
        Row('drop:4:{2-9}', 2, 30),
        Row('lostbyte:4:{20-90}', 2, 30),
        Row('framing:4:{1-90}', 2, 30),
        Row('dcd:4:0', 1, 30),
    ),
    'F20 F16': (
        Row('flip:5s:{1-9}', 5, 30, 'F20.2 F16.2'),
        Row('drop:5s:{1-9}', 5, 30, 'F20.2 F16.2'),
        Row('cut:5s', 5, 30, 'F20.2 F16.2'),
        Row('garble:5s:{5-9}', 5, 30, 'F20.2', 'F16.1 F16.2'),
        Row('stall:5s', 1, 10),
        Row('stuck:20:3.{1-8}', 5, 30, 'F20.1'),
        Row('stuck:20:0.{1-8}', 5, 30),
        Row('dead:16:5.2', 5, 30, 'F16.1'),
        Row('silent:20:{1|4|7}', 5, 30, 'F20.2'),
        Row('silent:16:{1|4|7}', 5, 30, 'F16.2'),
        Row('lose:20:{5-20}', 5, 30, 'F20.2'),
        Row('lose:16:{5-20}', 5, 30, 'F16.2'),
        Row('corrupt:20:{1|3}', 5, 30, 'F20.1'),
        Row('corrupt:20:{4-20}', 5, 30, '', 'F20.1'),  # seen only in the byte that the step names
        Row('stray:20:{5-20}', 5, 30, 'F20.3'),
        Row('stray:16:{5-20}', 5, 30, 'F16.3'),
        Row('long:{16|20}:{5-20}', 5, 30),
        Row('short:{16|20}:{5-20}', 5, 30),
    ),
    'L': (
        Row('stuck:manufacturer:3.{1-8}', 5, 30, 'L.1'),
        Row('dead:manufacturer:0.1', 5, 30, 'L.1'),
        Row('silent:manufacturer:{4|7}', 1, 30, 'L.2'),
        Row('late:manufacturer:{1-20}', 2, 30, 'L.2'),
        Row('delay:manufacturer:{5-50}', 2, 30, 'L.2'),
        Row('lose:manufacturer:{1-20}', 2, 30, 'L.2'),
        Row('corrupt:manufacturer:{1-20}', 2, 30, 'L.2'),
        Row('check:manufacturer:{1-20}', 2, 30, 'L.2'),
    ),
    'S1': (
        Row('fail:datakey:{1-50}', 2, 30, 'S1.1'),
        Row('weak:datakey:{0-31}.{1-8}', 2, 30),
        Row('slow:datakey:{20-500}', 2, 30),
        Row('gone:datakey', 1, 30),
    ),
    'S2': (
        Row('fail:eeprom:{1-50}', 2, 30, 'S2.1'),
        Row('weak:eeprom:{0-31}.{1-8}', 2, 30),
        Row('slow:eeprom:{20-60}', 2, 10),
    ),
    'M': (
        Row('full:r0', 2, 30),
        Row('size:r0:{4-8}', 2, 30),
        Row('readonly:r0', 2, 30),
    ),
    '': (
        Row('gone:led', 1, 30),
        Row('readonly:led', 1, 30),
        Row('gone:eth0', 1, 30),
        Row('gone:log', 1, 8),
    ),
}
# One of these ends the run. A port that hangs up does not come back; after a late reply -F can take each reply
# for that of the next request, and fail some thousand times a second until one is lost.
LAST = (
    Row('hangup:1:1', LAST_S, LAST_S, 'C1.3'),
    Row('hangup:2:1', LAST_S, LAST_S, 'E2.2', 'E2.3 E8.1 E8.2 E8.3'),
    Row('hangup:3:1', LAST_S, LAST_S, 'E33.1 E33.2', 'E33.3'),
    Row('hangup:4:1', LAST_S, LAST_S, 'P4.3', 'C1.3'),
    Row('hangup:5s:1', LAST_S, LAST_S, 'F20.2 F16.2'),
    Row('hangup:7s:1', LAST_S, LAST_S, 'E77.2', 'E77.1 E77.3'),
    Row('hangup:8:1', LAST_S, LAST_S, 'E2.2 E8.2', 'E8.1'),
    Row('late:20:29', LAST_S, LAST_S, 'F20.2', 'F16.1 F16.2'),
    Row('delay:16:1000', LAST_S, LAST_S, 'F16.2', 'F20.1 F20.2'),
)


class Fault:
    """One fault of a run: its text, its window in seconds, and what it moves."""

    def __init__(self, text, begin, end, row, records):
        self.text, self.begin, self.end, self.records = text, begin, end, records.split()
        self.moves, self.may = set(row.moves.split()), set(row.moves.split() + row.may.split())
        self.counted = collections.Counter()  # by counter

    def is_there(self, earliest, latest):
        return self.begin < latest and earliest < self.end + GRACE_S


# The faults of a seed.

def drawn_text(form, rng):
    def one(match):
        if '|' in match[1]:
            return rng.choice(match[1].split('|'))
        least, most = map(int, match[1].split('-'))
        return str(rng.randint(least, most))
    return re.sub(r'\{(.*?)\}', one, form)


def faults_of_place(records, rows, seconds, every, rng):
    """Each kind once before any comes again. `every` is the mean time that is added to the gap."""
    begin, deck, faults = SETTLE_S, [], []
    while True:
        begin += int(rng.expovariate(1 / every))
        deck = deck or rng.sample(rows, len(rows))
        row = deck.pop()
        end = begin + rng.randint(row.least, row.most)
        if end > seconds - LAST_S - SETTLE_S:
            return faults
        faults.append(Fault(drawn_text(row.form, rng), begin, end, row, records))
        begin = end + GAP_S


def drawn_faults(seconds, every, seed):
    rng = random.Random(seed)
    faults = [fault for records, rows in PLACES.items()
              for fault in faults_of_place(records, rows, seconds, every, rng)]
    last = rng.choice(LAST)
    faults.append(Fault(last.form, seconds - LAST_S, seconds, last, ' '.join(LINES)))
    return sorted(faults, key=lambda fault: (fault.begin, fault.text))


# The run.

def run(build, log, seconds, faults):
    keys = ' '.join([KEYS] * (1 + seconds // KEYS_S))
    command = [f'{build}/hk_board', '--quiet', '--clock', 'virtual', '--for', str(seconds), '--log', log, *BOARD,
               '--keys', keys]
    for fault in faults:
        command += ['--fault', f'{fault.text}@{fault.begin}-{fault.end}']
    command += ['--', 'sh', '-c', WORKLOAD, 'sh', f'{build}/hk_stress', *PLAN]
    environment = {**os.environ, 'HK_CTL': os.path.abspath(f'{build}/hk_ctl')}
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


def findings_of_progress(lists, faults):
    findings = []
    for record in set(LINES) - set(HELD):
        for (before, old, _), (after, new, _) in zip(lists[record], lists[record][1:]):
            stands = new <= old and before > SETTLE_S
            if stands and not any(record in fault.records and fault.is_there(before, after + 1) for fault in faults):
                findings.append(f'{record} stands still between {before:.0f} and {after:.0f} s')
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


def arguments():
    given = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    given.add_argument('build', help='folder of hk_board, hk_stress, hk_ctl and hk_results')
    given.add_argument('hours', type=float, help='of the board\'s own time')
    given.add_argument('--seed', type=int, default=1, help='of the faults (1)')
    given.add_argument('--every', type=float, default=60,
                       help='mean seconds without a fault at one place, beside the gap (60)')
    return given.parse_args()


def main():
    given = arguments()
    seconds = int(given.hours * HOUR)
    log = f'{given.build}/soak-{given.seed}.log'
    faults = drawn_faults(seconds, given.every, given.seed)
    began = time.monotonic()
    run(given.build, log, seconds, faults)
    real = time.monotonic() - began
    with open(log, encoding='utf-8') as lines:
        text = lines.read()
    lists = lists_of(given.build, log)
    findings = findings_of_counters(lists, faults) + findings_of_progress(lists, faults)
    findings += findings_of_results(given.build, log, faults) + findings_of_panel(text)
    verdicts = print_table(faults, strikes_of(text))
    for finding in findings:
        print(f'finding: {finding}')
    is_good = not findings and not any(verdict.isupper() for verdict in verdicts)
    print(f'{seconds} s on the board in {real:.0f} s at a load of {os.getloadavg()[1]:.0f}, '
          f'log of {os.path.getsize(log) / 1e6:.1f} MB: {log}')
    print(f'{"PASS" if is_good else "FAIL"}: {len(faults)} faults; '
          + ', '.join(f'{number} {verdict}' for verdict, number in sorted(verdicts.items()))
          + f'. Again: ./bench soak {given.hours:g} --seed {given.seed} --every {given.every:g}')
    sys.exit(0 if is_good else 1)


if __name__ == '__main__':
    main()
