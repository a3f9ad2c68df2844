// The input side of the terminal line discipline (n_tty): what happens to bytes from the driver
// until a program reads them.
//
// There are two queues, as in the kernel. The driver puts bytes into its flip buffers (64 KiB).
// These fill the read buffer of 4095 bytes, which read, poll and FIONREAD see. If nobody reads, the
// read buffer fills, then the flip buffers, and then bytes are lost. tcflush(3) empties both
// (tty_ioctl in drivers/tty/tty_io.c); TCSAFLUSH only the read buffer, which the flip buffers fill
// again (set_termios in drivers/tty/tty_ioctl.c).
//
// Modelled: ISTRIP, IGNCR, ICRNL, INLCR, IXON, IXANY, BRKINT, PARMRK, INPCK; canonical mode with
// erase, kill, end of file and the two other line ends; echo; the flushing of the queues by ISIG.
// No signal is sent, because no process has a serial port of the board as its controlling terminal.
// Not modelled: IUCLC, IUTF8, word erase, reprint, literal next.
#pragma once

#include "simulator/line/tty/output.h"
#include "simulator/line/uart/receiver.h"

#include <deque>
#include <span>

namespace simulator::line {

constexpr size_t READ_BUFFER_BYTES = 4095;
constexpr size_t FLIP_BUFFER_BYTES = 65536;

class discipline {
public:
    discipline(transmitter &driver, output_processing &echo_output)
        : out(driver), echo_out(echo_output) {}

    void set_settings(int64_t now, const tty_settings &wanted);

    // Takes what the driver has received. Returns how many bytes were lost.
    size_t receive(int64_t now, std::span<const received_byte> bytes);

    // Bytes that a read would return now; in canonical mode only complete lines (FIONREAD).
    size_t readable() const;
    // True if a read can return: `least` bytes, or a complete line in canonical mode.
    bool has_input(size_t least) const;
    // Copies the bytes of the read buffer if there is room for all of them. Returns how many.
    size_t copy_input(std::span<uint8_t> to) const;
    // Moves bytes to the reader, at most one line in canonical mode.
    size_t read(int64_t now, std::span<uint8_t> bytes);

    void flush_input(int64_t now, bool with_flip_buffers);
    // The last close: empties both queues and clears the flow control.
    void close();

    // The driver throttles when the read buffer is nearly full (fewer than 128 bytes free), and
    // releases when it is nearly empty (at most 128 bytes).
    bool wants_throttle() const;
    bool wants_release() const;

private:
    struct cell {
        uint8_t byte;
        bool ends_line = false;
        bool is_end_of_file = false; // ends a line and is not read
    };

    bool is_canonical() const {
        return (settings.c_lflag & ICANON) != 0;
    }
    bool echoes() const {
        return (settings.c_lflag & ECHO) != 0;
    }
    bool is_special(uint8_t byte, int which) const;
    bool has_room() const;
    void fill_read_buffer(int64_t now);
    void take(int64_t now, received_byte received);
    void take_flagged(received_byte received);
    void take_character(int64_t now, uint8_t byte);
    bool take_flow_control(int64_t now, uint8_t byte);
    bool take_signal_character(int64_t now, uint8_t byte);
    bool take_editing(int64_t now, uint8_t byte);
    void end_line(uint8_t byte, bool is_end_of_file);
    void store(uint8_t byte);
    void erase_last(int64_t now);
    void kill_line(int64_t now);
    void interrupt();

    transmitter &out;
    output_processing &echo_out;
    tty_settings settings = initial_settings();
    std::deque<received_byte> flip;
    std::deque<cell> buffer;
    size_t complete = 0; // cells of the buffer in complete lines
};

} // namespace simulator::line
