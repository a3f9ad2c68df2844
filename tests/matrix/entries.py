"""The entries of a file of expected runs.

    == bit flipped, x to y (ports 2 and 8)      the fault, and what distinguishes this run from others with it
    board    --cable 2-8 --fault flip:2:10      options of hk_board
    program  -E28                               options of hk_stress, after -d1
    seconds  3                                  of the board's own time; none: the run ends by itself
    claim    -E sp2 loop: wrote, read, error 1 and samples move; errors 2 and 3 stay.
    samples  sp2 loop: position 0-2, byte 41 but for one bit
    holds    first.error1 == struck
    > 00:00:03.000 Stress 020000001234 : <LI> 0 sp2 loop wrote 842 read 757 errors 84,0,0 hist ...

There is one claim for each item of the list, in order; claims.py reads them. Other keys: `logs`, a part of a
line that the tests log; `window`, two times of a run whose fault comes and goes, as "1 2.5": no error of the
claims has moved before the first, none moves after the second, and the tests go on at both ends;
`before`, a shell command on the board; `status`, the exit status if it is not 0;
`skip`, why neither the emulator nor the sanitizers can run the entry; `inexact`, why the sanitizers get
another result, which only has to agree with the claims. The lines after > are the result: --write replaces
them and nothing else.
"""
import collections
import dataclasses
import pathlib
import re
import shlex

KEYS = ('board', 'program', 'before', 'seconds', 'window', 'status', 'skip', 'inexact', 'claim', 'samples', 'holds',
        'logs')
RESULT = '> '
FOLDER = pathlib.Path(__file__).resolve().parent
# In the order of the table's columns.
FILES = ('receiver', 'crossover', 'fio_loop', 'spi_loop', 'spi_device', 'files', 'file_copy', 'dram')


class BadEntry(Exception):
    """What is wrong in a file of expected runs."""


@dataclasses.dataclass
class Entry:
    file: str
    heading: str
    head: list = dataclasses.field(default_factory=list)  # lines as written, comments included
    result: list = dataclasses.field(default_factory=list)
    values: dict = dataclasses.field(default_factory=lambda: {key: [] for key in KEYS})

    @property
    def fault(self):
        return self.heading.partition(' (')[0]

    @property
    def name(self):
        return f'{self.file}.{re.sub("[^a-z0-9]+", "_", self.heading.lower()).strip("_")}'

    @property
    def needs_spi(self):
        """Whether the test sends the requests of SPI devices."""
        return '--spi' in self.words('board') or '-L' in self.words('program')

    @property
    def group(self):
        """The entries that ctest runs as one test: what can be skipped is apart."""
        return self.file + ('.limits' if self.value('skip') else '.requests' if self.needs_spi else '')

    @property
    def window(self):
        """The times between which errors move; empty if they may move at any time."""
        return [float(time) for time in self.words('window')]

    def words(self, key):
        return shlex.split(' '.join(self.values[key]))

    def value(self, key):
        return next(iter(self.values[key]), None)

    def faults(self):
        """The faults of the board, as "flip:2:10"."""
        words = self.words('board')
        return [after for option, after in zip(words, words[1:]) if option == '--fault']

    def add_line(self, line):
        """Takes a line after the heading."""
        if line.startswith(RESULT.strip()):
            self.result.append(line[len(RESULT):])
            return
        key, _, value = line.partition(' ')
        if line and not line.startswith('#') and key not in KEYS:
            raise BadEntry(f'{self.name}: "{line}": the keys are {", ".join(KEYS)}')
        if key in KEYS:
            self.values[key].append(value.strip())
        self.head.append(line)


def read_text(file, text):
    """The lines before the first entry, and the entries."""
    opening, entries = [], []
    for line in text.splitlines():
        if line.startswith('== '):
            entries.append(Entry(file, line[3:]))
        elif entries:
            entries[-1].add_line(line)
        else:
            opening.append(line)
    return opening, entries


def format_text(opening, entries):
    lines = [*opening]
    for entry in entries:
        head = '\n'.join(entry.head).rstrip().splitlines()
        lines += [f'== {entry.heading}', *head, *((RESULT + line).rstrip() for line in entry.result), '']
    return '\n'.join(lines).rstrip() + '\n'


def path_of(file, folder):
    return pathlib.Path(folder) / f'{file}.txt'


def read_all(folder):
    """All entries, in the order of the files."""
    there = [file for file in FILES if path_of(file, folder).exists()]
    all_entries = [entry for file in there for entry in read_text(file, path_of(file, folder).read_text())[1]]
    for name, count in collections.Counter(entry.name for entry in all_entries).items():
        if count > 1:
            raise BadEntry(f'{name}: {count} entries have that name')
    return all_entries


def write_results(file, new_results, folder):
    """Puts results, by entry name, into a file."""
    path = path_of(file, folder)
    opening, entries = read_text(file, path.read_text())
    for entry in entries:
        entry.result = new_results.get(entry.name, entry.result)
    path.write_text(format_text(opening, entries))
