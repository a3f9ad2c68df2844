"""The small changes that tools/mutate.py makes, found in the text of the program.

KINDS names them:
    constants    a number by one more, a comparison by its neighbour, true by false
    statements   a call, an assignment, an increment or a jump is deleted
    arguments    the first two arguments of a call change places
    failures     a system call is not made and has failed
"""
import bisect
import dataclasses
import re

KINDS = ('constants', 'statements', 'arguments', 'failures')
COMPARISONS = {'<': '<=', '<=': '<', '>': '>=', '>=': '>', '==': '!=', '!=': '=='}
TOKEN = re.compile(
    r"""(?P<skip>//.*|"(?:\\.|[^"\\])*"|'(?:\\.|[^'\\])*')"""
    r"""|(?P<compare>(?<= )(?:<=|>=|==|!=|<|>)(?= ))"""
    r"""|(?P<truth>\b(?:true|false)\b)"""
    r"""|(?P<number>(?<![\w.'])(?:0[xX][0-9a-fA-F]+|[0-9]+(?:'[0-9]{3})*)(?=[uUlL]*(?![\w.'])))"""
)
# What a statement that is worth deleting begins with, inside a function.
STATEMENT = re.compile(
    r"^ {4,}(?P<statement>(?:\(void\)!?)?(?:\+\+|--)?[\w*][\w:*&.>\[\]-]*"
    r"(?:\(|\+\+;|--;| [-+|&^*/]?= | <<= | >>= )"
    r"|break;|continue;|return;)", re.MULTILINE)
JUMPS = ('break', 'continue', 'return')  # shown with the line before them: a file has many
NO_STATEMENT = re.compile(r"(?:if|for|while|switch|return|static_assert|case|else|do|sizeof)\b")
SYSTEM_CALL = re.compile(
    r"(?<![\w.>:])(?:::)?(?P<name>open|close|read|write|ioctl|fcntl|poll|dup2|fsync|unlink|mkdir|fstat|lseek"
    r"|mmap|munmap|mlockall|setpriority|nanosleep|usleep|fork|waitpid|kill|sigaction|sigprocmask|shmget"
    r"|shmat|shmdt|shmctl|setitimer|getifaddrs|socket|system|pipe|tcsetattr|tcgetattr|tcdrain|tcflush)\(")
FAILED = {'mmap': 'MAP_FAILED', 'shmat': 'reinterpret_cast<void *>(-1)'}
CALL = re.compile(r"(?<=[^\w])(?P<name>[a-z]\w*)\(")


@dataclasses.dataclass(frozen=True)
class Change:
    """`old`, at `offset` of a file's text, becomes `new`."""
    path: str
    line: int  # from 1
    column: int  # from 1
    offset: int
    old: str
    new: str
    shown: str  # the line that it is in
    before: str  # the line before that

    def applied_to(self, text):
        return text[:self.offset] + self.new + text[self.offset + len(self.old):]

    def __str__(self):
        old, new = (' '.join(part.split()) for part in (self.old, self.new))
        if new:
            return f'{old} -> {new} at column {self.column}: {self.shown}'
        return f'deleted: {old} after {self.before}' if old in JUMPS else f'deleted: {old}'


def changed_token(match):
    """The text that a token is changed to; None for what is left alone."""
    text = match.group()
    if match['compare']:
        return COMPARISONS[text]
    if match['truth']:
        return 'false' if text == 'true' else 'true'
    if match['number']:
        digits = text.replace("'", '')
        if digits[:2].lower() == '0x':
            return hex(int(digits, 16) + 1)
        if digits[0] == '0' and len(digits) > 1:
            return f'0{int(digits, 8) + 1:o}'
        return str(int(digits) + 1)
    return None


def without_comments(text):
    """The text with comments and the contents of literals as spaces, each at its place."""
    def blanked(match):
        found = match.group()
        return ' ' * len(found) if found[0] == '/' else found[0] + ' ' * (len(found) - 2) + found[-1]
    return re.sub(r"""//.*|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])*'""", blanked, text)


def end_of_brackets(text, start):
    """The offset after the bracket that closes the one at `start`."""
    depth = 0
    for offset in range(start, len(text)):
        depth += {'(': 1, '[': 1, '{': 1, ')': -1, ']': -1, '}': -1}.get(text[offset], 0)
        if depth == 0:
            return offset + 1
    return len(text)


def constants(text, _plain):
    offset = 0
    for line in text.splitlines(keepends=True):
        if not line.startswith('#') and 'static_assert' not in line:
            for match in TOKEN.finditer(line):
                new = changed_token(match)
                if new is not None:
                    yield offset + match.start(), match.group(), new
        offset += len(line)


def statements(text, plain):
    for match in STATEMENT.finditer(plain):
        start = match.start('statement')
        if NO_STATEMENT.match(plain, start):
            continue
        end = start
        while plain[end] not in ';,)]}':
            end = end_of_brackets(plain, end) if plain[end] in '([{' else end + 1
        if plain[end] == ';':
            yield start, text[start:end], ''


def split_arguments(plain, start, end):
    """The places of the arguments between two brackets."""
    places, offset, begin = [], start, start
    while offset < end:
        if plain[offset] in '([{':
            offset = end_of_brackets(plain, offset)
        else:
            if plain[offset] == ',':
                places.append((begin, offset))
                begin = offset + 1
            offset += 1
    return [*places, (begin, end)]


def arguments(text, plain):
    for match in CALL.finditer(plain):
        end = end_of_brackets(plain, match.end() - 1) - 1
        places = split_arguments(plain, match.end(), end)
        if len(places) < 2 or NO_STATEMENT.match(match['name']) or '\n    ' not in text[:match.start()]:
            continue
        first, second = (text[a:b].strip() for a, b in places[:2])
        if first != second and re.fullmatch(r"[\w.>&*()\[\]-]+", first) and not re.search(r"\w \w", second):
            yield match.end(), text[match.end():places[1][1]], f'{second}, {first}'


def failures(text, plain):
    for match in SYSTEM_CALL.finditer(plain):
        end = end_of_brackets(plain, match.end() - 1)
        yield match.start(), text[match.start():end], FAILED.get(match['name'], '-1')


def changes_of(path, text, kind):
    """All changes of one kind in the text of a file."""
    plain = without_comments(text)
    starts = [0, *(match.end() for match in re.finditer('\n', text))]
    for offset, old, new in globals()[kind](text, plain):
        line = bisect.bisect_right(starts, offset)
        before, shown = (text[starts[max(each, 0)]:].split('\n', 1)[0].strip() for each in (line - 2, line - 1))
        yield Change(path, line, offset - starts[line - 1] + 1, offset, old, new, shown, before)
