#!/usr/bin/env python3
"""Runs hk_stress on the simulated board with each fault and compares what it logs with what is written down.

    tests/matrix/expected_runs.py                    every entry of the files beside this program
    tests/matrix/expected_runs.py 'crossover.*'      those whose names match
    tests/matrix/expected_runs.py --write crossover.none_ports_2_and_8
                                                     writes the results instead: review them with git diff
    tests/matrix/expected_runs.py --table            prints the table of docs/fault-matrix.md

A run is in the board's own time, so it has exactly one result: the last list and every other line of the
log. A result that breaks the claims of its entry is not written. entries.py explains the files.
"""
import argparse
import collections
import concurrent.futures
import difflib
import fnmatch
import json
import os
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import claims
import entries

BUILD = pathlib.Path(__file__).resolve().parents[2] / 'build' / 'host'
SKIPPED = 77
LIMIT_S = int(os.environ.get('HK_WAIT_SECONDS', 240))  # a run takes a second; more on a busy machine
LINES_SHOWN = 6
DATE = len('2026-01-01 ')
LIST_LINES = ('<OL>', '</OL><P>')
OF_THE_COMMAND_LINE = ('board: command: ', 'board: hash of the log ')


class BadRun(Exception):
    """Why a run has no result."""


# One run

def command_of(entry, options, log):
    board = [options.board, '--quiet', '--clock', 'virtual', '--log', log]
    board += ['--emulated'] if options.emulator else []
    board += ['--for', entry.value('seconds')] if entry.value('seconds') else []
    program = [*options.emulator, options.program, '-d1', *entry.words('program')]
    before = [f'{command};' for command in entry.values['before']] + requests_for_lists(entry)
    if before:
        program = ['/bin/sh', '-c', ' '.join([*before, 'exec "$0" "$@"']), *program]
    return [*board, *entry.words('board'), '--', *program]


def requests_for_lists(entry):
    """A shell command that sends the program a signal at each time of the window."""
    pauses = [later - earlier for earlier, later in zip([0, *entry.window], entry.window)]
    signals = '; '.join(f'sleep {pause:g}; kill -USR1 $$' for pause in pauses)
    return [f'({signals}) &'] if signals else []


def run_board(entry, options, log):
    """Runs an entry and returns the program's output. The log goes to a file."""
    # The search for leaks traces its own process, which the board's own time cannot serve.
    environment = {**os.environ, 'ASAN_OPTIONS': 'detect_leaks=0'}
    try:
        done = subprocess.run(command_of(entry, options, log), capture_output=True, check=False, text=True,
                              errors='replace', stdin=subprocess.DEVNULL, timeout=LIMIT_S, env=environment)
    except subprocess.TimeoutExpired:
        raise BadRun(f'the run did not end within {LIMIT_S} s') from None
    expected = int(entry.value('status') or 0)
    if done.returncode != expected:
        raise BadRun(f'exit status {done.returncode} instead of {expected}\n{done.stderr}')
    return done.stdout


def shorten(messages):
    """The first lines of many, and how many more there are."""
    if len(messages) <= LINES_SHOWN:
        return messages
    return messages[:LINES_SHOWN] + [f'... and {len(messages) - LINES_SHOWN} more lines']


def result_of(log, output):
    """What an operator sees: lines of the tests, the last list, how often the faults struck."""
    messages, items, strikes = [], [], []
    for line in (line[DATE:].rstrip() for line in log.replace('\0', '').splitlines()):
        if line.endswith('<OL>'):
            items = []
        elif ' : <LI> ' in line:
            items.append(line)
        elif ' board: fault ' in line:
            strikes.append(line)
        elif not line.endswith(LIST_LINES) and not any(text in line for text in OF_THE_COMMAND_LINE):
            messages.append(line)
    is_cut = any(not claims.items_of([item]) for item in items)
    report = [f'report: {line}' for line in output.replace('\0', '').splitlines() if line] if is_cut else []
    return shorten(messages) + items + report + strikes


