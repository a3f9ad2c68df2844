#include "simulator/line/tty/settings.h"

namespace simulator::line {

namespace {

constexpr uint32_t HUNG_UP_BPS = 9600; // what the driver sets in place of 0

struct speed_code {
    tcflag_t code;
    speed_t bps;
};

constexpr speed_code SPEED_CODES[] = {
    {B0, 0},
    {B50, 50},
    {B75, 75},
    {B110, 110},
    {B134, 134},
    {B150, 150},
    {B200, 200},
    {B300, 300},
    {B600, 600},
    {B1200, 1200},
    {B1800, 1800},
    {B2400, 2400},
    {B4800, 4800},
    {B9600, 9600},
    {B19200, 19200},
    {B38400, 38400},
    {B57600, 57600},
    {B115200, 115200},
    {B230400, 230400},
    {B460800, 460800},
    {B500000, 500000},
    {B576000, 576000},
    {B921600, 921600},
    {B1000000, 1000000},
    {B1152000, 1152000},
    {B1500000, 1500000},
    {B2000000, 2000000},
    {B2500000, 2500000},
    {B3000000, 3000000},
    {B3500000, 3500000},
    {B4000000, 4000000},
};

speed_t bps_of(tcflag_t code, speed_t given, speed_t before) {
    if (code == BOTHER)
        return given;
    for (const speed_code &speed : SPEED_CODES)
        if (speed.code == code)
            return speed.bps;
    return before;
}

struct data_size {
    tcflag_t code;
    int bits;
};

constexpr data_size DATA_SIZES[] = {{CS5, 5}, {CS6, 6}, {CS7, 7}, {CS8, 8}};

parity_kind parity_of(tcflag_t control) {
    if ((control & PARENB) == 0)
        return parity_kind::none;
    const bool odd = (control & PARODD) != 0;
    if ((control & CMSPAR) != 0)
        return odd ? parity_kind::mark : parity_kind::space;
    return odd ? parity_kind::odd : parity_kind::even;
}

} // namespace

tty_settings initial_settings() {
    tty_settings settings{};
    settings.c_iflag = ICRNL | IXON;
    settings.c_oflag = OPOST | ONLCR;
    settings.c_cflag = B9600 | CS8 | CREAD | HUPCL | CLOCAL;
    settings.c_lflag = ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | ECHOKE | IEXTEN;
    settings.c_ispeed = settings.c_ospeed = 9600;
    settings.c_cc[VINTR] = 'C' - '@';
    settings.c_cc[VQUIT] = '\\' - '@';
    settings.c_cc[VERASE] = 0x7f;
    settings.c_cc[VKILL] = 'U' - '@';
    settings.c_cc[VEOF] = 'D' - '@';
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VSTART] = 'Q' - '@';
    settings.c_cc[VSTOP] = 'S' - '@';
    settings.c_cc[VSUSP] = 'Z' - '@';
    settings.c_cc[VREPRINT] = 'R' - '@';
    settings.c_cc[VDISCARD] = 'O' - '@';
    settings.c_cc[VWERASE] = 'W' - '@';
    settings.c_cc[VLNEXT] = 'V' - '@';
    return settings;
}

void resolve_speeds(tty_settings &settings, const tty_settings &before) {
    const tcflag_t output = settings.c_cflag & CBAUD;
    const tcflag_t input = settings.c_cflag >> IBSHIFT & CBAUD;
    settings.c_ospeed = bps_of(output, settings.c_ospeed, before.c_ospeed);
    settings.c_ispeed = input == B0 ? settings.c_ospeed // B0: same as the output
                                    : bps_of(input, settings.c_ispeed, before.c_ispeed);
}

line_format format_of(const tty_settings &settings) {
    line_format format;
    format.bps = hangs_up(settings) ? HUNG_UP_BPS : settings.c_ospeed;
    for (const data_size &size : DATA_SIZES)
        if (size.code == (settings.c_cflag & CSIZE))
            format.data_bits = size.bits;
    format.parity = parity_of(settings.c_cflag);
    if ((settings.c_cflag & CSTOPB) != 0)
        format.stop_half_bits = format.data_bits == 5 ? 3 : 4;
    return format;
}

bool is_raw(const tty_settings &settings) {
    return (settings.c_lflag & (ICANON | ECHO | ISIG | IEXTEN)) == 0 &&
           (settings.c_iflag & (ISTRIP | INLCR | IGNCR | ICRNL | IXON)) == 0 &&
           (settings.c_oflag & OPOST) == 0;
}

} // namespace simulator::line
