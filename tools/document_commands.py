#!/usr/bin/env python3
"""Runs the commands of the documents as they are printed and compares what they print.

    tools/document_commands.py BUILD_FOLDER [FILE...]     README.md, CONTRIBUTING.md, docs/, man/
    tools/document_commands.py --list BUILD_FOLDER        shows the commands, runs nothing

In Markdown, commands are in a fenced block of the kind `console`, in a manual page between .EX and
.EE or in a literal display (.Bd -literal, .Dl). A line that begins with "$ " is a command; after a
backslash at its end, or a line that begins with "> ", it continues. The lines that follow, up to the
next command, are what it prints on standard output and standard error. If there are none, anything
may be printed. The commands of a block run in one shell, and each must end with status 0, unless the
next command prints $?. A block of the kind `text` whose first line begins with "+ " is what a script
prints; there "+ " marks the commands. What a block leaves in the background ends with it. Blocks run
beside each other and share nothing.

Printed and expected lines are compared by these rules:
  - A number is what it is in a block with --clock virtual: its run is the same on each machine.
    Elsewhere a whole number, decimal or hexadecimal without 0x, equals any other, but zero equals
    zero only: "errors 0,0,0" is a statement. The digits before a point or comma and those after it
    are two numbers. A number within a word, as in sp2, is part of a name.
  - A time of day, or a date with a time, equals any other.
  - Blanks: one equals many. Blanks at the end of a line and empty lines at both ends do not count.
  - "..." is any text, over any number of lines; alone on a line it may also be no line.

A comment right before a block prevents its run; its reason is shown:
    <!-- not run: reason -->         .\\" not run: reason

A line that looks like a command but is in no such block is reported as "outside"; with --strict it
is a failure.

Each block runs in a copy of the checkout's top folder made of links. There, build/, build/demo/ and
build/host/ hold the programs of BUILD_FOLDER, which is also first in PATH.
"""
import argparse
import concurrent.futures
import dataclasses
import difflib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from document_blocks import read, without_empty_ends

TOP = pathlib.Path(__file__).resolve().parent.parent
SENTINEL = '=== end of command, status'


@dataclasses.dataclass
class Result:
    outcome: str  # run, skipped, failed or outside
    place: str
    text: str
    detail: str = ''


# Comparing

TIME = re.compile(r'(\d{4}-\d\d-\d\d[T ])?\d\d:\d\d:\d\d(\.\d+)?([+-]\d\d:\d\d|Z)?')
NUMBER = re.compile(r'(?<!\w)-?(?=[a-f]*\d)[\da-f]+(?!\w)')


def is_exact(block):
    return any('--clock virtual' in command.text for command in block.commands)


def normal(line, block):
    """The line with one sign for each time and number; a zero stays."""
    line = TIME.sub('<time>', line)
    if not is_exact(block):
        line = NUMBER.sub(lambda number: '0' if not number[0].strip('-0') else '#', line)
    return re.sub(r'\s+', ' ', line).rstrip()


def pattern(lines):
    """The regular expression for the expected lines; "..." is any text."""
    def of_line(line):
        if line == '...':
            return r'(.*\n)?'
        return '.*'.join(re.escape(part) for part in line.split('...')) + r'\n'
    return re.compile(''.join(of_line(line) for line in lines), re.DOTALL)


def difference(block, command, printed):
    """What differs, as lines of a diff; empty if nothing does."""
    if not command.expected:
        return ''
    sides = [[normal(line, block) for line in side]
             for side in (command.expected, without_empty_ends(printed))]
    if pattern(sides[0]).fullmatch(''.join(line + '\n' for line in sides[1])):
        return ''
    return '\n'.join(difflib.unified_diff(*sides, 'document', 'printed', lineterm='', n=1))


# Running

def link_top(copy, build):
    """Makes the copy of the top folder in which a block runs."""
    for entry in TOP.iterdir():
        if entry.name not in ('build', '.git'):
            (copy / entry.name).symlink_to(entry)
    for folder in ('build', 'build/demo', 'build/host'):
        (copy / folder).mkdir()
        for entry in build.iterdir():
            if entry.suffix == '.cmake':  # for cmake --install and cpack
                shutil.copy(entry, copy / folder)
            elif entry.is_file() and os.access(entry, os.X_OK):
                (copy / folder / entry.name).symlink_to(entry)


