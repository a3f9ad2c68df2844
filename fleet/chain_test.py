#!/usr/bin/env python3
"""What the rules say, and what the chain does when a part of it fails.

    fleet/chain_test.py BUILD [-k CASE]     BUILD has hk_board, hk_stress and fleet_lines

Each case starts the parts that it needs, in BUILD/fleet/CASE and in namespaces of its own.
"""
import json
import os
import re
import subprocess
import sys
import time
import unittest

import chain
from chain import loop_item, wait_for
from chain_case import BUILD, ChainCase, run_cases

NETWORK_DOWN_S = 20


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
        blocks = 64
        said = self.start_disk_guard(logs, blocks)
        board = self.board('rack1-1')
        expected = [f'line {number:0500}' for number in range(1000)]
        sent = self.fill(logs, blocks, board, expected)
        wait_for('the guard', lambda: said().startswith('stop'))
        self.chain.stop('collector')
        for text in expected[sent:]:
            board.send(text)
        self.assertGreater(os.statvfs(logs).f_bavail, 0)
        self.assertLess(len(self.kept()), len(expected))
        subprocess.run(['mount', '-o', 'remount,size=4m', logs], check=True)
        wait_for('the guard', lambda: said().startswith('start'))
        self.start('collector')
        self.wait_for_kept(expected)

    def fill(self, logs, blocks, board, texts):
        """Sends lines until less is free than that; returns how many. The guard may be slow on a busy
        machine, so no line is sent before those that were sent are on the disk."""
        for number, text in enumerate(texts, 1):
            board.send(text)
            if number % 50 == 0:
                wait_for('lines', lambda: len(self.chain.kept_lines()) >= number)
                if os.statvfs(logs).f_bavail < blocks:
                    return number
        self.fail('the disk has room for all lines')

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


if __name__ == '__main__':
    sys.exit(run_cases())
