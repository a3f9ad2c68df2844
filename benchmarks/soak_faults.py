"""The faults of ./bench soak: which there are, what each moves, and which of them a seed draws."""
import collections
import random
import re

LIST_S = 10  # between results lists
GRACE_S = 5  # a test that waits for a reply counts what it misses after the window
SETTLE_S = 30  # at the start and before the end
GAP_S = GRACE_S + 3 * LIST_S  # at least, between faults at one place: a list can be lost in between
LAST_S = 5  # the last fault, until the end
LEAST_S = 105  # of a run: until then every test has worked
PERIOD_S = 1800  # all tests work the last seconds of each of these: all of them unless ./bench soak --work says less
WAKE_S = 10  # until a test that goes on after a hold works
LEAST_WORK_S = 60  # of a period: the longest window with WAKE_S, GRACE_S and a choice of moments

BOARD = ('--cable 2-8 --cable 1-4 --loop 3 --loop 7s --fio 20=221,16=2 --spi 219 --spi reserved=loop '
         '--datakey present --eeprom good').split()
# -b9600 and -b1200 make the lines slow and an hour cheap. -F and -E28 have two records each.
PLAN = (f'-d5 -l{LIST_S} -b9600 -C1 -P4 -E33 -L -S1 -S2 -S4 -K -M /r0/a:/r0/b:0 -Y /r0/y -D -h -b1200 -E77 -F '
        '-h -b9600 -E28').split()
# The records of this plan, in their order. -K counts nothing and has no line in the lists.
RECORDS = 'C1 P4 E33 L S1 S2 S4 K M Y D E77 F20 F16 E2 E8'.split()
LINES = [record for record in RECORDS if record != 'K']

