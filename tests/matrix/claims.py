"""What an entry claims of the last list of its run."""
import re
import types

from entries import BadEntry

NUMBER = r'(-?\d+)'
ITEM = re.compile(rf'<LI> \d+ (.+?) (\w+) {NUMBER} (\w+) {NUMBER} errors {NUMBER},{NUMBER},{NUMBER} hist (.*)')
# An item that is cut in the list is whole in the status report.
REPORTED = re.compile(r'report: .* (\w+), (wrote) ([0-9a-f]{8}), (read) ([0-9a-f]{8}), errors (..) (..)\[')
SENTENCE = re.compile(r'(-[A-Z]) (.+?): (?:(.+) moves?(?:; |\.))?(?:(.+) stays?\.)?')
ERRORS = ['error1', 'error2', 'error3']


class Item:
    """An item of a results list."""

    def __init__(self, name, numbers, samples):
        self.name = name
        self.numbers = numbers  # by name, as wrote, read, error1
        self.samples = samples  # newest first

    def moved(self):
        moved = {name for name, number in self.numbers.items() if number != 0}
        return moved | ({'samples'} if any(map(any, self.samples)) else set())


def list_item(name, first, first_count, second, second_count, *rest):
    numbers = {first: int(first_count), second: int(second_count)}
    numbers.update(zip(ERRORS, map(int, rest[:3])))
    return Item(name, numbers, [tuple(map(int, pair.split(','))) for pair in rest[3].split()])


def reported_item(name, first, first_count, second, second_count, *errors):
    numbers = {first: int(first_count, 16), second: int(second_count, 16)}
    numbers.update(zip(ERRORS, (int(error, 16) for error in errors)))
    return Item(name, numbers, [])


def items_of(result):
    """The items of the list among the lines of a result."""
    read = ((ITEM, list_item), (REPORTED, reported_item))
    return [make(*found.groups()) for line in result for form, make in read if (found := form.search(line))]


def strikes_of(result):
    """How often each fault struck."""
    return [int(count) for line in result for count in re.findall(r' board: fault \S+ struck (\d+) time', line)]


def messages_of(result):
    """The lines that the tests log, apart from the list."""
    return [line for line in result if re.match(r'\S+ Stress', line) and '<LI>' not in line]


class Claim:
    """A sentence such as "-E sp2 loop: wrote and error 1 move; read, errors 2 and 3 and samples stay."."""

    def __init__(self, sentence):
        found = SENTENCE.fullmatch(sentence)
        if not found:
            raise BadEntry(f'"{sentence}" is no claim such as "-E sp2 loop: read moves; errors stay."')
        self.option, self.name = found[1], found[2]
        self.moves, self.stays = numbers_named(found[3] or ''), numbers_named(found[4] or '')
        if self.moves & self.stays:
            raise BadEntry(f'"{sentence}" says two things of {", ".join(self.moves & self.stays)}')

    def complaints(self, item):
        if item.name != self.name:
            return [f'the list has {item.name}, the claim is of {self.name}']
        named, there = self.moves | self.stays, {*item.numbers, 'samples'}
        texts = [f'{name} {"moves" if name in item.moved() else "stays"}, against the claim'
                 for name in sorted((item.moved() ^ self.moves) & named & there)]
        texts += [f'the claim leaves out {name}' for name in sorted(there - named)]
        texts += [f'the list has no {name}' for name in sorted(named - there)]
        return [f'{self.name}: {text}' for text in texts]


def numbers_named(words):
    """"wrote, errors 2 and 3" names wrote, error2 and error3; "errors" alone all three."""
    words = re.sub(r'\berrors(?! \d)', 'error 1 2 3', words)
    names = re.findall(r'\w+', words)
    return {f'error{name}' if name.isdigit() else name for name in names} - {'and', 'error', 'errors'}


# Rules for samples: "position 3-15", "position 0-2, byte 41 but for one bit", "one of 24,9 25,10".

BYTE_RULES = (
    (r'', lambda byte, position: True),
    (r', byte (\d+)', lambda byte, position, expected: byte == int(expected)),
    (r', byte (\d+) but for one bit', lambda byte, position, expected: (byte ^ int(expected)).bit_count() == 1),
    (r', byte an eighth of the position', lambda byte, position: byte == position // 8),
)


def is_sample(rule, position, byte):
    if rule.startswith('one of '):
        return f'{position},{byte}' in rule.split()
    for form, holds in BYTE_RULES:
        found = re.fullmatch(rf'position (\d+)-(\d+){form}', rule)
        if found:
            return int(found[1]) <= position <= int(found[2]) and holds(byte, position, *found.groups()[2:])
    raise BadEntry(f'"{rule}" is no rule for samples')


def sample_complaints(lines, items):
    """Of lines such as "sp2 loop: RULE"; several rules for an item are alternatives."""
    rules = {}
    for line in lines:
        name, _, rule = line.partition(': ')
        rules.setdefault(name, []).append(rule)
    return [f'{item.name}: a sample is {position},{byte}, against the rule'
            for item in items for position, byte in item.samples[:item.numbers['error1']]
            if item.name in rules and not any(is_sample(rule, position, byte) for rule in rules[item.name])]


def relation_complaints(relations, result, items):
    names = {'struck': sum(strikes_of(result)), 'abs': abs, '__builtins__': {}}
    names.update(zip(('first', 'second'), (types.SimpleNamespace(**item.numbers) for item in items)))
    return [f'"{relation}" does not hold' for relation in relations if not eval(relation, names)]


def fault_complaints(entry, result):
    strikes = strikes_of(result)
    if len(strikes) != len(entry.faults()) or 0 in strikes:
        return [f'of {len(entry.faults())} faults struck {len(strikes) - strikes.count(0)}']
    return []


def window_complaints(entry, lists):
    """Of the lists at the two times of the window, and the last one."""
    if not entry.window:
        return []
    if len(lists) < 3:
        return [f'the run has {len(lists)} lists instead of 3']
    return [text for items in zip(*map(items_of, (lists[0], lists[1], lists[-1]))) if items[-1].moved() & set(ERRORS)
            for text in outside_complaints(*items)]


def outside_complaints(before, after, last):
    """Of one item whose errors move."""
    errors_before, errors_after = (sorted(name for name in ERRORS if one.numbers[name] != other.numbers[name])
                                   for one, other in ((Item('', dict.fromkeys(ERRORS, 0), []), before), (after, last)))
    texts = [f'{name} moves before the window' for name in errors_before]
    texts += [f'{name} moves after the window' for name in errors_after]
    if not before.moved():
        texts.append('the test does nothing before the window')
    if after.numbers == last.numbers:
        texts.append('the test does nothing after the window')
    return [f'{last.name}: {text}' for text in texts]


def message_complaints(parts, result):
    messages = messages_of(result)
    if messages and not parts:
        return [f'no line should be logged, as "{messages[0]}"']
    return [f'no line is logged with "{part}"' for part in parts if not any(part in line for line in messages)]


def complaints(entry, result):
    """What the entry claims and the result does not show."""
    items, claims = items_of(result), [Claim(sentence) for sentence in entry.values['claim']]
    if len(items) != len(claims) or not claims:
        return [f'the list has {len(items)} items, the entry {len(claims)} claims']
    return [text for claim, item in zip(claims, items) for text in claim.complaints(item)] + \
        fault_complaints(entry, result) + \
        message_complaints(entry.values['logs'], result) + \
        sample_complaints(entry.values['samples'], items) + \
        relation_complaints(entry.values['holds'], result, items)
