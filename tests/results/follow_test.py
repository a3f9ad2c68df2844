#!/usr/bin/env python3
"""hk_results --follow on a terminal: python3 follow_test.py HK_RESULTS. Each new list shows the table again."""
import os
import pty
import select
import signal
import subprocess
import sys
import tempfile

LIMIT_S = int(os.environ.get('HK_WAIT_SECONDS', 60))


def one_list(second, errors):
    start = f'2026-11-22T00:00:{second}+00:00 rack7 oven: '
    item = f'<LI> 3 sp2 produce wrote {second} verify {second} errors {errors},0,0 hist 0,0 0,0 0,0 0,0 0,0'
    return ''.join(f'{start}{text}\n' for text in ('<OL>', item, '</OL><P>'))


def wait_for(terminal, text):
    seen = ''
    while text not in seen:
        ready, _, _ = select.select([terminal], [], [], LIMIT_S)
        if not ready:
            sys.exit(f'no "{text}" within {LIMIT_S} s in:\n{seen}')
        seen += os.read(terminal, 4096).decode()


def main():
    terminal, other_end = pty.openpty()
    with tempfile.NamedTemporaryFile('w') as log:
        log.write(one_list(10, 0))
        log.flush()
        program = subprocess.Popen([sys.argv[1], '--follow', log.name], stdout=other_end)
        try:
            wait_for(terminal, 'PASS: 1 of 1')
            log.write(one_list(20, 1))
            log.flush()
            wait_for(terminal, 'FAIL: 0 of 1')
            program.send_signal(signal.SIGTERM)
            wait_for(terminal, 'FAIL: 0 of 1')
            return 0 if program.wait(LIMIT_S) == 1 else 'the exit status is not 1'
        finally:
            program.kill()


if __name__ == '__main__':
    sys.exit(main())