# By the records of a place, which no fault of another place affects: a fault, its seconds at least and at
# most, the counters that it moves, and those that it may move. {1-9} stands for a number, {a|b} for one of
# these. A counter is a record and its place in the line.
Row = collections.namedtuple('Row', 'form least most moves may', defaults=('', ''))
PLACES = {
    'E2 E8': (
        Row('flip:2:{1-9}', 5, 30, 'E2.1'),
        Row('flip:8:{1-9}', 5, 30, 'E8.1'),
        Row('drop:2:{2-9}', 5, 30, 'E2.2 E2.3 E8.3'),
        Row('drop:8:{2-9}', 5, 30, 'E8.2'),
        Row('cut:2', 2, 30, 'E2.2 E2.3 E8.3'),
        Row('cut:8', 2, 30, 'E8.2'),
        Row('pull:2:{1-9}', 2, 30, 'E2.2 E2.3 E8.3'),
        Row('lostbyte:2:{20-90}', 5, 30, 'E2.1'),
        Row('insert:2:{20-90}', 5, 30, 'E2.1'),
        Row('speed:2:{12-40}', 2, 30, 'E2.1', 'E2.2 E2.3 E8.3'),
        Row('speed:8:-{12-40}', 2, 30, 'E8.1', 'E8.2'),
        Row('speed:2:{1-3}', 2, 30),
        Row('framing:2:{1-90}', 5, 30, 'E2.1'),
        Row('stall:2', 1, 10),
        Row('cts:2:0', 1, 30),
        Row('dcd:8:0', 1, 30),
        Row('lines:2-8', 1, 30),
    ),
    'E33': (
        Row('flip:3:{1-9}', 5, 30, 'E33.1'),
        Row('drop:3:{2-9}', 5, 30, 'E33.2 E33.3'),
        Row('cut:3', 2, 30, 'E33.1 E33.2 E33.3'),
        Row('insert:3:{20-90}', 5, 30, 'E33.1'),
        Row('framing:3:{1-90}', 5, 30, 'E33.1'),
        Row('stall:3', 1, 10),
        Row('cts:3:0', 1, 30),
        Row('lines:3', 1, 30),
    ),
    'E77': (
        Row('flip:7s:{1-4}', 10, 30, 'E77.2 E77.3', 'E77.1'),
        Row('drop:7s:{1-4}', 10, 30, 'E77.2 E77.3', 'E77.1'),
        Row('garble:7s:{1-9}', 10, 30, 'E77.1'),
        Row('cut:7s', 5, 30, 'E77.2 E77.3', 'E77.1'),
        Row('stall:7s', 1, 10),
    ),
    'C1 P4': (
        Row('flip:4:{1-9}', 2, 30, 'C1.1'),
        Row('insert:4:{20-90}', 5, 30, 'C1.1'),
        Row('speed:4:{12-40}', 2, 30, 'C1.1'),
        Row('speed:4:-{1-3}', 2, 30),
        Row('cut:4', 1, 30, 'C1.3'),
        Row('pull:4:{1-9}', 1, 30, 'C1.3'),
        Row('stall:4', 1, 10, 'C1.3'),
        Row('drop:4:{2-9}', 2, 30),
        Row('lostbyte:4:{20-90}', 2, 30),
        Row('framing:4:{1-90}', 5, 30, 'C1.1'),
        Row('dcd:4:0', 1, 30),
    ),
    'F20 F16': (
        Row('flip:5s:{1-9}', 5, 30, 'F20.2 F16.2'),
        Row('drop:5s:{1-9}', 5, 30, 'F20.2 F16.2'),
        Row('cut:5s', 5, 30, 'F20.2 F16.2'),
        Row('garble:5s:{5-9}', 5, 30, 'F20.2', 'F16.1 F16.2'),
        Row('stall:5s', 1, 10),
        Row('stuck:20:3.{1-8}', 5, 30, 'F20.1'),
        Row('stuck:20:0.{1-8}', 5, 30),
        Row('dead:16:5.2', 5, 30, 'F16.1'),
        Row('silent:20:{1|4|7}', 5, 30, 'F20.2'),
        Row('silent:16:{1|4|7}', 5, 30, 'F16.2'),
        Row('lose:20:{5-20}', 5, 30, 'F20.2'),
        Row('lose:16:{5-20}', 5, 30, 'F16.2'),
        Row('corrupt:20:{1|3}', 5, 30, 'F20.1'),
        Row('corrupt:20:{4-20}', 5, 30, '', 'F20.1'),  # seen only in the byte that the step names
        Row('stray:20:{5-20}', 5, 30, 'F20.3'),
        Row('stray:16:{5-20}', 5, 30, 'F16.3'),
        Row('long:{16|20}:{5-20}', 5, 30),
        Row('short:{16|20}:{5-20}', 5, 30),
    ),
    'L': (
        Row('stuck:manufacturer:3.{1-8}', 5, 30, 'L.1'),
        Row('dead:manufacturer:0.1', 5, 30, 'L.1'),
        Row('silent:manufacturer:{4|7}', 1, 30, 'L.2'),
        Row('late:manufacturer:{1-20}', 2, 30, 'L.2'),
        Row('delay:manufacturer:{5-50}', 2, 30, 'L.2'),
        Row('lose:manufacturer:{1-20}', 2, 30, 'L.2'),
        Row('corrupt:manufacturer:{1-20}', 2, 30, 'L.2'),
        Row('check:manufacturer:{1-20}', 2, 30, 'L.2'),
    ),
    'S1': (
        Row('fail:datakey:{1-50}', 2, 30, 'S1.1'),
        Row('weak:datakey:{0-31}.{1-8}', 2, 30),
        Row('slow:datakey:{20-500}', 2, 30),
        Row('gone:datakey', 1, 30),
    ),
    'S2': (
        Row('fail:eeprom:{1-50}', 2, 30, 'S2.1'),
        Row('weak:eeprom:{0-31}.{1-8}', 2, 30),
        Row('slow:eeprom:{20-60}', 2, 10),
    ),
    'M': (
        Row('full:r0', 2, 30),
        Row('size:r0:{4-8}', 2, 30),
        Row('readonly:r0', 2, 30),
    ),
    '': (
        Row('gone:led', 1, 30),
        Row('readonly:led', 1, 30),
        Row('gone:eth0', 1, 30),
        Row('gone:log', 1, 8),
    ),
}
# One of these ends the run. A port that hangs up does not come back; after a late reply -F can take each reply
# for that of the next request, and fail some thousand times a second until one is lost.
LAST = (
    Row('hangup:1:1', LAST_S, LAST_S, 'C1.3'),
    Row('hangup:2:1', LAST_S, LAST_S, 'E2.2', 'E2.3 E8.1 E8.2 E8.3'),
    Row('hangup:3:1', LAST_S, LAST_S, 'E33.1 E33.2', 'E33.3'),
    Row('hangup:4:1', LAST_S, LAST_S, 'P4.3', 'C1.3'),
    Row('hangup:5s:1', LAST_S, LAST_S, 'F20.2 F16.2'),
    Row('hangup:7s:1', LAST_S, LAST_S, 'E77.2', 'E77.1 E77.3'),
    Row('hangup:8:1', LAST_S, LAST_S, 'E2.2 E8.2', 'E8.1'),
    Row('late:20:29', LAST_S, LAST_S, 'F20.2', 'F16.1 F16.2'),
    Row('delay:16:1000', LAST_S, LAST_S, 'F16.2', 'F20.1 F20.2'),
)


