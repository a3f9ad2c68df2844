"""What the cases of the chain have in common."""
import datetime
import pathlib
import subprocess
import sys
import unittest

import chain
from chain import wait_for

BUILD = pathlib.Path(sys.argv[1]).resolve()
STRESS = 'Stress 020000000001 '
NOT_AVAILABLE = 77  # the exit status that skips a case


def line_at(when, text):
    """A line of the collector's file."""
    return f'{when.isoformat(timespec="microseconds")} rack1-1 {STRESS}: {text}\n'


class ChainCase(unittest.TestCase):
    def setUp(self):
        self.chain = chain.Chain(BUILD / 'fleet' / self._testMethodName)
        self.addCleanup(self.chain.stop_all)
        self.clock = datetime.datetime.now(datetime.timezone.utc)

    def start(self, *parts):
        for part in parts:
            getattr(self.chain, f'start_{part}')()

    def board(self, name, ident=STRESS, texts=None):
        board = chain.Syslog(self.chain.start_board(name, texts), ident)
        self.addCleanup(board.socket.close)
        return board

    def kept(self, word=''):
        """The messages in the collector's file. A line that came twice has the same time twice."""
        return [line.split(' : ', 1)[1].rstrip() for line in dict.fromkeys(self.chain.kept_lines())
                if word in line]

    def wait_for_kept(self, expected, word='', seconds=60):
        wait_for('the lines', lambda: len(self.kept(word)) >= len(expected), seconds)
        self.assertEqual(self.kept(word), expected)

    def list_lines(self, *items, after_s=120):
        """The lines of a list, that many seconds after the one before."""
        self.clock += datetime.timedelta(seconds=after_s)
        return [line_at(self.clock + datetime.timedelta(microseconds=number), text)
                for number, text in enumerate(['<OL>', *items, '</OL><P>'])]

    def write(self, lines):
        with self.chain.kept.open('a') as file:
            file.writelines(lines)

    def write_list(self, *items, after_s=120):
        self.write(self.list_lines(*items, after_s=after_s))

    def refusals(self, name):
        """How often a board's rsyslogd has reported that it cannot send."""
        return (self.chain.folder / f'{name}.out').read_text().count('omrelp')

    def value(self, name, **labels):
        """The value of a series of mtail, None if there is none."""
        wanted = [f'{key}="{text}"' for key, text in labels.items()]
        found = [value for text, value in self.chain.series(name) if all(each in text for each in wanted)]
        self.assertLessEqual(len(found), 1)
        return found[0] if found else None

    def wait_until_read(self):
        """Waits until mtail has read all that is in the file: a bad line at its end is counted."""
        bad = self.value('stress_bad_lines_total')
        self.write([line_at(self.clock, '<LI> the end')])
        wait_for('the end', lambda: self.value('stress_bad_lines_total') > bad)


def run_cases():
    """Runs those of the test file. Returns the exit status that skips them if something is missing."""
    missing = chain.missing_packages()
    if missing:
        print('Skipped\nnot installed:', ', '.join(missing))
        return NOT_AVAILABLE
    if subprocess.run([*chain.isolation(), 'true'], capture_output=True, check=False).returncode != 0:
        print('Skipped\nnamespaces are not allowed here')
        return NOT_AVAILABLE
    chain.enter()
    sys.argv.pop(1)
    unittest.main(verbosity=2)