def lists_of(log):
    """The items of each list."""
    lists = []
    for line in log.replace('\0', '').splitlines():
        if line.endswith('<OL>'):
            lists.append([])
        elif ' : <LI> ' in line:
            lists[-1].append(line)
    return lists


# hk_results on the log of a run

def verdict_complaints(entry, result, log, hk_results):
    """hk_results names the errors that moved, and no others; it passes a run without a fault."""
    done = subprocess.run([hk_results, '--format', 'json', log], capture_output=True, check=False, text=True)
    runs = [run for board in json.loads(done.stdout)['boards'] for run in board['runs']]
    items = claims.items_of(result)
    if len(runs) != 1 or len(runs[0]['records']) != len(items):
        return [f'hk_results has {len(runs)} runs, or other records than the list']
    return [text for item, record in zip(items, runs[0]['records'])
            for text in record_complaints(entry, item, record)]


def record_complaints(entry, item, record):
    moved = item.moved() & set(claims.ERRORS)
    named = {f'error{error["number"]}' for error in record['errors']}
    texts = [f'hk_results, {item.name}: names {sorted(named)}, moved are {sorted(moved)}'] if moved != named else []
    expected = 'fail' if moved else 'pass' if entry.fault == 'none' else record['verdict']
    return texts + ([f'hk_results, {item.name}: {record["verdict"]}'] if record['verdict'] != expected else [])


# All runs

def reason_to_skip(entry, options):
    if options.emulator and entry.needs_spi:
        return 'the emulator does not know the requests of SPI devices'
    if options.emulator or options.sanitized:
        return entry.value('skip')
    return None


def run_entry(entry, options):
    """The result of an entry, and what is wrong with it."""
    with tempfile.TemporaryDirectory() as folder:
        log = os.path.join(folder, 'run.log')
        output = run_board(entry, options, log)
        text = pathlib.Path(log).read_text(errors='replace')
        result = result_of(text, output)
        complaints = claims.complaints(entry, result) + claims.window_complaints(entry, lists_of(text))
        if options.results and not complaints and not any(line.startswith('report: ') for line in result):
            complaints = verdict_complaints(entry, result, log, options.results)
    return result, complaints


def judge(entry, options):
    """The result of an entry and the text of what is wrong; the result is None if it is not to be written."""
    try:
        result, complaints = run_entry(entry, options)
    except BadRun as fault:
        return None, str(fault)
    if complaints:
        return None, '\n'.join([*complaints, 'The result is:', *result])
    is_inexact = options.sanitized and entry.value('inexact')
    if result == entry.result or is_inexact or options.write:
        return result, ''
    return result, '\n'.join(difflib.unified_diff(entry.result, result, 'expected', 'now', lineterm='', n=99))


def run_all(chosen, options):
    """Prints what is wrong; returns the results by name, None for one that must not be written."""
    results, failed = {}, 0
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as runs:
        for entry, (result, wrong) in zip(chosen, runs.map(lambda each: judge(each, options), chosen)):
            results[entry.name] = result
            failed += bool(wrong)
            if wrong:
                print(f'{entry.name}: {entry.heading}\n{wrong}\n', flush=True)
    print(f'{len(chosen) - failed} of {len(chosen)} entries are as expected')
    return results, failed


def write_all(results, folder):
    for file in entries.FILES:
        of_file = {name: result for name, result in results.items()
                   if name.startswith(f'{file}.') and result is not None}
        if of_file:
            entries.write_results(file, of_file, folder)


# The table of the documents

def shown_of(claim):
    """The numbers of the errors that move, s for samples."""
    return ''.join(name[-1] if name in claims.ERRORS else 's' for name in [*claims.ERRORS, 'samples']
                   if name in claim.moves) or '-'


