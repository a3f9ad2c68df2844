#!/usr/bin/env python3
"""What the chain does when a part of it fails. Each case starts the parts that it needs.

    fleet/chain_test.py FOLDER [CASE]     FOLDER is where all files go
"""
import os
import pathlib
import subprocess
import sys
import time
import unittest

import chain

FOLDER = pathlib.Path(sys.argv.pop(1)).resolve() if len(sys.argv) > 1 else None
STRESS = 'Stress 020000000001 '


class ChainTest(unittest.TestCase):
    def setUp(self):
        self.chain = chain.Chain(FOLDER / self._testMethodName)
        self.addCleanup(self.chain.stop_all)

    def start(self, *parts):
        for part in parts:
            getattr(self.chain, f'start_{part}')()

    def board(self, name, ident=STRESS, texts=None):
        return chain.Syslog(self.chain.start_board(name, texts), ident)

    def texts(self, word=''):
        """The messages in the collector's file, without time, host and ident."""
        return [line.split(' : ', 1)[1].rstrip() for line in self.chain.kept_lines() if word in line]

    def wait_for_texts(self, expected, word='', seconds=30):
        """Every line once and in order, where repeated ones in a row count once."""
        def arrived():
            return len(self.texts(word)) >= len(expected)
        chain.wait_for('the lines', arrived, seconds)
        self.assertEqual(self.texts(word), expected)


class Faults(ChainTest):
    def test_a_restarted_collector_loses_no_line(self):
        self.start('collector')
        board = self.board('rack1-1')
        expected = []
        for number in range(3000):
            board.send(f'line {number}')
            expected.append(f'line {number}')
            if number % 1000 == 500:
                how = 'kill' if number > 1000 else 'terminate'
                chain.wait_for('lines', self.chain.kept_lines)
                self.chain.stop('collector', how)
                self.start('collector')
        self.wait_for_texts(expected)


if __name__ == '__main__':
    if chain.missing_packages():
        print('Skipped\nmissing packages:', *chain.missing_packages())
        sys.exit(77)
    sys.argv.insert(1, str(FOLDER))
    chain.enter()
    sys.argv.pop(1)
    unittest.main(verbosity=2)
