// Takes every System V shared memory segment that the kernel allows, and then becomes the program
// of its arguments. For the board alone: its segments are its own, and go with it.

#include <cerrno>
#include <sys/shm.h>
#include <unistd.h>

int main(int, char **arguments) {
    while (shmget(IPC_PRIVATE, 1, 0600) >= 0) {
    }
    if (errno == ENOSPC)
        (void)execvp(arguments[1], arguments + 1);
    return 125;
}