class Fault:
    """One fault of a run: its text, its window in seconds, and what it moves."""

    def __init__(self, text, begin, end, row, records):
        self.text, self.begin, self.end, self.records = text, begin, end, records.split()
        self.moves, self.may = set(row.moves.split()), set(row.moves.split() + row.may.split())
        self.counted = collections.Counter()  # by counter

    def is_there(self, earliest, latest):
        return self.begin < latest and earliest < self.end + GRACE_S


# The faults of a seed.

def drawn_text(form, rng):
    def one(match):
        if '|' in match[1]:
            return rng.choice(match[1].split('|'))
        least, most = map(int, match[1].split('-'))
        return str(rng.randint(least, most))
    return re.sub(r'\{(.*?)\}', one, form)


def is_at_work(begin, end, work):
    """Whether the tests work from begin to end, in seconds since the start."""
    start = begin - begin % PERIOD_S + PERIOD_S - work
    return work == PERIOD_S or start + WAKE_S <= begin and end <= start + work


def moment_at_work(begin, length, work, rng):
    """When a window of this length begins that is due at `begin`: at a random moment while the tests work."""
    if work == PERIOD_S:
        return begin
    start = begin - begin % PERIOD_S + PERIOD_S - work
    last = start + work - GRACE_S - length
    if begin > last:
        start, last = start + PERIOD_S, last + PERIOD_S
    return rng.randint(max(begin, start + WAKE_S), last)


def faults_of_place(records, rows, seconds, every, work, rng):
    """Each kind once before any comes again. `every` is the mean time that is added to the gap."""
    begin, deck, faults = SETTLE_S, [], []
    while True:
        begin += int(rng.expovariate(1 / every))
        deck = deck or rng.sample(rows, len(rows))
        row = deck.pop()
        length = rng.randint(row.least, row.most)
        begin = moment_at_work(begin, length, work, rng)
        end = begin + length
        if end > seconds - LAST_S - SETTLE_S:
            return faults
        faults.append(Fault(drawn_text(row.form, rng), begin, end, row, records))
        begin = end + GAP_S


def drawn_faults(seconds, every, work, seed):
    rng = random.Random(seed)
    faults = [fault for records, rows in PLACES.items()
              for fault in faults_of_place(records, rows, seconds, every, work, rng)]
    last = rng.choice(LAST)
    faults.append(Fault(last.form, seconds - LAST_S, seconds, last, ' '.join(LINES)))
    return sorted(faults, key=lambda fault: (fault.begin, fault.text))
