#!/usr/bin/env python3
"""What the collector and mtail make of lines.

    fleet/lines_test.py BUILD [-k CASE]     BUILD has hk_board, hk_stress and fleet_lines
"""
import re
import subprocess
import sys
import time

import chain
from chain import loop_item, wait_for
from chain_case import BUILD, STRESS, ChainCase, run_cases


class Lines(ChainCase):
    def test_the_file_holds_what_each_of_two_boards_logged(self):
        self.start('collector')
        boards = {}
        for name, wiring, option in (('rack1-1', ['--cable', '2-8'], '-E28'), ('rack1-2', ['--loop', '3'], '-E33')):
            log = self.chain.folder / f'{name}.log'
            boards[log] = subprocess.Popen(
                [BUILD / 'hk_board', '--quiet', '--log', log, *wiring, '--forward', self.chain.start_board(name),
                 '--mac', f'02:00:00:00:00:0{name[-1]}', '--for', '6', '--', BUILD / 'hk_stress',
                 '-d1', '-l5', option], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for log, board in boards.items():
            board.wait()
            logged = [line.split(' ', 2)[2].rstrip() for line in log.read_text().splitlines() if ' Stress ' in line]
            self.assertGreaterEqual(len(logged), 6)
            wait_for('the lines', lambda: len(self.kept(log.stem)) >= len(logged))
            self.assertEqual([line.split(' ', 2)[2].rstrip() for line in self.chain.kept_lines() if log.stem in line],
                             logged)

    def test_the_relay_adds_the_name_and_the_time_to_what_busybox_sends(self):
        self.start('collector', 'relay', 'mtail')
        script = f'import socket; s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)\n' + ''.join(
            f's.sendto({f"<14>Nov 22 05:00:00 {text}".encode()}, ("{chain.BOARDS}", 514))\n'
            for text in ('vm user.info', f'{STRESS}: <OL>\n', f'{STRESS}: {loop_item(7)}\n', f'{STRESS}: </OL><P>\n'))
        subprocess.run([*self.chain.in_field(), sys.executable, '-c', script], check=True)
        self.wait_for_kept(['<OL>', loop_item(7), '</OL><P>'])
        wait_for('the list', lambda: self.value('stress_records', host=chain.BOARDS) == 1)

    def test_mtail_names_the_counters_of_each_kind_of_line(self):
        table = subprocess.run([BUILD / 'fleet_lines', 'table'], capture_output=True, text=True, check=True).stdout
        items, counters = zip(*(line.split('\t') for line in table.splitlines()))
        self.start('mtail')
        self.write_list(*items)
        self.wait_until_read()
        self.assertEqual(self.value('stress_records'), len(items))
        for number, expected in enumerate(counters, 1):
            found = {re.search('counter="(.*?)"', labels)[1]: value
                     for labels, value in self.chain.series('stress_errors') if f'record="{number}"' in labels}
            self.assertEqual(found, {name: float(value) for name, value in
                                     (each.split('=') for each in expected.split())}, items[number - 1])

    def test_a_wrap_is_no_restart_and_a_new_run_is_one(self):
        self.start('mtail')
        self.write_list(loop_item(2147483000), loop_item(-300), loop_item(100, -2, -2, -2))
        self.write_list(loop_item(-2147483600), loop_item(700), loop_item(200))
        self.wait_until_read()
        self.assertEqual(self.value('stress_restarts_total'), 0)
        self.assertIsNone(self.value('stress_errors'))
        self.write_list(loop_item(-2147483500), loop_item(800), loop_item(150, -2, -2, -2))
        self.wait_until_read()
        self.assertEqual(self.value('stress_restarts_total'), 1)
        self.assertEqual([value for _, value in self.chain.series('stress_errors')], [4294967294] * 3)

    def test_a_record_that_stalls_is_timed_and_an_idle_one_is_not(self):
        self.start('mtail')
        self.write_list(loop_item(100), loop_item(0))
        self.wait_until_read()
        self.assertIsNone(self.value('stress_unchanged_seconds'))
        time.sleep(1.1)  # mtail counts whole seconds
        self.write_list(loop_item(100), loop_item(0))
        self.wait_until_read()
        self.assertGreaterEqual(self.value('stress_unchanged_seconds', record='1'), 1)
        self.assertEqual(self.value('stress_records_working'), 1)
        self.write_list(loop_item(101), loop_item(0))
        self.wait_until_read()
        self.assertIsNone(self.value('stress_unchanged_seconds'))

    def test_a_held_file_test_that_has_created_its_files_is_idle(self):
        self.start('mtail')
        held = [f'<LI> 11 {name} wrote 16 read 0 errors 0,0,0 hist 0,0 0,0 0,0 0,0 0,0'
                for name in ('filesys opt', 'bbsram file_copy')]
        self.write_list(*held)
        self.wait_until_read()
        time.sleep(1.1)  # mtail counts whole seconds
        self.write_list(*held)
        self.wait_until_read()
        self.assertEqual(self.value('stress_records_working'), 0)
        self.assertIsNone(self.value('stress_unchanged_seconds'))

    def test_an_hour_of_skew_changes_no_age_and_stops_no_list(self):
        self.start('mtail')
        for number, step_s in enumerate((3600, 120, -7200, 120), 1):
            self.write_list(*[loop_item(100 * number)] * number, after_s=step_s)
            self.wait_until_read()
            self.assertEqual(self.value('stress_records'), number)
            self.assertLess(abs(time.time() - self.value('stress_last_list_seconds')), 30)

    def test_lines_that_come_again_change_nothing(self):
        self.start('mtail')
        lines = self.list_lines(loop_item(100), loop_item(200), loop_item(300))
        self.write(lines[:3] + lines[1:])
        self.wait_until_read()
        self.assertEqual(self.value('stress_records'), 3)
        self.write(lines[2:])
        self.write_list(loop_item(101), loop_item(201), loop_item(301))
        self.wait_until_read()
        self.assertEqual(self.value('stress_records'), 3)
        self.assertEqual(self.value('stress_restarts_total'), 0)
        self.assertIsNone(self.value('stress_cut_lists_total'))

    def test_lines_that_are_no_results_make_no_series(self):
        self.start('collector', 'mtail')
        board = self.board('rack1-1')
        bad = ['<LI> 5 sp8 loop wrote 1', '<LI> 5 sp8 loop wrote one read 1 errors 0,0,0 hist 0,0',
               '<LI> ' + '9' * 3000, '<OL><LI>', '<LI>\x1b[31m\x00\xff']
        for text in bad:
            board.send(text)
        for ident in ('cron[12]', 'Stress ../../etc/passwd ', 'Stress', '\xff\xfe'):
            board.ident = ident
            board.send('<OL>')
            board.send(loop_item(1, errors=1))
        board.ident = STRESS
        board.send_list(loop_item(5))
        wait_for('the good list', lambda: self.value('stress_records') == 1)
        self.assertEqual(self.value('stress_bad_lines_total'), len(bad))
        self.assertIsNone(self.value('stress_errors'))
        self.assertEqual(len(self.kept()), len(bad) + 3)


if __name__ == '__main__':
    sys.exit(run_cases())
