#!/usr/bin/env python3
"""tools/program_changes.py on a text with a change of each form."""
import collections
import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / 'tools'))
import program_changes

# What follows a mark is deleted; nothing else is.
PROGRAM = '''
struct port {
    port(const port &) = delete;
    int fd = -1;
};
void turn(port &it) {
    @++it.turns;
    @--left[at(it)].count;
    @count++;
    @record.hist[static_cast<size_t>(next)] = {1, value};
    @started[index] = true;
    @text[length++] = '\\\\n';
    @item["x"] = "};";
    @*static_cast<volatile int *>(&word) = 0;
    @flags |= first |
             second(it);
    @line =
        name_of(it);
    const bool is_open =
        is_device(it);
    @out << "<ul>" << items
        << "</ul>";
    @(void)close(it.fd);
    @(void)!system(command);
    @std::sort(names.begin(), names.end(), [](int a, int b) { return a < b; });
    @text.append("(")
        .append(name)
        ->flush();
#ifdef NDEBUG
    @shared().clear();
#endif
    if (is_open)
        @return;
    for (;;)
        @break;
    while (next())
        @continue;
    @throw std::bad_alloc();
    return is_open ? first(it)
                   : second(it);
}
'''
KINDS = {'increment': 3, 'assignment': 7, 'output': 1, 'call': 5, 'jump': 3, 'throw': 1}


def changes(text, kind):
    return list(program_changes.changes_of('a.cpp', text, kind))


class ProgramChanges(unittest.TestCase):
    def test_every_form_of_statement_is_deleted_and_no_declaration(self):
        text = PROGRAM.replace('@', '')
        places = [match - index for index, match in
                  enumerate(at for at, letter in enumerate(PROGRAM) if letter == '@')]
        found = changes(text, 'statements')
        self.assertEqual([text[each.offset:].split('\n', 1)[0] for each in found],
                         [text[place:].split('\n', 1)[0] for place in places])
        plain = program_changes.without_comments(text)
        kinds = collections.Counter(program_changes.kind_of_statement(
            program_changes.outline_of_statement(plain, each.offset)[0]) for each in found)
        self.assertEqual(kinds, KINDS)

    def test_a_deleted_statement_leaves_its_semicolon(self):
        text = '{\n    a = b(1) +\n        2;\n}\n'
        self.assertEqual([each.applied_to(text) for each in changes(text, 'statements')], ['{\n    ;\n}\n'])

    def test_constants_arguments_and_failures(self):
        text = ("void f() {\n    if (a < 0x1F && b == 1'000)\n        (void)opendir(name);\n\n    wait(first, true);\n"
                "    std::clamp(a, b, strcmp(c, d));\n}\n")
        expected = {
            'constants': ['< -> <=', '0x1F -> 0x20', '== -> !=', "1'000 -> 1001", 'true -> false'],
            'arguments': ['first, true -> true, first'],
            'failures': ['opendir(name) -> nullptr', 'wait(first, true) -> -1'],
        }
        for kind, found in expected.items():
            self.assertEqual([f'{each.old} -> {each.new}' for each in changes(text, kind)], found)
        self.assertEqual(str(changes(text, 'failures')[1]), 'wait(first, true) -> -1 at column 5: '
                         'wait(first, true); after (void)opendir(name);')


if __name__ == '__main__':
    unittest.main()
