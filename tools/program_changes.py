"""The small changes that tools/mutate.py makes, found in the text of the program.

KINDS names them:
    constants    a number by one more, a comparison by its neighbour, true by false
    statements   a call, an assignment, an increment, an output with <<, a throw or a jump is deleted
    arguments    the first two arguments of a call change places, but not of max, min, clamp and comparisons
                 like strcmp
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
# Statements that are worth deleting, with nothing between their brackets.
PLACE = r"[*&]*[\w:]+(?:<[^<>=()]*>)?(?:(?:\.|->)\w+(?:<[^<>=()]*>)?|\(\)|\[\])*"
STATEMENTS = {
    'jump': re.compile(r"break|continue|return"),
    'throw': re.compile(r"throw .*"),
    'increment': re.compile(rf"(?:\+\+|--){PLACE}|{PLACE}(?:\+\+|--)"),
    'assignment': re.compile(rf"{PLACE} (?:[-+|&^*/%]|<<|>>)?= (?!delete$|default$).*"),
    'output': re.compile(rf"{PLACE} << .*"),
    'call': re.compile(rf"(?:\(\)!?)?{PLACE}(?<=\))"),
}
FIRST_WORD = re.compile(r"^ {4,}(?P<statement>[\w*(+-])", re.MULTILINE)
NO_STATEMENT = re.compile(r"(?:if|for|while|switch|return|static_assert|case|else|do|sizeof)\b")
SYSTEM_CALL = re.compile(
    r"(?<![\w.>:])(?:::)?(?P<name>open|close|read|write|ioctl|fcntl|poll|dup2|fsync|unlink|mkdir|fstat|lseek"
    r"|mmap|munmap|mlockall|setpriority|nanosleep|usleep|fork|waitpid|kill|sigaction|sigprocmask|shmget"
    r"|shmat|shmdt|shmctl|setitimer|getifaddrs|socket|system|pipe|tcsetattr|tcgetattr|tcdrain|tcflush"
    r"|wait|chdir|rmdir|stat|opendir|sync|gettimeofday|signal|syslog|openlog|readlink)\(")
FAILED = {'mmap': 'MAP_FAILED', 'shmat': 'reinterpret_cast<void *>(-1)', 'opendir': 'nullptr', 'signal': 'SIG_ERR',
          'sync': '(void)0', 'syslog': '(void)0', 'openlog': '(void)0'}
CALL = re.compile(r"(?<=[^\w])(?P<name>(?!(?:max|min|clamp|\w*cmp)\()[a-z]\w*)\(")  # whose order shows nothing


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
    before: str  # the nearest line above that is not blank

    def applied_to(self, text):
        return text[:self.offset] + self.new + text[self.offset + len(self.old):]

    def __str__(self):
        old, new = (' '.join(part.split()) for part in (self.old, self.new))
        change = f'{old} -> {new} at column {self.column}: {self.shown}' if new else f'deleted: {old}'
        return f'{change} after {self.before}'


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


def outline_of_statement(plain, start):
    """The statement on one line with nothing between its brackets, and the offset of its semicolon; of
    what ends with something else, nothing."""
    outline, end = '', start
    while plain[end] not in ';,)]}':
        after = end_of_brackets(plain, end) if plain[end] in '([{' else end + 1
        outline += plain[end] if after == end + 1 else plain[end] + plain[after - 1]
        end = after
    outline = re.sub(r' (?=\.|->)', '', ' '.join(outline.split()))
    return (outline, end) if plain[end] == ';' else ('', end)


def kind_of_statement(outline):
    """A name of STATEMENTS, or nothing."""
    if NO_STATEMENT.match(outline) and outline != 'return':
        return ''
    return next((name for name, form in STATEMENTS.items() if form.fullmatch(outline)), '')


def statements(text, plain):
    code = re.sub(r"^#.*", lambda line: ' ' * len(line.group()), plain, flags=re.MULTILINE)
    for match in FIRST_WORD.finditer(code):
        start = match.start('statement')
        before = code[:start].rstrip()
        if before.endswith((';', '{', '}', ')', ':', ' else', ' do')):
            outline, end = outline_of_statement(code, start)
            if kind_of_statement(outline):
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
        shown = text[starts[line - 1]:].split('\n', 1)[0].strip()
        before = text[:starts[line - 1]].rstrip().rsplit('\n', 1)[-1].strip()
        yield Change(path, line, offset - starts[line - 1] + 1, offset, old, new, shown, before)
