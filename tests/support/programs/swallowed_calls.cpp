// A library for LD_PRELOAD. It drops the kind of calls that HK_SWALLOW names and reports success to
// the program. A test of the board without such a call shows what the call is for.

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <iterator>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

namespace {

constexpr unsigned long SYNC_MODE_REQUEST = 0x40047300;
// TCSETS2, TCSETSW2 and TCSETSF2 of asm/ioctls.h, which needs the kernel's termios structure.
constexpr unsigned long SETTINGS_REQUESTS[] = {0x402c542b, 0x402c542c, 0x402c542d};
constexpr unsigned long SPI_REQUESTS[] = {SPI_IOC_WR_MODE, SPI_IOC_WR_BITS_PER_WORD,
                                          SPI_IOC_WR_MAX_SPEED_HZ};

bool is_swallowed(const char *kind) {
    const char *swallowed = getenv("HK_SWALLOW");
    return swallowed != nullptr && strcmp(swallowed, kind) == 0;
}

template <class Function>
Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int tcdrain(int fd) {
    return is_swallowed("pauses") ? 0 : next<decltype(tcdrain)>("tcdrain")(fd);
}

// Skips the short sleeps of the program's turns, but not naps of half a second and more.
int nanosleep(const timespec *time, timespec *left) {
    constexpr long NAP_NS = 500'000'000;
    const bool is_pause = time->tv_sec == 0 && time->tv_nsec < NAP_NS;
    if (is_swallowed("pauses") && is_pause)
        return 0;
    return next<decltype(nanosleep)>("nanosleep")(time, left);
}

int ioctl(int fd, unsigned long number, ...) noexcept {
    va_list list;
    va_start(list, number);
    void *argument = va_arg(list, void *);
    va_end(list);
    if (is_swallowed("settings") &&
        std::ranges::find(SETTINGS_REQUESTS, number) != std::end(SETTINGS_REQUESTS))
        return 0;
    if (is_swallowed("spi") && std::ranges::find(SPI_REQUESTS, number) != std::end(SPI_REQUESTS))
        return 0;
    if (is_swallowed("sync_mode") && number == SYNC_MODE_REQUEST)
        return 0;
    if (is_swallowed("rts_off") && number == TIOCMSET &&
        (*static_cast<const int *>(argument) & TIOCM_RTS) == 0)
        return 0;
    return next<int(int, unsigned long, ...)>("ioctl")(fd, number, argument);
}

} // extern "C"
