// The keys of the front panel and the lines on its display.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

constexpr size_t PANEL_TEXT_MAX = 42; // bytes of one line, the closing zero included
constexpr int32_t LETTERS_PER_LINE = 40;

constexpr uint8_t KEY_ESC = 's';

// The key in the bytes of one read. Three bytes are an escape sequence: the last one names the key,
// in either case. Of any other number the first one counts; of none, the key is 0.
uint8_t key_of(std::span<const uint8_t> received);

// Writes what the display shows for a key: the result of the read, then the key's name or itself.
void format_key(int32_t read_result, uint8_t key, std::span<char, PANEL_TEXT_MAX> text);

// ESC presses in a row, with this key the last one pressed.
int32_t escapes_after(int32_t escapes, uint8_t key);

constexpr int32_t IDLE_POLLS = 20; // empty ones, until the next line of letters

// One round at the panel: polls until no key has come for a while. `key_came` polls once,
// `take_key` takes the key that it reported. After a key the count begins anew with that poll as
// its first, so that 19 further empty ones end the round.
template <typename KeyCame, typename TakeKey>
void poll_until_idle(KeyCame key_came, TakeKey take_key) {
    for (int32_t polls = 0; polls < IDLE_POLLS; ++polls) {
        if (key_came()) {
            take_key();
            polls = 0;
        }
    }
}

// The letter after this one, 1 ('A') to 26 ('Z') and round again; 0 before the first one.
int32_t next_letter(int32_t letter);

// Fills a line of the display with that letter, 1..26.
void format_letter_line(int32_t letter, std::span<char, PANEL_TEXT_MAX> text);
