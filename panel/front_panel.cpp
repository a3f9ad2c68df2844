// Drives the front panel: shows the names of pressed keys, fills the display while nobody presses a
// key, and restarts the board after four ESC in a row.

#include "panel/front_panel.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <unistd.h>

#include "panel/panel_keys.h"
#include "panel/port_table.h"
#include "panel/screen.h"
#include "runtime/clock.h"
#include "runtime/poll.h"
#include "runtime/runner.h"
#include "serial/port_settings.h"

namespace {

constexpr const char *PANEL_PORT = "/dev/sp6";
constexpr int32_t PANEL_UNIT = 6;
constexpr int32_t POLL_MS = 100;
constexpr size_t READ_BYTES = 10;  // a key sends 1 or 3
constexpr int32_t SHOWN_BYTES = 4; // from this count on it shows the bytes, not the key's name
constexpr int32_t ESCAPES_TOLERATED = 3;

constexpr const char *RESTART_COMMANDS[] = {
    "cp /opt/orbalt/harnwick/pir.sh /opt/pir.sh",
    "cd /opt;./vir.sh restart>/dev/null",
    "cd /opt;./pir.sh halt>/dev/null",
    "/sbin/reboot",
};

struct front_panel {
    static constexpr bool PID_AFTER_SET_UP = true; // without its panel a test leaves no id

    TestRecord &record;
    int32_t escapes = 0; // ESC presses in a row; lines of letters do not end the row
    int32_t letter = 0;  // of the last line, 1..26
    std::array<char, PANEL_TEXT_MAX> text = {};

    void set_up();
    void turn();
};

// Makes the panel the terminal of the process. Replaces each descriptor only after the port is
// open, so that the operator sees why an open failed.
void take_panel_as_terminal() {
    for (const int stream : {STDOUT_FILENO, STDIN_FILENO}) {
        port_row &port = open_port_by_name(PANEL_PORT);
        if (port.fd != stream) {
            (void)dup2(port.fd, stream);
            (void)close(port.fd);
            port.fd = stream;
        }
    }
    (void)set_raw_mode(STDIN_FILENO);
    (void)set_port_speed(STDIN_FILENO, SPEED_38400);
}

void show(const char *text) {
    (void)!write(STDOUT_FILENO, text, strlen(text));
}

void end_line() {
    show("\r\n");
}

void restart_board() {
    screen_print(1, 1, 8, "Restarting Harnwick");
    for (const char *command : RESTART_COMMANDS) {
        (void)!system(command);
        sync();
    }
}

void show_bytes(std::span<const uint8_t> bytes) {
    char group[16];
    (void)snprintf(group, sizeof group, "%d ", static_cast<int>(bytes.size()));
    show(group);
    for (const uint8_t byte : bytes) {
        (void)snprintf(group, sizeof group, "0x%x ", byte);
        show(group);
    }
}

void take_key(front_panel &front) {
    std::array<uint8_t, READ_BYTES> buffer;
    const auto count = static_cast<int32_t>(read(STDIN_FILENO, buffer.data(), buffer.size()));
    // A port that has hung up reports input immediately on every poll: keep the pace.
    if (count <= 0 && has_hung_up(STDIN_FILENO))
        sleep_us(POLL_MS * 1000);
    const std::span<const uint8_t> received(buffer.data(), static_cast<size_t>(std::max(count, 0)));
    const uint8_t key = key_of(received);

    screen_clear();
    format_key(count, key, front.text);
    front.escapes = escapes_after(front.escapes, key);
    if (front.escapes > ESCAPES_TOLERATED)
        restart_board();
    if (count >= SHOWN_BYTES)
        show_bytes(received);
    else
        show(front.text.data());
    end_line();
}

void show_letters(front_panel &front) {
    front.letter = next_letter(front.letter);
    format_letter_line(front.letter, front.text);
    show(front.text.data());
    end_line();
}

void front_panel::set_up() {
    take_panel_as_terminal();
    record.unit = PANEL_UNIT;
    record.errors = 0;
}

void front_panel::turn() {
    poll_until_idle([] { return input_within(STDIN_FILENO, POLL_MS); },
                    [this] { take_key(*this); });
    show_letters(*this);
}

} // namespace

pid_t front_panel_test(int no_fork) {
    return start_test(no_fork, front_panel{claim_record(record_letter::PANEL)});
}
