// The keys of the front panel and the lines of its display.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

constexpr size_t PANEL_TEXT_MAX = 42; // bytes of one line, the closing zero included
constexpr int32_t LETTERS_PER_LINE = 40;

constexpr uint8_t KEY_ESC = 's';

// Returns the key in the bytes of one read. Three bytes are an escape sequence: the last one is the
// key, in upper or lower case. Otherwise the first byte is the key, 0 if there is none.
uint8_t key_of(std::span<const uint8_t> received);

// Writes the display line of a key: the result of the read, then the key's name or the key itself.
void format_key(int32_t read_result, uint8_t key, std::span<char, PANEL_TEXT_MAX> text);

// Returns the ESC presses in a row, including this key.
int32_t escapes_after(int32_t escapes, uint8_t key);

constexpr int32_t IDLE_POLLS = 20; // empty polls before the next line of letters

// One round of the panel: polls until nobody has pressed a key for a while. `key_came` polls once,
// `take_key` takes the key that it reported. After a key 19 empty polls end the round.
template <typename KeyCame, typename TakeKey>
void poll_until_idle(KeyCame key_came, TakeKey take_key) {
    for (int32_t polls = 0; polls < IDLE_POLLS; ++polls) {
        if (key_came()) {
            take_key();
            polls = 0;
        }
    }
}

// Returns the next letter, 1 ('A') to 26 ('Z'), then 1 again; `letter` is 0 before the first one.
int32_t next_letter(int32_t letter);

// Fills a line of the display with a letter, 1..26.
void format_letter_line(int32_t letter, std::span<char, PANEL_TEXT_MAX> text);
