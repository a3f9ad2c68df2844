#!/usr/bin/env python3
"""hk_results as an operator calls it: python3 command_test.py HK_RESULTS. Each option does what it says."""
import os
import pathlib
import pty
import select
import signal
import subprocess
import sys
import tempfile
import time
import unittest

LIMIT_S = int(os.environ.get('HK_WAIT_SECONDS', 60))


def one_list(second, errors):
    start = f'2026-11-22T00:00:{second}+00:00 rack7 oven: '
    item = f'<LI> 3 sp2 produce wrote {second} verify {second} errors {errors},0,0 hist 0,0 0,0 0,0 0,0 0,0'
    return ''.join(f'{start}{text}\n' for text in ('<OL>', item, '</OL><P>'))


class Command(unittest.TestCase):
    program = ''

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.log = pathlib.Path(folder.name, 'log')
        self.log.write_text(one_list(10, 0) + one_list(20, 1))

    def start(self, *options, **streams):
        started = subprocess.Popen([self.program, *options, self.log], text=True, **streams)
        self.addCleanup(started.wait)
        self.addCleanup(started.kill)
        return started

    def run_with(self, *options):
        """The exit status and the output."""
        started = self.start(*options, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        output, _ = started.communicate(timeout=LIMIT_S)
        return started.returncode, output

    def test_each_option_does_what_it_says(self):
        page = self.log.with_name('page')
        followed_page = self.log.with_name('followed')
        for options, status, part in (
                ((), 1, 'board oven on rack7: FAIL'),
                (('--allow', 'produce:1<=1'), 0, 'board oven on rack7: pass'),
                (('--allow', 'produce:1<=1', '--expect', '-P2 -D'), 1, 'board oven on rack7: MISSING'),
                (('--format', 'json'), 1, '{"schema":1,'),
                (('--format', 'junit'), 1, '<?xml'),
                (('--format', 'tap'), 1, 'TAP version 14'),
                (('--format', 'csv'), 1, '2026-11-22 00:00:20,rack7,oven,1,1,sp2 produce,3,20,20,1,0,0'),
                (('--html', page), 1, 'board oven on rack7: FAIL'),
                (('--html', self.log / 'page'), 2, ''),
                (('--fail-fast',), 2, ''),
                (('--help',), 0, 'Reads results lists of hk_stress'),
                (('--help',), 0, '2 wrong use, unreadable input or unwritable output'),
                (('--follow', '--fail-fast', '--html', followed_page), 1, 'board oven on rack7: FAIL')):
            with self.subTest(options=options):
                seen, output = self.run_with(*options)
                self.assertEqual(seen, status)
                self.assertIn(part, output)
        for written in (page, followed_page):
            self.assertIn('"counts":[10,20],"errors":[0,1]', written.read_text())

    def test_the_verdict_on_rows_is_on_standard_error(self):
        started = self.start('--format', 'csv', stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        _, errors = started.communicate(timeout=LIMIT_S)
        self.assertEqual(errors, 'FAIL: 0 of 1 record good, 1 run, 1 board; wrong: sp2 produce\n')

    def test_an_output_without_room_is_an_error(self):
        with open('/dev/full', 'w', encoding='ascii') as full:
            self.assertEqual(self.start(stdout=full).wait(LIMIT_S), 2)

    def wait_for(self, terminal, text):
        seen = ''
        while text not in seen:
            ready, _, _ = select.select([terminal], [], [], LIMIT_S)
            self.assertTrue(ready, seen)
            seen += os.read(terminal, 4096).decode()

    def wait_for_sleeps(self, process, count):
        status = pathlib.Path('/proc', str(process.pid), 'status')

        def sleeps():
            return int(status.read_text().split('\nvoluntary_ctxt_switches:')[1].split()[0])

        enough, latest = sleeps() + count, time.monotonic() + LIMIT_S
        while sleeps() < enough:
            self.assertLess(time.monotonic(), latest, 'it uses a processor while nothing happens')
            time.sleep(0.05)

    def test_a_log_that_ends_within_a_list_is_cut(self):
        self.log.write_text(one_list(10, 0) + one_list(20, 0) + one_list(30, 0).rpartition('2026')[0])
        status, output = self.run_with()
        self.assertEqual(status, 1)
        self.assertIn('CUT', output)

    def test_each_new_list_of_a_followed_log_shows_the_table_again(self):
        terminal, other_end = pty.openpty()
        self.log.write_text(one_list(10, 0))
        program = self.start('--follow', stdout=other_end)
        self.wait_for(terminal, 'PASS: 1 of 1')
        self.wait_for_sleeps(program, 5)
        with open(self.log, 'a') as log:
            log.write(one_list(20, 1))
        self.wait_for(terminal, 'FAIL: 0 of 1')
        program.send_signal(signal.SIGTERM)
        self.wait_for(terminal, 'FAIL: 0 of 1')
        self.assertEqual(program.wait(LIMIT_S), 1)


if __name__ == '__main__':
    Command.program = sys.argv.pop(1)
    unittest.main()
