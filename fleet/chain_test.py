#!/usr/bin/env python3
"""What the rules say, and what the chain does when a part of it fails.

    fleet/chain_test.py BUILD [-k CASE]     BUILD has hk_board, hk_stress and fleet_lines

Each case starts the parts that it needs, in BUILD/fleet/CASE and in namespaces of its own.
"""
import datetime
import json
import os
import pathlib
import re
import subprocess
import sys
import time
import unittest

import chain
from chain import loop_item, wait_for

BUILD = pathlib.Path(sys.argv[1]).resolve()
STRESS = 'Stress 020000000001 '
NETWORK_DOWN_S = 20
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


class Faults(ChainCase):
    """A part fails: lines are kept and arrive, in order."""

    def test_a_restarted_collector_loses_no_line(self):
        self.start('collector')
        board = self.board('rack1-1')
        expected = [f'line {number}' for number in range(3000)]
        for number, text in enumerate(expected):
            board.send(text)
            if number in (700, 1400, 2100):
                wait_for('lines', self.chain.kept_lines)
                missed = self.refusals('rack1-1')
                self.chain.stop('collector', 'terminate' if number == 700 else 'kill')
            elif number in (900, 1600, 2300):
                wait_for('the board to miss it', lambda: self.refusals('rack1-1') > missed)
                self.start('collector')
        self.wait_for_kept(expected)

    def test_the_collector_is_stopped_before_its_disk_is_full_and_no_line_is_lost(self):
        logs = self.chain.folder / 'logs'
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=512k', 'small', logs], check=True)
        self.start('collector')
        said = self.start_disk_guard(logs, blocks=64)
        board = self.board('rack1-1')
        expected = [f'line {number}' for number in range(8000)]
        for text in expected:
            board.send(text)
        wait_for('the guard', lambda: said().startswith('stop'))
        self.chain.stop('collector')
        self.assertGreater(os.statvfs(logs).f_bavail, 0)
        self.assertLess(len(self.kept()), len(expected))
        subprocess.run(['mount', '-o', 'remount,size=4m', logs], check=True)
        wait_for('the guard', lambda: said().startswith('start'))
        self.start('collector')
        self.wait_for_kept(expected)

    def start_disk_guard(self, logs, blocks):
        """The command of the unit, where systemctl only says what it is to do; returns what reads that."""
        unit = chain.replaced('hk_stress_disk.service', {
            'sleep 5': 'sleep 0.1', '/var/log/hk_stress': logs, '50000': blocks, '%%': '%', '\\\n': ''})
        command = re.search("ExecStart=/bin/sh -c '(.*?)'", unit, re.DOTALL)[1]
        said = self.chain.folder / 'systemctl.said'
        said.touch()
        self.chain.start_part('guard', ['sh', '-c', f'systemctl() {{ echo "$*" >{said}; }}\n{command}'])
        return said.read_text

    def test_what_is_logged_while_the_network_is_down_arrives(self):
        self.start('collector')
        board = self.board('rack1-1')
        expected = ['before']
        board.send('before')
        wait_for('a line', self.chain.kept_lines)
        self.chain.set_cable(False)
        for number in range(5):  # the lists of ten minutes
            board.send_list(*[loop_item(number)] * 5)
            expected += ['<OL>', *[loop_item(number)] * 5, '</OL><P>']
        time.sleep(NETWORK_DOWN_S)
        self.assertEqual(self.kept(), ['before'])
        self.chain.set_cable(True)
        self.wait_for_kept(expected)

    def test_a_board_that_floods_is_slowed_and_the_others_are_not_lost(self):
        self.start('collector')
        flooding = self.board('rack1-1', 'Stress 0200000000ff ')
        other = self.board('rack1-2')
        start = time.monotonic()
        for number in range(20000):
            flooding.send(f'flood {number}')
        expected = [f'line {number}' for number in range(100)]
        for text in expected:
            other.send(text)
        self.wait_for_kept(expected, word='rack1-2')
        self.assertLess(len(self.kept('flood')), 1000 * (time.monotonic() - start))
        self.assertLess(len(self.kept('flood')), 20000)

    def test_a_restart_of_mtail_fires_no_alert_again(self):
        self.start('collector', 'mtail', 'alertmanager')
        self.chain.start_prometheus(scrape_s=1)
        board = self.board('rack1-1')
        board.send_list(loop_item(100, errors=3))
        first = wait_for('the alert', lambda: self.chain.alerts('StressErrorMoves'))
        self.chain.stop('mtail', 'kill')
        wait_for('mtail to be missed', lambda: not self.chain.query('stress_errors'))
        self.start('mtail')
        board.send_list(loop_item(200, errors=3))
        wait_for('the errors again', lambda: self.chain.query('stress_errors'))
        rounds = self.rounds()
        wait_for('the rules', lambda: self.rounds() >= rounds + 3)
        again = self.chain.alerts('StressErrorMoves')
        self.assertEqual([(each['fingerprint'], each['startsAt']) for each in again],
                         [(each['fingerprint'], each['startsAt']) for each in first])
        self.assertEqual([value for _, value in self.chain.query('stress_errors')], [3])

    def rounds(self):
        """How often Prometheus has evaluated the rules of boards."""
        return next(value for labels, value in self.chain.series('prometheus_rule_group_iterations_total', 9090)
                    if 'boards' in labels)

    def test_alertmanager_sends_one_alert_for_a_rack_in_place_of_one_for_each_board(self):
        self.start('alertmanager')
        common = {'collector': 'collector1', 'rack': 'rack1'}
        self.chain.get('http://127.0.0.1:9093/api/v2/alerts', [
            {'labels': {'alertname': 'StressRackFails', 'severity': 'rack', **common}},
            {'labels': {'alertname': 'StressBoardSilent', 'severity': 'board', 'host': 'rack1-1', **common}},
            {'labels': {'alertname': 'StressBoardSilent', 'severity': 'board', 'host': 'rack2-1',
                        'collector': 'collector1', 'rack': 'rack2'}}])
        def states():
            return {each['labels'].get('host'): each['status']['state'] for each in self.chain.alerts()}
        wait_for('three alerts', lambda: len(states()) == 3 and 'unprocessed' not in states().values())
        self.assertEqual(states(), {None: 'active', 'rack1-1': 'suppressed', 'rack2-1': 'active'})


