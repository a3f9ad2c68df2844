#!/usr/bin/env python3
"""Checks the tree: format, presets, tests, clang-tidy. Called by ./check, which installs packages.

A step that fails stops no other. While the tests of one preset run, which mostly wait for timers and
devices, the next preset is built. Builds have the usual priority: at a lower one they would hardly go on
beside busy processes of others.
"""
import concurrent.futures
import dataclasses
import os
import pathlib
import re
import subprocess
import sys
import time
import xml.etree.ElementTree

TOP = pathlib.Path(__file__).resolve().parent.parent
TESTED_PRESETS = ('host', 'sanitize', 'powerpc')  # powerpc runs on the board that host builds
TIDY_PRESET = 'sanitize'  # clang compiles it
# What goes onto a board: the sources, and the files of a unity build that include them.
TIDY_FILES = r'/(runtime|supervisor|serial|fio|storage|panel|ctl)/.*\.cpp$|/(stress|ctl|hk_stress|hk_ctl)\.dir/'
SLOW_SECONDS = 5
PROCESSORS = len(os.sched_getaffinity(0))
UNITY = '-DCMAKE_UNITY_BUILD=ON'  # compiles in half the time; without it a change compiles one file again


@dataclasses.dataclass
class Case:
    name: str
    outcome: str  # passed, failed or skipped
    seconds: float
    detail: str = ''  # what a failed case printed, why a case was skipped


@dataclasses.dataclass
class Row:
    """A line of the closing table: a step and its cases."""
    step: str
    cases: list
    seconds: float = 0

    def count(self, outcome):
        return sum(case.outcome == outcome for case in self.cases)


def run_command(command):
    """Runs a command; returns its exit status and all that it printed."""
    done = subprocess.run(command, cwd=TOP, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          stdin=subprocess.DEVNULL, check=False, text=True, errors='replace')
    return done.returncode, done.stdout


def case_of_commands(name, *commands):
    """One case: every command ends with status 0."""
    start = time.monotonic()
    for command in commands:
        status, printed = run_command(command)
        if status != 0:
            return Case(name, 'failed', time.monotonic() - start, printed)
    return Case(name, 'passed', time.monotonic() - start)


# The steps

def check_format():
    """Of the files that git knows or would add, as far as they are there."""
    status, listed = run_command(['git', 'ls-files', '--cached', '--others', '--exclude-standard', '*.cpp', '*.h'])
    if status != 0:
        return Row('format', [Case('format', 'failed', 0, listed)])
    files = [path for path in listed.splitlines() if (TOP / path).exists()]
    case = case_of_commands('format', ['clang-format', '--dry-run', '--Werror', *files])
    return Row('format', [case], case.seconds)


def build(preset):
    return case_of_commands(f'build of {preset}', ['cmake', '--preset', preset, UNITY],
                            ['cmake', '--build', '--preset', preset, '-j', str(PROCESSORS)])


def run_tests(preset, options):
    """The cases of a preset's tests."""
    results = TOP / 'build' / preset / 'results.xml'
    results.unlink(missing_ok=True)
    _, printed = run_command(['ctest', '--preset', preset, '-j', str(2 * PROCESSORS),
                              '--output-junit', str(results), *options])
    try:
        return [read_case(case) for case in xml.etree.ElementTree.parse(results).iter('testcase')]
    except (OSError, xml.etree.ElementTree.ParseError) as fault:
        return [Case('ctest', 'failed', 0, f'{printed}\n{fault}')]


def read_case(element):
    printed = element.findtext('system-out') or ''
    name, seconds = element.get('name'), float(element.get('time') or 0)
    if element.get('status') == 'run':
        return Case(name, 'passed', seconds)
    skipped = element.find('skipped')
    if element.get('status') == 'notrun' and skipped is not None and 'SKIP' in (skipped.get('message') or ''):
        reason = re.search(r'Skipped\n(.+)', printed)
        return Case(name, 'skipped', seconds, reason[1] if reason else 'no reason given')
    why = skipped.get('message') if skipped is not None else ''
    return Case(name, 'failed', seconds, why + printed)


def run_clang_tidy():
    return [case_of_commands('clang-tidy', ['run-clang-tidy', '-quiet', '-j', str(PROCESSORS),
                                            '-p', f'build/{TIDY_PRESET}', TIDY_FILES])]


def row_of(step, run):
    start = time.monotonic()
    cases = run()
    return Row(step, cases, time.monotonic() - start)


def check_presets(presets, test_options, read_the_code):
    """Rows of the presets, each as soon as it is complete, and then of clang-tidy."""
    with concurrent.futures.ThreadPoolExecutor(1) as builder:
        builds = [builder.submit(build, preset) for preset in presets]
        reader = builder.submit(row_of, 'clang-tidy', run_clang_tidy) if read_the_code else None
        for preset, built in zip(presets, builds):
            cases = [built.result()]
            start = time.monotonic()
            if cases[0].outcome == 'passed':
                cases += run_tests(preset, test_options)
            yield Row(preset, cases, cases[0].seconds + time.monotonic() - start)
        if reader:
            yield reader.result()


# The report

def show_row(row):
    counts = ''.join(f'{count:>9}' for count in
                     (len(row.cases), *(row.count(outcome) for outcome in ('passed', 'failed', 'skipped'))))
    print(f'{row.step:12}{counts}{row.seconds:9.0f}', flush=True)


def show_failures(row):
    for case in row.cases:
        if case.outcome == 'failed':
            print(f'\nFAILED {row.step}: {case.name}\n{case.detail.rstrip()}\n', flush=True)


def show_named(title, rows, is_named, text):
    named = [f'    {row.step:12}{text(case)}' for row in rows for case in row.cases if is_named(case)]
    if named:
        print('\n'.join(['', title, *named]))


def report(rows, seconds):
    """The closing table, what is skipped or slow, and the totals; true if nothing failed."""
    show_named(f'Cases of more than {SLOW_SECONDS} s:', rows,
               lambda case: case.seconds > SLOW_SECONDS, lambda case: f'{case.seconds:6.1f} s  {case.name}')
    show_named('Skipped:', rows, lambda case: case.outcome == 'skipped',
               lambda case: f'{case.name}: {case.detail}')
    show_named('Failed:', rows, lambda case: case.outcome == 'failed', lambda case: case.name)
    print(f'\n{"step":12}{"cases":>9}{"passed":>9}{"failed":>9}{"skipped":>9}{"seconds":>9}')
    for row in rows:
        show_row(row)
    totals = {outcome: sum(row.count(outcome) for row in rows) for outcome in ('passed', 'failed', 'skipped')}
    print(f'\n{seconds:.0f} s in all; steps overlap')
    print(', '.join(f'{count} {outcome}' for outcome, count in totals.items()))
    return totals['failed'] == 0


def main():
    quick = sys.argv[1:] == ['quick']
    start = time.monotonic()
    rows = []

    def take(row):
        rows.append(row)
        show_failures(row)
        print(f'== {row.step}: {row.count("passed")} passed, {row.count("failed")} failed, '
              f'{row.seconds:.0f} s', flush=True)

    take(check_format())
    presets, options = (('host',), ['--label-exclude', 'slow']) if quick else (TESTED_PRESETS, [])
    for row in check_presets(presets, options, read_the_code=not quick):
        take(row)
    return 0 if report(rows, time.monotonic() - start) else 1


if __name__ == '__main__':
    sys.exit(main())
