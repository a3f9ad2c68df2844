// A library to be loaded before a program (LD_PRELOAD): each ioctl takes HK_IOCTL_MS milliseconds
// more. A test that has failed then still works on its set-up while its supervisor already waits,
// and signals strike in between.

#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <sys/ioctl.h>

extern "C" int ioctl(int fd, unsigned long number, ...) noexcept {
    va_list list;
    va_start(list, number);
    void *argument = va_arg(list, void *);
    va_end(list);
    const char *delay_ms = getenv("HK_IOCTL_MS");
    timespec left = {0, (delay_ms != nullptr ? atol(delay_ms) : 0) * 1'000'000};
    while (nanosleep(&left, &left) != 0) { // a signal does not shorten it
    }
    using function = int(int, unsigned long, ...);
    return reinterpret_cast<function *>(dlsym(RTLD_NEXT, "ioctl"))(fd, number, argument);
}