def script_of(block):
    return '\n'.join(f'{command.text}\nstatus=$?; printf "\\n{SENTINEL} %d\\n" $status; (exit $status)'
                     for command in block.commands)


def run_shell(script, folder, build, limit):
    """Runs a script; returns what it printed and whether it ended in time. Nothing of it is left."""
    environment = dict(os.environ, PATH=f'{build}:{os.environ["PATH"]}', LC_ALL='C.UTF-8')
    with tempfile.TemporaryFile() as output:
        shell = subprocess.Popen(['bash', '-c', script], cwd=folder, env=environment, stdout=output,
                                 stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                 start_new_session=True)
        try:
            shell.wait(limit)
            ended = True
        except subprocess.TimeoutExpired:
            ended = False
        try:
            os.killpg(shell.pid, signal.SIGTERM)
            time.sleep(0.2)
            os.killpg(shell.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass  # the usual case: nothing is left
        shell.wait()
        output.seek(0)
        return output.read().decode(errors='replace'), ended


def judge(block, number, parts, ended):
    """The fault of one command of a block, empty if there is none. Parts: printed, status, ..."""
    command = block.commands[number]
    if 2 * number + 1 >= len(parts):
        return ('is not reached' if ended else 'does not end in time') + '\n' + parts[-1].strip()
    printed, status = parts[2 * number], int(parts[2 * number + 1])
    status_is_shown = number + 1 < len(block.commands) and '$?' in block.commands[number + 1].text
    if status != 0 and not status_is_shown:
        return f'ends with status {status}\n' + printed.strip()
    return difference(block, command, printed.splitlines())


def results_of(block, build, limit):
    def place(command):
        return f'{block.file}:{command.line}'
    if block.not_run:
        return [Result('skipped', place(command), command.text, block.not_run)
                for command in block.commands]
    with tempfile.TemporaryDirectory(prefix='hk_documents_') as folder:
        link_top(pathlib.Path(folder), build)
        printed, ended = run_shell(script_of(block), folder, build, limit)
    parts = re.split(rf'\n{SENTINEL} (\d+)\n', printed)
    results = []
    for number, command in enumerate(block.commands):
        fault = judge(block, number, parts, ended)
        results.append(Result('failed' if fault else 'run', place(command), command.text, fault))
    return results


# The whole

def show(result):
    first, *rest = result.text.replace('\\\n', ' ').split('\n')
    print(f'{result.outcome:8}{result.place}: {re.sub(" +", " ", first)}{" ..." if rest else ""}')
    for line in result.detail.splitlines():
        print('            ' + line)


def documents():
    found = [TOP / 'README.md', TOP / 'CONTRIBUTING.md', *TOP.glob('docs/*.md'), *TOP.glob('man/*.[1-8]')]
    return sorted(path for path in found if path.exists())


def read_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split('\n')[0])
    parser.add_argument('build', type=pathlib.Path, metavar='BUILD_FOLDER', help='where the programs are')
    parser.add_argument('files', type=pathlib.Path, nargs='*', metavar='FILE')
    parser.add_argument('--list', action='store_true', help='show the commands, run nothing')
    parser.add_argument('--strict', action='store_true', help='a command outside a block is a failure')
    parser.add_argument('--limit', type=float, default=120, help='seconds for one block (120)')
    parser.add_argument('--jobs', type=int, default=4, help='blocks that run at a time (4)')
    return parser.parse_args()


def run_all(blocks, arguments):
    build = arguments.build.resolve()
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as workers:
        for results in workers.map(lambda block: results_of(block, build, arguments.limit), blocks):
            yield from results


def main():
    arguments = read_arguments()
    blocks, outside = [], []
    for path in arguments.files or documents():
        found, elsewhere = read(path.resolve(), TOP)
        blocks += found
        outside += [Result('outside', f'{os.path.relpath(path, TOP)}:{line}', text) for line, text in elsewhere]
    if arguments.list:
        for block in blocks:
            for command in block.commands:
                show(Result('listed', f'{block.file}:{command.line}', command.text, block.not_run))
        return 0
    counts = dict.fromkeys(('run', 'skipped', 'failed', 'outside'), 0)
    for result in [*run_all(blocks, arguments), *outside]:
        show(result)
        counts[result.outcome] += 1
    print(', '.join(f'{count} {outcome}' for outcome, count in counts.items()))
    return 1 if counts['failed'] or (arguments.strict and counts['outside']) else 0


if __name__ == '__main__':
    sys.exit(main())