def cell_text(entry, all_claims, option):
    shown = [shown_of(claim) for claim in all_claims if claim.option == option]
    has_messages = bool(entry.values['logs'])
    if has_messages or any(each != '-' for each in shown):
        return '/'.join(shown) + (' log' if has_messages else '')
    return 'ok' if entry.fault == 'none' else 'unseen'


def table_lines(all_entries):
    cells, options = {}, {}
    for entry in all_entries:
        all_claims = [claims.Claim(sentence) for sentence in entry.values['claim']]
        for claim in all_claims:
            options[claim.option] = True
            cells.setdefault(entry.fault, {}).setdefault(claim.option, set()).add(
                cell_text(entry, all_claims, claim.option))
    yield '| Fault | ' + ' | '.join(options) + ' |'
    yield '|---|' + '---|' * len(options)
    for fault, row in cells.items():
        yield f'| {fault} | ' + ' | '.join(', '.join(sorted(row.get(option, ()))) for option in options) + ' |'


def sample_of(all_entries):
    """The first entries that have a test option or a kind of fault that none before them has."""
    seen, chosen = set(), []
    for entry in all_entries:
        shown = {sentence.split()[0] for sentence in entry.values['claim']}
        shown |= {fault.partition(':')[0] for fault in entry.faults()}
        if shown - seen:
            chosen.append(entry)
        seen |= shown
    return chosen


# The command

def read_options():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('names', nargs='*', metavar='NAME', help="of entries, as 'crossover.*cable_cut*', or of groups")
    parser.add_argument('--write', action='store_true', help='write the results into the files')
    parser.add_argument('--table', action='store_true', help='print the table of the documents')
    parser.add_argument('--list', action='store_true', help='print the names')
    parser.add_argument('--groups', action='store_true', help='print the names of the groups')
    parser.add_argument('--sample', action='store_true', help='only one entry for each option and kind of fault')
    parser.add_argument('--folder', default=entries.FOLDER, help='of the files')
    parser.add_argument('--board', default=str(BUILD / 'hk_board'), help='hk_board')
    parser.add_argument('--program', default=str(BUILD / 'hk_stress'), help='hk_stress')
    parser.add_argument('--results', default='', help='hk_results, which then judges each log')
    parser.add_argument('--emulator', nargs='*', default=[], help='what runs the program')
    parser.add_argument('--sanitized', action='store_true', help='the sanitizers watch the program')
    parser.add_argument('--jobs', type=int, default=len(os.sched_getaffinity(0)), help='entries at a time')
    return parser.parse_args()


def choose(options):
    chosen = entries.read_all(options.folder)
    chosen = sample_of(chosen) if options.sample else chosen
    return [entry for entry in chosen
            if not options.names or entry.group in options.names or
            any(fnmatch.fnmatchcase(entry.name, name) for name in options.names)]


def run_chosen(chosen, options):
    """The exit status."""
    skipped = {entry.name: reason for entry in chosen if (reason := reason_to_skip(entry, options))}
    chosen = [entry for entry in chosen if entry.name not in skipped]
    if not chosen:
        reasons = collections.Counter(skipped.values())
        print('Skipped\n' + '\n'.join(f'{count} entries: {reason}' for reason, count in reasons.items())
              if skipped else 'no entry has that name')
        return SKIPPED if skipped else 1
    results, failed = run_all(chosen, options)
    if options.write:
        write_all(results, options.folder)
    return 1 if failed else 0


def main():
    options = read_options()
    try:
        chosen = choose(options)
    except entries.BadEntry as fault:
        sys.exit(f'{fault}')
    if options.list:
        print('\n'.join(entry.name for entry in chosen))
    elif options.groups:
        print('\n'.join(dict.fromkeys(entry.group for entry in chosen)))
    elif options.table:
        print('\n'.join(table_lines(chosen)))
    else:
        return run_chosen(chosen, options)
    return 0


if __name__ == '__main__':
    sys.exit(main())
