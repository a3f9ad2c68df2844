// table_probe STEPS PROGRAM [ARGUMENT ...]: runs the program and reads and writes its status table
// as its supervisor could. STEPS is one text with the steps in order, numbers in decimal:
//
//     wait RECORD WORD VALUE   until the word is VALUE or above
//     is RECORD WORD VALUE     until the word is VALUE
//     set RECORD WORD VALUE
//     show RECORD WORD         sends "record R word W is V" to the system log
//
// Then it sends SIGTERM, as soon as the program catches it, and waits for the program's end. Exit
// status: the program's.

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/shm.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr unsigned long TABLE_BYTES = 5800;
constexpr int RECORD_WORDS = 29;

struct step {
    char action[8];
    int record;
    int word;
    int32_t value;
};

void pause_ms() {
    const timespec moment = {0, 1000000};
    (void)nanosleep(&moment, nullptr);
}

// The id of the only segment of the table's size, see proc(5); -1 while there is none.
int find_table() {
    FILE *segments = fopen("/proc/sysvipc/shm", "r");
    char line[256];
    int found = -1;
    while (segments != nullptr && fgets(line, sizeof line, segments) != nullptr) {
        int id = 0;
        unsigned long bytes = 0;
        if (sscanf(line, "%*d %d %*o %lu", &id, &bytes) == 2 && bytes == TABLE_BYTES)
            found = id;
    }
    if (segments != nullptr)
        fclose(segments);
    return found;
}

volatile int32_t *attach_table() {
    int id = -1;
    while ((id = find_table()) < 0)
        pause_ms();
    return static_cast<volatile int32_t *>(shmat(id, nullptr, 0));
}

// True if the program catches SIGTERM: before that, a signal would end it at once. See
// proc_pid_status(5).
bool catches_sigterm(pid_t program) {
    char path[40];
    char line[256];
    unsigned long long caught = 0;
    (void)snprintf(path, sizeof path, "/proc/%d/status", program);
    FILE *status = fopen(path, "r");
    while (status != nullptr && fgets(line, sizeof line, status) != nullptr)
        (void)sscanf(line, "SigCgt: %llx", &caught);
    if (status != nullptr)
        fclose(status);
    return status == nullptr || (caught >> (SIGTERM - 1) & 1) != 0;
}

void take(const step &next, volatile int32_t *table) {
    volatile int32_t &word = table[next.record * RECORD_WORDS + next.word];
    if (strcmp(next.action, "set") == 0)
        word = next.value;
    while (strcmp(next.action, "is") == 0 && word != next.value)
        pause_ms();
    while (strcmp(next.action, "wait") == 0 && word < next.value)
        pause_ms();
    if (strcmp(next.action, "show") == 0)
        syslog(LOG_INFO, "record %d word %d is %d", next.record, next.word, word);
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 3)
        return 2;
    const pid_t program = fork();
    if (program == 0) {
        execvp(argv[2], argv + 2);
        _exit(127);
    }
    openlog("probe", 0, LOG_USER);
    volatile int32_t *table = attach_table();
    const char *steps = argv[1];
    step next = {};
    int length = 0;
    while (sscanf(steps, " %7[a-z] %d %d%n", next.action, &next.record, &next.word, &length) == 3) {
        char *end = nullptr;
        steps += length;
        next.value = static_cast<int32_t>(strtol(steps, &end, 10));
        steps = end;
        take(next, table);
    }
    siginfo_t ended = {};
    while (!catches_sigterm(program) && ended.si_pid == 0) {
        pause_ms();
        (void)waitid(P_PID, static_cast<id_t>(program), &ended, WEXITED | WNOHANG | WNOWAIT);
    }
    (void)kill(program, SIGTERM);
    int status = 0;
    (void)waitpid(program, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
