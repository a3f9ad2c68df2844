#!/usr/bin/env python3
"""What each part of the chain takes, for several numbers of boards.

    fleet/bench.py BUILD [BOARDS ...]     BUILD has fleet_lines; 10, 1000 and 10000 boards
    fleet/bench.py BUILD outage           the network is down for ten minutes

For each number: how many lines a second the collector and mtail take at most, then three minutes of
lists every 120 s with the shipped intervals. Everything runs on this machine, the senders too.
"""
import os
import pathlib
import shutil
import subprocess
import sys
import time
import zlib

import chain

BUILD = pathlib.Path(sys.argv[1]).resolve()
LINES = BUILD / 'fleet_lines'
LINES_A_LIST = 7
PERIOD_S = 120
LISTS_A_DAY = 24 * 3600 // PERIOD_S
FULL_SPEED_S = 10   # of sending as fast as receipts come
FULL_SPEED_LINES = 350000
WINDOW_S = 180      # of lists every PERIOD_S
ERROR_AT_S = 60     # in the window: the second list of board 1 has it
OUTAGE_S = 600
PARTS = ('collector', 'mtail', 'prometheus')
TICKS_A_SECOND = os.sysconf('SC_CLK_TCK')


def processor_s(part):
    """Processor time of a part so far; fields 14 and 15 of proc(5) stat, user and system."""
    fields = pathlib.Path(f'/proc/{part.pid}/stat').read_text().rsplit(')', 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICKS_A_SECOND


def memory_mb(part):
    status = pathlib.Path(f'/proc/{part.pid}/status').read_text()
    return int(status.split('VmHWM:')[1].split()[0]) / 1024


def row(what, value):
    print(f'  {what:44} {value}', flush=True)


def send(*arguments):
    """The sender, once all its boards are connected."""
    sender = subprocess.Popen([LINES, 'send', chain.COLLECTOR, '10514', *map(str, arguments)],
                              stdout=subprocess.PIPE, text=True)
    sender.stdout.readline()
    return sender


def collector_at_full_speed(parts, boards):
    sender = send(boards, 0, FULL_SPEED_S)
    before = processor_s(parts.parts['collector'])
    report = sender.communicate()[0].strip()
    used = processor_s(parts.parts['collector']) - before
    received = int(report.split(' lines received')[0].rsplit(' ', 1)[1])
    row('collector: lines/s', f'{received / FULL_SPEED_S:.0f}, {1e6 * used / received:.0f} us of processor time each')


def mtail_at_full_speed(parts, boards):
    """From the first to the last line of a file that is there at once."""
    lists = max(1, FULL_SPEED_LINES // (boards * LINES_A_LIST))
    lines = boards * lists * LINES_A_LIST
    parts.start_mtail()
    mtail = parts.parts['mtail']
    before = processor_s(mtail)
    with parts.kept.open('ab') as file:
        subprocess.run([LINES, 'file', str(boards), str(lists)], stdout=file, check=True)
    start = time.monotonic()
    # A scrape in between would be most of the work.
    chain.wait_for('mtail', lambda: parts.get('http://127.0.0.1:3903/debug/vars')['lines_total'] == lines, 600)
    row('mtail: lines/s', f'{lines / (time.monotonic() - start):.0f}, '
        f'{1e6 * (processor_s(mtail) - before) / lines:.0f} us of processor time each')
    begin = time.monotonic()
    series = parts.series('stress_last_list_seconds')
    row('mtail: one scrape', f'{time.monotonic() - begin:.2f} s, {len(series)} boards')
    row('mtail: memory', f'{memory_mb(mtail):.0f} MB')
    parts.stop('mtail')


def a_window_of_lists(parts, boards):
    parts.start_mtail()
    parts.start_prometheus(scrape_s=None)
    parts.start_alertmanager()
    sender = send(boards, PERIOD_S, WINDOW_S, ERROR_AT_S)
    used = {name: processor_s(parts.parts[name]) for name in PARTS}
    sent_at = float(sender.stdout.readline().split()[2])
    chain.wait_for('the alert', lambda: parts.alerts('StressErrorMoves'), 120, every=0.2)
    row('from the error to the alert', f'{time.time() - sent_at:.1f} s')
    row('lists every 120 s', sender.communicate()[0].strip())
    used = {name: processor_s(parts.parts[name]) - before for name, before in used.items()}
    for name in PARTS:
        row(f'{name}: processor time, memory', f'{100 * used[name] / WINDOW_S:.2f} % of one, '
            f'{1e3 * used[name] / WINDOW_S * PERIOD_S / boards:.2f} ms a board and list, '
            f'{memory_mb(parts.parts[name]):.0f} MB')
    row('series in Prometheus', f'{parts.series_total():.0f}')


def disk(parts, boards):
    text = parts.kept.read_bytes()[:50_000_000]
    lists = text.count(b'<OL>')
    row('log: a board and day', f'{len(text) / lists * LISTS_A_DAY / 1e3:.0f} kB, compressed '
        f'{len(zlib.compress(text)) / lists * LISTS_A_DAY / 1e3:.0f} kB')


def measure(boards):
    print(f'{boards} boards, {boards * LINES_A_LIST / PERIOD_S:.0f} lines/s, '
          f'load of the machine {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors')
    for step in ((collector_at_full_speed, disk), (mtail_at_full_speed,), (a_window_of_lists,)):
        parts = chain.Chain(BUILD / 'fleet' / 'bench')
        try:
            parts.start_collector()
            for each in step:
                each(parts, boards)
        finally:
            parts.stop_all()
        shutil.rmtree(parts.folder)


def outage():
    """Ten minutes without the network: a board logs its lists, and each arrives."""
    parts = chain.Chain(BUILD / 'fleet' / 'bench')
    parts.start_collector()
    path = parts.start_board('rack1-1')
    board = chain.Syslog(path, 'Stress 020000000001 ')
    sent = 0
    print(f'the network is down for {OUTAGE_S} s')
    parts.set_cable(False)
    end = time.monotonic() + OUTAGE_S
    while time.monotonic() < end:
        board.send_list(*[chain.loop_item(sent)] * 5)
        sent += LINES_A_LIST
        time.sleep(min(PERIOD_S, max(0, end - time.monotonic())))
    parts.set_cable(True)
    start = time.monotonic()
    chain.wait_for('the lines', lambda: len(set(parts.kept_lines())) >= sent, 120)
    print(f'all of {sent} lines are there {time.monotonic() - start:.0f} s after its end, '
          f'{len(parts.kept_lines()) - sent} of them twice')
    parts.stop_all()


def main():
    missing = chain.missing_packages()
    if missing:
        sys.exit('not installed: ' + ', '.join(missing))
    chain.enter()
    if sys.argv[2:] == ['outage']:
        outage()
        return
    for boards in [int(number) for number in sys.argv[2:]] or [10, 1000, 10000]:
        measure(boards)


if __name__ == '__main__':
    main()
