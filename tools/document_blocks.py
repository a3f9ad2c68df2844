"""The commands of Markdown documents and manual pages, with what they print; see document_commands.py
for the rules."""
import dataclasses
import os
import re

MARK = re.compile(r'(?:<!--|\.\\")\s*not run:\s*(.*?)\s*(?:-->)?$')
PROGRAM = re.compile(r'(\./\w|build/|(cmake|ctest|ninja|sudo|hk_\w+)\b)')


@dataclasses.dataclass
class Command:
    line: int
    text: str
    expected: list


@dataclasses.dataclass
class Block:
    file: str
    commands: list = dataclasses.field(default_factory=list)
    not_run: str = ''


def commands_of(lines):
    """The commands in numbered lines of one block, each with what it is to print."""
    commands, continued = [], False
    for number, line in lines:
        if continued or (line.startswith('> ') and commands and not commands[-1].expected):
            commands[-1].text += '\n' + line.removeprefix('> ')
        elif line.startswith('$ '):
            commands.append(Command(number, line[2:], []))
        elif commands:
            commands[-1].expected.append(line)
        continued = bool(commands) and not commands[-1].expected and line.endswith('\\')
    for command in commands:
        command.expected = without_empty_ends(command.expected)
    return commands


def as_commands(lines):
    """The lines of what a script prints, with its commands as a reader would give them."""
    return [(number, '$ ' + line[2:] if line.startswith('+ ') else line) for number, line in lines]


def without_empty_ends(lines):
    lines = [line.rstrip() for line in lines]
    while lines and not lines[0]:
        lines = lines[1:]
    while lines and not lines[-1]:
        lines = lines[:-1]
    return lines


def block_of(file, lines, mark):
    block = Block(file, commands_of(lines))
    if mark:
        block.not_run = mark[1] or 'no reason given'
    return block


def is_outside(line):
    return PROGRAM.match(line.removeprefix('$ ').lstrip()) is not None


def read_markdown(file, text):
    """The blocks of a Markdown file and the (line, text) of what looks like a command elsewhere."""
    blocks, outside, held = [], [], []
    fence, mark, in_list = None, None, False
    for number, line in enumerate(text.splitlines(), 1):
        if fence is not None and line.strip() == '```':
            if fence == 'console':
                blocks.append(block_of(file, held, mark))
            elif fence == 'text' and held and held[0][1].startswith('+ '):
                blocks.append(block_of(file, as_commands(held), mark))
            elif not mark:
                outside += [(at, held_line) for at, held_line in held if is_outside(held_line)]
            fence, mark, held = None, None, []
        elif fence is not None:
            held.append((number, line))
        elif line.startswith('```'):
            fence = line[3:].strip()
        elif line.strip():
            mark = MARK.match(line)
            if not line.startswith(' '):
                in_list = re.match(r'[-*]|\d+\.', line) is not None
            elif line.startswith('    ') and not in_list and is_outside(line.strip()):
                outside.append((number, line.strip()))
    if fence is not None:
        outside.append((held[0][0] - 1 if held else 1, 'a fence without an end'))
    return blocks, outside


ROFF = {r'\e': '\\', r'\-': '-', r'\&': '', r'\(aq': "'", r'\(dq': '"', r'\(ti': '~', r'\(ha': '^',
        r'\(rs': '\\'}


def plain(line):
    """A line of a display as the reader sees it."""
    return re.sub(r'\\(?:\(..|.)', lambda escape: ROFF.get(escape[0], escape[0]), line)


def read_manual(file, text):
    """As read_markdown, for a manual page."""
    blocks, outside, held = [], [], []
    ends, mark = None, None
    shown = False  # the line before was a .Dl, and its mark holds

    def close():
        nonlocal held
        if any(line.startswith('$ ') for _, line in held):
            blocks.append(block_of(file, held, mark))
        elif not mark:
            outside.extend((at, line) for at, line in held if is_outside(line))
        held = []

    for number, line in enumerate(text.splitlines(), 1):
        if ends is None and shown and not line.startswith('.Dl '):
            close()
            shown, mark = False, None
        if ends is not None and line == ends:
            close()
            ends, mark = None, None
        elif ends is not None:
            held.append((number, plain(line)))
        elif line == '.EX':
            ends = '.EE'
        elif line.startswith('.Bd -literal'):
            ends = '.Ed'
        elif line.startswith('.Dl '):
            held.append((number, plain(line[4:]).strip('"')))
            shown = True
        elif line != '.Pp':
            mark = MARK.match(line)
    if held:
        close()
    return blocks, outside


def read(path, top):
    """The blocks of a file, whose name in messages is relative to the folder `top`, and the lines that
    look like commands and are in no block."""
    name = os.path.relpath(path, top)
    text = path.read_text()
    return read_markdown(name, text) if path.suffix == '.md' else read_manual(name, text)
