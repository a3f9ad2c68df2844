// The board's /dev: a memory file system with the few nodes that every board has. The devices of
// this board add their own.
#include "simulator/base/message.h"
#include "simulator/world/root.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace simulator {

namespace {

constexpr const char *COMMON_NODES[] = {"/dev/null",   "/dev/zero",    "/dev/full",
                                        "/dev/random", "/dev/urandom", "/dev/tty"};

// Links to the program's open descriptors; see proc(5).
constexpr struct {
    const char *name;
    const char *shows;
} OPEN_FILES[] = {
    {"/dev/fd", "/proc/self/fd"},
    {"/dev/stdin", "/proc/self/fd/0"},
    {"/dev/stdout", "/proc/self/fd/1"},
    {"/dev/stderr", "/proc/self/fd/2"},
};

bool link_open_files() {
    for (const auto &link : OPEN_FILES)
        if (symlink(link.shows, link.name) != 0)
            return cannot("link", link.name);
    return true;
}

bool show_common_nodes() {
    for (const char *node : COMMON_NODES) {
        const std::string source = HOST_ROOT + std::string(node);
        if (access(source.c_str(), F_OK) == 0 && !publish_node(source.c_str(), node))
            return false;
    }
    return true;
}

// Pseudo-terminals of the board's own, numbered from 0; see the kernel's documentation of devpts.
bool mount_terminals() {
    (void)mkdir("/dev/pts", 0755);
    if (mount("devpts", "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC,
              "newinstance,ptmxmode=0666,mode=620") != 0)
        return cannot("mount", "/dev/pts");
    return symlink("pts/ptmx", "/dev/ptmx") == 0 || cannot("link", "/dev/ptmx");
}

bool mount_shared_memory() {
    (void)mkdir("/dev/shm", 0755);
    return mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") == 0 ||
           cannot("mount", "/dev/shm");
}

} // namespace

bool build_dev() {
    (void)mkdir("/dev", 0755);
    if (mount("tmpfs", "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=755") != 0)
        return cannot("mount", "/dev");
    return show_common_nodes() && link_open_files() && mount_terminals() && mount_shared_memory();
}

} // namespace simulator
