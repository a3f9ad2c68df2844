#include "panel/panel_keys.h"

#include <algorithm>
#include <cstdio>

namespace {

struct key_row {
    uint8_t key;
    const char *name;
};

constexpr key_row KEYS[] = {
    {'\r', "RET"},   {'a', "UA"}, // arrows up, down, right, left
    {'b', "DA"},     {'c', "RA"},      {'d', "LA"},    {'p', "NEXT"}, {'q', "YES"},
    {'r', "NO"},     {KEY_ESC, "ESC"}, {'t', "AxON "}, // the auxiliary switch, on and off
    {'u', "AxOFF "},
};

constexpr size_t SEQUENCE_BYTES = 3;
constexpr uint8_t LOWER_CASE = 0x20;
constexpr int32_t LETTERS = 26;

} // namespace

uint8_t key_of(std::span<const uint8_t> received) {
    if (received.empty())
        return 0;
    if (received.size() == SEQUENCE_BYTES)
        return received[2] | LOWER_CASE;
    return received[0];
}

void format_key(int32_t read_result, uint8_t key, std::span<char, PANEL_TEXT_MAX> text) {
    const key_row *row = std::find_if(std::begin(KEYS), std::end(KEYS),
                                      [key](const key_row &each) { return each.key == key; });
    if (row != std::end(KEYS))
        (void)snprintf(text.data(), text.size(), "%d %s", read_result, row->name);
    else
        (void)snprintf(text.data(), text.size(), "%d %c", read_result, key);
}

int32_t escapes_after(int32_t escapes, uint8_t key) {
    return key == KEY_ESC ? escapes + 1 : 0;
}

int32_t next_letter(int32_t letter) {
    return letter < LETTERS ? letter + 1 : 1;
}

void format_letter_line(int32_t letter, std::span<char, PANEL_TEXT_MAX> text) {
    std::fill_n(text.begin(), LETTERS_PER_LINE, static_cast<char>('A' + letter - 1));
    text[LETTERS_PER_LINE] = '\0';
}
