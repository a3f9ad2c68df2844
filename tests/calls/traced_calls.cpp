// The calls that need no device: written down, and made where they do no harm.

#include <csignal>
#include <ctime>
#include <dirent.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include "tests/calls/traced_process.h"

using namespace traced;

namespace {

void *last_block = nullptr; // that was mapped

std::string signals_in(const sigset_t &set) {
    std::string text;
    for (int signal_number = 1; signal_number < 32; ++signal_number)
        if (sigismember(&set, signal_number) == 1)
            text += " " + number(signal_number);
    return text;
}

// mmap(2) may place new memory at another address than the hint.
std::string map_line(const void *hint, size_t size, int access, int flags, int fd) {
    constexpr flag_name ACCESS[] = {{PROT_READ, "read"}, {PROT_WRITE, "write"}};
    constexpr flag_name FLAGS[] = {{MAP_SHARED, "shared"}, {MAP_ANONYMOUS, "anonymous"}};
    return "map " + number(static_cast<int64_t>(size)) + names_of(access, ACCESS) +
           names_of(flags, FLAGS) + " on " + number(fd) +
           (hint == nullptr      ? ", anywhere"
            : hint == last_block ? ", near the last"
                                 : ", elsewhere");
}

} // namespace

// With 64-bit time on a 32-bit machine the C library calls this by another name.
#if __SIZEOF_LONG__ == 4
#define __real_setitimer __real___setitimer64
#define __wrap_setitimer __wrap___setitimer64
#endif

// Defines a call that is written down and made.
#define TRACED(result, name, parameters, arguments, line)                                          \
    result __real_##name parameters;                                                               \
    result __wrap_##name parameters;                                                               \
    result __wrap_##name parameters {                                                              \
        if (is_on())                                                                               \
            note(line);                                                                            \
        return __real_##name arguments;                                                            \
    }

// Defines a call that is written down and not made. It returns `value`.
#define TRACED_ONLY(result, name, parameters, arguments, line, value)                              \
    result __real_##name parameters;                                                               \
    result __wrap_##name parameters;                                                               \
    result __wrap_##name parameters {                                                              \
        if (!is_on())                                                                              \
            return __real_##name arguments;                                                        \
        note(line);                                                                                \
        return value;                                                                              \
    }

extern "C" {

TRACED(int, unlink, (const char *path), (path), "unlink " + std::string(path))
TRACED(int, rmdir, (const char *path), (path), "rmdir " + std::string(path))
TRACED(int, sched_yield, (), (), "yield")
TRACED(int, sched_getparam, (pid_t pid, struct sched_param *found), (pid, found),
       "read priority" + (pid == 0 ? "" : " of " + number(pid)))
TRACED_ONLY(void, sync, (), (), "sync", )
TRACED_ONLY(int, mlockall, (int flags), (flags),
            flags == MCL_CURRENT ? "lock memory" : "lock memory otherwise", 0)
TRACED_ONLY(int, tcdrain, (int fd), (fd), "drain " + name_of(fd), 0)
TRACED(int, chdir, (const char *path), (path), "enter " + std::string(path))
TRACED(DIR *, opendir, (const char *path), (path), "open directory " + std::string(path))
TRACED(int, closedir, (DIR * directory), (directory), "close directory")
TRACED_ONLY(int, system, (const char *command), (command), "system " + std::string(command), 0)
TRACED_ONLY(int, kill, (pid_t pid, int number_), (pid, number_),
            "kill " + number(pid) + " " + number(number_), 0)
TRACED_ONLY(long, get_phys_pages, (), (), "count pages", 131072 / getpagesize())
TRACED(off_t, lseek64, (int fd, off_t offset, int whence), (fd, offset, whence),
       "seek " + name_of(fd) + " " + number(offset) + (whence == SEEK_SET ? "" : " elsewhere"))
TRACED(int, munmap, (void *address, size_t size), (address, size),
       "unmap " + number(static_cast<int64_t>(size)))

TRACED(int, sigprocmask, (int how, const sigset_t *set, sigset_t *before), (how, set, before),
       std::string(how == SIG_BLOCK ? "block" : "set mask") + signals_in(*set))
TRACED(int, sigaction, (int number_, const struct sigaction *wanted, struct sigaction *before),
       (number_, wanted, before),
       "handle " + number(number_) + (wanted->sa_flags == 0 ? "" : " with flags") +
           signals_in(wanted->sa_mask))
TRACED(sighandler_t, signal, (int number_, sighandler_t handler), (number_, handler),
       "signal " + number(number_) + (handler == SIG_DFL ? " default" : ""))

void *__real_mmap64(void *, size_t, int, int, int, off_t);
void *__wrap_mmap64(void *, size_t, int, int, int, off_t);
void *__wrap_mmap64(void *hint, size_t size, int access, int flags, int fd, off_t offset) {
    if (!is_on())
        return __real_mmap64(hint, size, access, flags, fd, offset);
    note(map_line(hint, size, access, flags, fd));
    return last_block = __real_mmap64(hint, size, access, flags, fd, offset);
}

void __real_openlog(const char *, int, int);
void __wrap_openlog(const char *, int, int);
void __wrap_openlog(const char *ident, int options, int facility) {
    if (is_on())
        note("open log \"" + std::string(ident) + "\" " + number(options) + " " + number(facility));
}

void __wrap_syslog(int, const char *, ...);
void __wrap_syslog(int priority, const char *, ...) {
    if (is_on())
        note("log " + number(priority));
}

TRACED_ONLY(int, setitimer, (int which, const itimerval *timer, itimerval *before),
            (which, timer, before),
            "timer " + number(which) + " " + number(timer->it_value.tv_usec) + " us, then " +
                number(timer->it_interval.tv_sec) + " s",
            0)
}
