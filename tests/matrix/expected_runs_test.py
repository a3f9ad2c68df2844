#!/usr/bin/env python3
"""expected_runs.py with a board of its own, which only writes a log."""
import contextlib
import io
import json
import pathlib
import sys
import tempfile
import unittest
import unittest.mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import expected_runs

HEAD = """# Receiver.

== bit flipped
# Every tenth block.
board    --cable 1-2 --fault flip:2:10
program  -C1
seconds  2
claim    -C sp1 consume: read, verify, error 1 and samples move; errors 2 and 3 stay.
samples  sp1 consume: position 0-2, byte 41 but for one bit
samples  sp1 consume: one of 7,8
holds    first.error1 == struck
"""
MESSAGE = 'Stress 020000001234 : <20 set 3 3>'
ITEM = 'Stress 020000001234 : <LI> 3 sp1 consume read 20 verify 18 errors 2,0,0 hist 7,8 2,40 0,0 0,0 0,0'
STRIKE = 'board: fault flip:2:10 struck 2 times'
TIME = '00:00:02.000 '
RESULT = f'> {TIME}{ITEM}\n> {TIME}{STRIKE}\n'


def log_of(*lines):
    first_list = ['Stress 020000001234 : <OL>', ITEM.replace('20', '10'), 'Stress 020000001234 : </OL><P>']
    return ''.join(f'2026-01-01 {TIME}{line}\n'
                   for line in ('board: command: hk_board', *first_list, 'Stress 020000001234 : <OL>', *lines,
                                'Stress 020000001234 : </OL><P>', 'board: hash of the log 0123456789abcdef'))


def write_program(path, text):
    path.write_text(f'#!/bin/sh\n{text}\n')
    path.chmod(0o755)
    return str(path)


class ExpectedRuns(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def outcome(self, text, log, *options, status=0):
        """Runs the entries of a text; returns the exit status, what was printed, and the text after it."""
        (self.folder / 'receiver.txt').write_text(text)
        (self.folder / 'log').write_text(log)
        board = write_program(self.folder / 'board', f'cp {self.folder}/log "$5"; exit {status}')
        arguments = ['expected_runs', '--folder', str(self.folder), '--board', board, *options]
        with contextlib.redirect_stdout(io.StringIO()) as printed, unittest.mock.patch('sys.argv', arguments):
            ended = expected_runs.main()
        return ended, printed.getvalue(), (self.folder / 'receiver.txt').read_text()

    def assert_refused(self, text, log, part, **options):
        """The run fails with a text, and its result is not written."""
        for option in ((), ('--write',)):
            ended, printed, after = self.outcome(text, log, *option, **options)
            self.assertEqual((ended, after), (1, text))
            self.assertIn(part, printed)

    def test_the_last_list_and_the_strikes_are_the_result(self):
        self.assertEqual(self.outcome(HEAD + RESULT, log_of(ITEM, STRIKE))[0], 0)

    def test_another_number_fails_and_is_shown_as_a_difference(self):
        ended, printed, _ = self.outcome(HEAD + RESULT, log_of(ITEM.replace('read 20', 'read 21'), STRIKE))
        self.assertEqual(ended, 1)
        self.assertIn(f'-{TIME}{ITEM}\n+{TIME}{ITEM.replace("read 20", "read 21")}\n', printed)

    def test_write_replaces_the_result_and_nothing_else(self):
        old = HEAD + RESULT.replace('read 20', 'read 19') + '\n== bit flipped (held)\n# Kept.\n> kept\n'
        new = HEAD + RESULT + '\n== bit flipped (held)\n# Kept.\n> kept\n'
        self.assertEqual(self.outcome(old, log_of(ITEM, STRIKE), '--write', 'receiver.bit_flipped')[::2], (0, new))

    def test_a_result_against_its_claims_is_never_written(self):
        for item, part in ((ITEM.replace('errors 2,', 'errors 0,'), 'error1 stays'),
                           (ITEM.replace('2,0,0', '2,0,1'), 'error3 moves'),
                           (ITEM.replace('2,40', '3,40'), 'a sample is 3,40'),
                           (ITEM.replace('2,40', '2,42'), 'a sample is 2,42'),
                           (ITEM.replace('errors 2', 'errors 3'), '"first.error1 == struck" does not hold'),
                           (ITEM.replace('sp1', 'sp2'), 'the list has sp2 consume'),
                           (f'{ITEM}\n2026-01-01 {TIME}{ITEM}', 'the list has 2 items')):
            self.assert_refused(HEAD + RESULT, log_of(item, STRIKE), part)

    def test_a_claim_names_every_number_of_its_item(self):
        self.assert_refused(HEAD.replace('verify, ', '') + RESULT, log_of(ITEM, STRIKE), 'leaves out verify')
        self.assert_refused(HEAD.replace('verify, ', 'verify, wrote, ') + RESULT, log_of(ITEM, STRIKE), 'no wrote')

    def test_a_fault_that_did_not_strike_fails(self):
        self.assert_refused(HEAD + RESULT, log_of(ITEM), 'of 1 faults struck 0')

    def test_only_the_lines_that_an_entry_claims_are_logged(self):
        self.assert_refused(HEAD + RESULT, log_of(MESSAGE, ITEM, STRIKE), 'no line should be logged')
        self.assert_refused(HEAD + 'logs     <20 set 3 3>\n' + RESULT, log_of(ITEM, STRIKE), 'no line is logged')

    def test_errors_may_move_only_between_the_times_of_the_window(self):
        def log_of_lists(*counts):
            items = [ITEM.replace('read 20', f'read {read}').replace(' 2,0,0', f' {errors},0,0')
                     for read, errors in counts]
            lines = [line for item in items for line in ('Stress 1 : <OL>', item, 'Stress 1 : </OL><P>')]
            return ''.join(f'2026-01-01 {TIME}{line}\n' for line in [*lines, STRIKE])
        entry = HEAD + 'window   1 2\n' + RESULT
        self.assertEqual(self.outcome(entry, log_of_lists((5, 0), (15, 2), (20, 2)))[0], 0)
        for lists, part in ((((5, 1), (15, 2), (20, 2)), 'error1 moves before the window'),
                            (((5, 0), (15, 1), (20, 2)), 'error1 moves after the window'),
                            (((5, 0), (20, 2), (20, 2)), 'does nothing after the window'),
                            (((5, 0), (20, 2)), 'has 2 lists instead of 3')):
            self.assert_refused(entry, log_of_lists(*lists), part)

    def test_another_exit_status_fails(self):
        self.assert_refused(HEAD + RESULT, log_of(ITEM, STRIKE), 'exit status 124 instead of 0', status=124)

    def test_hk_results_has_to_name_the_errors_that_moved(self):
        for record, ended in (({'verdict': 'fail', 'errors': [{'number': 1}]}, 0),
                              ({'verdict': 'fail', 'errors': [{'number': 2}]}, 1),
                              ({'verdict': 'pass', 'errors': [{'number': 1}]}, 1)):
            report = json.dumps({'boards': [{'runs': [{'records': [record]}]}]})
            judge = write_program(self.folder / 'judge', f"echo '{report}'")
            self.assertEqual(self.outcome(HEAD + RESULT, log_of(ITEM, STRIKE), '--results', judge)[0], ended)


if __name__ == '__main__':
    unittest.main()