class Lines(ChainCase):
    """What the collector and mtail make of lines."""

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


class Forgery(ChainCase):
    """What client certificates stop, and what they do not."""

    def setUp(self):
        super().setUp()
        self.certificates = self.chain.folder / 'certificates'
        self.certificates.mkdir()
        self.make_authority('ca')
        self.make_authority('other_ca')
        self.make_certificate('collector', 'collector.example.net', 'ca')
        self.make_certificate('board', 'rack1-1.boards.example.net', 'ca')
        self.make_certificate('stranger', 'rack1-1.boards.example.net', 'other_ca')
        self.chain.start_collector({'#tls ': '', '/etc/hk_stress': self.certificates})

    def openssl(self, *arguments):
        subprocess.run(['openssl', *arguments], cwd=self.certificates, check=True, capture_output=True)

    def make_authority(self, name):
        self.openssl('req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes',
                     '-keyout', f'{name}.key', '-out', f'{name}.pem', '-subj', f'/CN={name}', '-days', '2')

    def make_certificate(self, name, common_name, authority):
        self.openssl('req', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes',
                     '-keyout', f'{name}.key', '-out', f'{name}.csr', '-subj', f'/CN={common_name}')
        self.openssl('x509', '-req', '-in', f'{name}.csr', '-CA', f'{authority}.pem', '-CAkey',
                     f'{authority}.key', '-CAcreateserial', '-out', f'{name}.pem', '-days', '2')

    def tls_board(self, name, certificate):
        return self.board(name, texts={
            '#tls ': '',
            '/etc/hk_stress/board': f'{self.certificates}/{certificate}',
            '/etc/hk_stress': self.certificates})

    def test_strangers_cannot_log_and_a_board_can_forge_for_another(self):
        plain = self.board('rack1-2')
        stranger = self.tls_board('rack1-3', 'stranger')
        plain.send('without a certificate')
        stranger.send('with the certificate of another authority')
        board = self.tls_board('rack1-1', 'board')
        board.send('with a certificate')
        board.ident = 'Stress 0200000000ff '
        board.send('for another board')
        self.wait_for_kept(['with a certificate', 'for another board'])
        for name in ('rack1-2', 'rack1-3'):
            wait_for('the refusal', lambda: self.refusals(name) > 0)
        self.assertEqual(self.kept(), ['with a certificate', 'for another board'])


class Rules(unittest.TestCase):
    """promtool evaluates the rules on series that tests give it."""

    def promtool(self, file):
        done = subprocess.run(['promtool', 'test', 'rules', file], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_each_rule_fires_for_its_fault_alone(self):
        self.promtool(chain.FLEET / 'rules_test.yml')

    def test_a_rack_fails_with_more_than_five_percent_of_its_boards(self):
        """Racks of sixty boards, three and four of them silent."""
        series = [{'series': f'stress_last_list_seconds{{collector="collector1",rack="rack{silent}",'
                             f'host="rack{silent}-{number}",board="{number:012x}"}}',
                   'values': '0+30x10 300x50' if number <= silent else '0+30x60'}
                  for silent in (3, 4) for number in range(1, 61)]
        firing = [{'exp_labels': {'severity': 'rack', 'collector': 'collector1', 'rack': 'rack4'},
                   'exp_annotations': {'summary': 'Rack rack4: 4 boards fail, more than 5 %.'}}]
        folder = BUILD / 'fleet'
        folder.mkdir(exist_ok=True)
        (folder / 'rack_test.yml').write_text(json.dumps({
            'rule_files': [str(chain.FLEET / 'rules.yml')], 'evaluation_interval': '15s',
            'tests': [{'interval': '30s', 'input_series': series, 'alert_rule_test': [
                {'eval_time': '10m', 'alertname': 'StressRackFails', 'exp_alerts': []},
                {'eval_time': '13m', 'alertname': 'StressRackFails', 'exp_alerts': firing}]}]}))
        self.promtool(folder / 'rack_test.yml')


def main():
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


if __name__ == '__main__':
    sys.exit(main())
