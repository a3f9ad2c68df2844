#include "simulator/line/tty/discipline.h"

#include <algorithm>

namespace simulator::line {

namespace {

constexpr size_t THROTTLE_ROOM = 128;
constexpr size_t RELEASE_BYTES = 128;
constexpr size_t MARKED_BYTES = 3; // what one character becomes at most with PARMRK
constexpr uint8_t MARK = 0xff;

} // namespace

void discipline::set_settings(int64_t now, const tty_settings &wanted) {
    const tty_settings before = settings;
    settings = wanted;
    if ((before.c_lflag & ICANON) != (wanted.c_lflag & ICANON)) {
        // Waiting input becomes a complete line, or loses its line ends.
        for (cell &each : buffer)
            each.ends_line = each.is_end_of_file = false;
        complete = is_canonical() ? buffer.size() : 0;
        if (complete > 0)
            buffer.back().ends_line = true;
    }
    if ((before.c_iflag & IXON) != 0 && (wanted.c_iflag & IXON) == 0)
        out.hold(now, HELD_BY_XOFF, false);
    fill_read_buffer(now);
}

size_t discipline::receive(int64_t now, std::span<const received_byte> bytes) {
    size_t lost = 0;
    for (const received_byte &each : bytes)
        if (flip.empty() && has_room())
            take(now, each);
        else if (flip.size() < FLIP_BUFFER_BYTES)
            flip.push_back(each);
        else
            lost++;
    return lost;
}

// In canonical mode, a line that is longer than the buffer must not block its own end: further
// bytes replace the last one.
bool discipline::has_room() const {
    const size_t needed = (settings.c_iflag & PARMRK) != 0 ? MARKED_BYTES : 1;
    return buffer.size() + needed <= READ_BUFFER_BYTES || (is_canonical() && complete == 0);
}

void discipline::fill_read_buffer(int64_t now) {
    while (!flip.empty() && has_room()) {
        const received_byte next = flip.front();
        flip.pop_front();
        take(now, next);
    }
}

void discipline::take(int64_t now, received_byte received) {
    if (received.mark != character_mark::normal) {
        take_flagged(received);
        return;
    }
    const bool strips = (settings.c_iflag & ISTRIP) != 0;
    take_character(now, static_cast<uint8_t>(strips ? received.data & 0x7fU : received.data));
}

// Takes a break, or a character with an error while INPCK is set. See termios(3).
void discipline::take_flagged(received_byte received) {
    const bool is_break = received.mark == character_mark::break_seen;
    const bool marks = (settings.c_iflag & PARMRK) != 0;
    if (is_break && (settings.c_iflag & BRKINT) != 0) {
        interrupt();
        return;
    }
    if (marks) {
        store(MARK);
        store(0);
    }
    store(marks && !is_break ? received.data : 0);
}

// In the kernel's order: flow control, signals, mapping of line ends, editing, echo.
void discipline::take_character(int64_t now, uint8_t byte) {
    if (take_flow_control(now, byte) || take_signal_character(now, byte))
        return;
    if (byte == '\r' && (settings.c_iflag & IGNCR) != 0)
        return;
    if (byte == '\r' && (settings.c_iflag & ICRNL) != 0)
        byte = '\n';
    else if (byte == '\n' && (settings.c_iflag & INLCR) != 0)
        byte = '\r';
    if (is_canonical() && take_editing(now, byte))
        return;
    if (echoes() && byte == '\n')
        echo_out.echo_text(now, "\n");
    else if (echoes())
        echo_out.echo(now, byte);
    if (byte == MARK && (settings.c_iflag & PARMRK) != 0)
        store(byte); // doubled, since a single one is a mark
    store(byte);
}

bool discipline::is_special(uint8_t byte, int which) const {
    return byte != 0 && byte == settings.c_cc[which];
}

bool discipline::take_flow_control(int64_t now, uint8_t byte) {
    if ((settings.c_iflag & IXON) == 0)
        return false;
    if (is_special(byte, VSTART) || is_special(byte, VSTOP)) {
        out.hold(now, HELD_BY_XOFF, is_special(byte, VSTOP));
        return true;
    }
    if ((settings.c_iflag & IXANY) != 0)
        out.hold(now, HELD_BY_XOFF, false);
    return false;
}

bool discipline::take_signal_character(int64_t now, uint8_t byte) {
    const bool is_signal =
        is_special(byte, VINTR) || is_special(byte, VQUIT) || is_special(byte, VSUSP);
    if ((settings.c_lflag & ISIG) == 0 || !is_signal)
        return false;
    interrupt();
    if ((settings.c_iflag & IXON) != 0)
        out.hold(now, HELD_BY_XOFF, false);
    if (echoes())
        echo_out.echo(now, byte);
    return true;
}

void discipline::interrupt() {
    if ((settings.c_lflag & NOFLSH) != 0)
        return;
    out.flush();
    buffer.clear();
    complete = 0;
}

bool discipline::take_editing(int64_t now, uint8_t byte) {
    const bool extended = (settings.c_lflag & IEXTEN) != 0;
    if (is_special(byte, VERASE)) {
        erase_last(now);
    } else if (is_special(byte, VKILL)) {
        kill_line(now);
    } else if (is_special(byte, VEOF)) {
        end_line(0, true);
    } else if (byte == '\n' || is_special(byte, VEOL) || (extended && is_special(byte, VEOL2))) {
        if (byte == '\n' && (settings.c_lflag & (ECHO | ECHONL)) != 0)
            echo_out.echo_text(now, "\n");
        else if (byte != '\n' && echoes())
            echo_out.echo(now, byte);
        end_line(byte, false);
    } else {
        return false;
    }
    return true;
}

void discipline::end_line(uint8_t byte, bool is_end_of_file) {
    store(byte);
    buffer.back().ends_line = true;
    buffer.back().is_end_of_file = is_end_of_file;
    complete = buffer.size();
}

void discipline::store(uint8_t byte) {
    if (buffer.size() > READ_BUFFER_BYTES)
        buffer.pop_back();
    buffer.push_back({byte});
}

void discipline::erase_last(int64_t now) {
    if (buffer.size() == complete)
        return;
    const uint8_t erased = buffer.back().byte;
    buffer.pop_back();
    if (!echoes())
        return;
    if ((settings.c_lflag & ECHOE) == 0) {
        echo_out.echo(now, settings.c_cc[VERASE]);
        return;
    }
    for (int column = 0; column < echo_out.echo_columns(erased); column++)
        echo_out.echo_text(now, "\b \b");
}

void discipline::kill_line(int64_t now) {
    constexpr tcflag_t ERASES = ECHO | ECHOK | ECHOKE | ECHOE;
    while ((settings.c_lflag & ERASES) == ERASES && buffer.size() > complete)
        erase_last(now);
    if ((settings.c_lflag & ERASES) == ERASES)
        return;
    buffer.resize(complete, cell{});
    if (!echoes())
        return;
    echo_out.echo(now, settings.c_cc[VKILL]);
    if ((settings.c_lflag & ECHOK) != 0)
        echo_out.echo_text(now, "\n");
}

size_t discipline::readable() const {
    if (!is_canonical())
        return buffer.size();
    const auto lines_end = buffer.begin() + static_cast<ptrdiff_t>(complete);
    return static_cast<size_t>(std::count_if(
        buffer.begin(), lines_end, [](const cell &each) { return !each.is_end_of_file; }));
}

bool discipline::has_input(size_t least) const {
    return is_canonical() ? complete > 0 : buffer.size() >= std::max(least, size_t{1});
}

size_t discipline::read(int64_t now, std::span<uint8_t> bytes) {
    size_t count = 0;
    bool ended = false;
    const size_t readable_cells = is_canonical() ? complete : buffer.size();
    size_t taken = 0;
    for (; taken < readable_cells && !ended; taken++) {
        const cell &next = buffer[taken];
        if (count == bytes.size() && !(is_canonical() && next.is_end_of_file))
            break;
        ended = is_canonical() && next.ends_line;
        if (!is_canonical() || !next.is_end_of_file)
            bytes[count++] = next.byte;
    }
    buffer.erase(buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(taken));
    complete -= std::min(complete, taken);
    fill_read_buffer(now);
    return count;
}

size_t discipline::copy_input(std::span<uint8_t> to) const {
    if (buffer.size() > to.size())
        return 0;
    std::ranges::transform(buffer, to.begin(), &cell::byte);
    return buffer.size();
}

void discipline::flush_input(int64_t now, bool with_flip_buffers) {
    if (with_flip_buffers)
        flip.clear();
    buffer.clear();
    complete = 0;
    fill_read_buffer(now);
}

void discipline::close() {
    flip.clear();
    buffer.clear();
    complete = 0;
}

bool discipline::wants_throttle() const {
    const bool has_readers_part = !is_canonical() || complete > 0;
    return has_readers_part && buffer.size() > READ_BUFFER_BYTES + 1 - THROTTLE_ROOM;
}

bool discipline::wants_release() const {
    return buffer.size() <= RELEASE_BYTES;
}

} // namespace simulator::line
