#!/usr/bin/env python3
"""tools/document_commands.py on small documents of its own."""
import contextlib
import io
import pathlib
import sys
import tempfile
import unittest
import unittest.mock

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / 'tools'))
import document_commands


def outcome(document, *options, name='page.md'):
    """Runs the tool on one document; returns its exit status and what it printed."""
    with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(io.StringIO()) as printed:
        path = pathlib.Path(folder) / name
        path.write_text(document)
        with unittest.mock.patch('sys.argv', ['document_commands', *options, folder, str(path)]):
            status = document_commands.main()
    return status, printed.getvalue()


def printing(lines, expected):
    """A block with a command that prints the lines, and what the document says of them."""
    return console("$ printf '%b\\n' '" + lines.replace('\n', '\\n') + "'\n" + expected)


def console(text, comment=''):
    return f'{comment}\n```console\n{text}\n```\n'


class DocumentCommands(unittest.TestCase):
    def assert_run(self, document, **options):
        status, printed = outcome(document, **options)
        self.assertEqual(status, 0, printed)

    def assert_failed(self, document, part, *options):
        status, printed = outcome(document, *options)
        self.assertEqual(status, 1)
        self.assertIn(part, printed)

    def test_output_may_differ_in_numbers_times_blanks_and_where_the_document_leaves_it_out(self):
        for printed, expected in (('read 3725 errors 0,0', 'read 12 errors 0,0'),
                                  ('read 00003a7f  -7', 'read 0012 1234'),
                                  ('05:50:25.046 Stress', '00:00:00.000 Stress'),
                                  ('2026-11-21T05:23:25+00:00 x', '2020-01-01T00:00:00+00:00 x'),
                                  ('one two three', 'one ... three'), ('one two', 'one ...'),
                                  ('a\nb\nc', 'a\n...\nc'), ('a\nc', 'a\n...\nc'), ('a', '')):
            with self.subTest(expected=expected):
                self.assert_run(printing(printed, expected))

    def test_the_commands_in_what_a_script_prints_are_run(self):
        self.assert_run('```text\n+ echo a\na\n+ echo b\nb\n```\n')
        self.assert_failed('```text\n+ echo a\nb\n```\n', '+++ printed')

    def test_another_word_line_or_zero_for_a_count_is_a_failure(self):
        for printed, expected in (('errors 292', 'errors 0'), ('errors 0', 'errors 292'), ('sp2', 'sp4'),
                                  ('good', 'bad'), ('a\nb', 'a'), ('a', 'a\nb'), ('b\na', 'a\n...')):
            with self.subTest(expected=expected):
                self.assert_failed(printing(printed, expected), '+++ printed')

    def test_in_the_boards_own_time_another_number_is_a_failure(self):
        self.assert_run(console('$ echo read 5 # --clock virtual\nread 5'))
        self.assert_failed(console('$ echo read 5 # --clock virtual\nread 6'), '+++ printed')

    def test_a_status_that_is_not_shown_must_be_0(self):
        self.assert_failed(console('$ (exit 3)'), 'ends with status 3')
        self.assert_run(console('$ (exit 3)\n$ echo $?\n3'))

    def test_commands_of_a_block_share_a_shell_and_go_on_in_the_next_line(self):
        self.assert_run(console('$ name=$((40 + \\\n    2))\n$ sleep 100 & echo "$name x"\n42 x'))
        self.assert_run(console("$ echo 'a\n> b'\na\nb"))

    def test_a_block_that_does_not_end_is_a_failure(self):
        self.assert_failed(console('$ echo a\n$ sleep 100'), 'does not end in time', '--limit', '0.5')

    def test_a_marked_block_is_listed_with_its_reason_and_not_run(self):
        status, printed = outcome(console('$ false', '<!-- not run: needs a board -->'))
        self.assertEqual(status, 0)
        self.assertIn('needs a board', printed)
        self.assertIn('0 run, 1 skipped', printed)

    def test_a_command_elsewhere_is_reported_and_with_strict_a_failure(self):
        for document in ('text\n\n    hk_stress -C1\n', '```sh\n./demo\n```\n', '```console\n$ true\n'):
            with self.subTest(document=document):
                self.assertIn('1 outside', outcome(document)[1])
                self.assert_failed(document, '1 outside', '--strict')

    def test_manual_pages_have_examples_too(self):
        for good, bad in ((".EX\n$ echo a\\e\\e\\-b\na\\e\\-b\n.EE\n", '.EX\n$ echo a\nb\n.EE\n'),
                          ('.Bd -literal\n$ echo a\na\n.Ed\n', '.Bd -literal\n$ echo a\nb\n.Ed\n'),
                          ('.Dl $ true\n', '.Dl $ false\n')):
            with self.subTest(good=good):
                self.assert_run(good, name='page.8')
                self.assertEqual(outcome(bad, name='page.8')[0], 1)
        self.assertIn('1 skipped', outcome('.\\" not run: why\n.Dl $ false\n', name='page.8')[1])


if __name__ == '__main__':
    unittest.main()
