#include "simulator/world/root.h"

#include "simulator/base/message.h"
#include "simulator/base/unique_fd.h"
#include "simulator/world/reboot_stand_in.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <vector>

namespace simulator {

namespace {

// The board's own entries of the root; all others are the host's.
constexpr std::string_view OWN_ENTRIES[] = {".host", "dev", "opt", "proc", "r0", "run", "sbin"};

constexpr const char *HOST_SBIN = "/.host_sbin"; // the host's /sbin, if it is not a link

std::vector<std::string> names_in(const char *directory) {
    std::vector<std::string> names;
    DIR *entries = opendir(directory);
    if (entries == nullptr)
        return names;
    while (const dirent *entry = readdir(entries)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    closedir(entries);
    return names;
}

std::string link_text(const std::string &path) {
    std::array<char, PATH_MAX> text{};
    return readlink(path.c_str(), text.data(), text.size() - 1) > 0 ? text.data() : "";
}

bool mount_memory(const char *directory, const char *options) {
    (void)mkdir(directory, 0755); // may exist
    return mount("tmpfs", directory, "tmpfs", MS_NOSUID, options) == 0 ||
           cannot("mount", directory);
}

// Mounts an empty memory file system as the root, and the host's root at HOST_ROOT. The first mount
// point is temporary: it is uncovered when the new root moves to "/".
bool start_new_root() {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        const int reason = errno;
        (void)cannot("make mounts private below", "/");
        if (reason == EPERM)
            report("a board cannot run on a board, nor in a container that allows no mounts");
        if (reason == EINVAL) // mount(2): no mount point
            report("bind-mount a changed root on itself before the chroot: mount --bind root root");
        return false;
    }
    for (const char *place : {"/tmp", "/mnt", "/var", "/usr"}) {
        if (mount("tmpfs", place, "tmpfs", MS_NOSUID, "mode=755") != 0)
            continue;
        if (chdir(place) != 0 || mkdir(HOST_ROOT + 1, 0755) != 0 ||
            syscall(SYS_pivot_root, ".", HOST_ROOT + 1) != 0 || chdir("/") != 0)
            return cannot("change the root to", place);
        return true;
    }
    return cannot("mount", "tmpfs");
}

bool show_host_directory(const std::string &source, const std::string &target) {
    (void)mkdir(target.c_str(), 0755);
    return mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 ||
           cannot("show", target);
}

bool show_host_entry(const std::string &name) {
    const std::string source = HOST_ROOT + ("/" + name);
    const std::string target = "/" + name;
    struct stat status {};
    if (lstat(source.c_str(), &status) != 0)
        return true; // gone meanwhile
    if (S_ISLNK(status.st_mode))
        return symlink(link_text(source).c_str(), target.c_str()) == 0 || cannot("link", target);
    if (S_ISDIR(status.st_mode))
        return show_host_directory(source, target);
    return !S_ISREG(status.st_mode) || publish_node(source.c_str(), target.c_str());
}

bool show_host_entries() {
    for (const std::string &name : names_in(HOST_ROOT))
        if (std::find(std::begin(OWN_ENTRIES), std::end(OWN_ENTRIES), name) ==
                std::end(OWN_ENTRIES) &&
            !show_host_entry(name))
            return false;
    return true;
}

// Makes a directory of links to the host's commands, in which "reboot" can be replaced.
bool build_sbin(const std::string &stand_in) {
    const std::string host_sbin = HOST_ROOT + std::string("/sbin");
    std::string commands = link_text(host_sbin); // "usr/sbin" on most hosts
    if (commands.empty()) {
        commands = HOST_SBIN;
        if (access(host_sbin.c_str(), F_OK) == 0 && !show_host_directory(host_sbin, HOST_SBIN))
            return false;
    } else if (commands.front() != '/') {
        commands = '/' + commands;
    }
    if (mkdir("/sbin", 0755) != 0)
        return cannot("create", "/sbin");
    commands += '/';
    for (const std::string &name : names_in(commands.c_str())) {
        const std::string target = "/sbin/" + name;
        if (name != "reboot" && symlink((commands + name).c_str(), target.c_str()) != 0)
            return cannot("link", target);
    }
    return publish_node(stand_in.c_str(), "/sbin/reboot");
}

bool is_same_file(const char *one, const char *other) {
    struct stat first {};
    struct stat second {};
    return stat(one, &first) == 0 && stat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// Replaces the same commands in other directories, but not a command whose file has other names too
// (a shell with built-in commands): it cannot restart anything without the right to do so.
bool cover_restart_commands(const std::string &stand_in) {
    for (const char *directory : {"/usr/sbin/", "/usr/bin/", "/bin/", HOST_SBIN}) {
        for (const char *command : RESTART_COMMANDS) {
            const std::string path = std::string(directory) + "/" + command;
            const std::unique_ptr<char, decltype(&free)> file(realpath(path.c_str(), nullptr),
                                                              free);
            if (file != nullptr && is_restart_command(file_name(file.get())) &&
                !is_same_file(stand_in.c_str(), file.get()) &&
                !publish_node(stand_in.c_str(), file.get()))
                return false;
        }
    }
    return true;
}

bool mount_proc() {
    (void)mkdir("/proc", 0555);
    if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        const bool is_covered = errno == EPERM; // an ordinary user must not uncover a part of it
        (void)cannot("mount", "/proc");
        return is_covered && complain("a board cannot run on a board, nor in a container that "
                                      "hides parts of /proc");
    }
    // A write to this file restarts the machine without any check of rights.
    return access("/proc/sysrq-trigger", F_OK) != 0 ||
           publish_node("/dev/null", "/proc/sysrq-trigger");
}

// Includes everything that is mounted below, see mount_setattr(2). An ordinary user may do it too.
bool make_read_only(const char *directory) {
    mount_attr wanted{};
    wanted.attr_set = MOUNT_ATTR_RDONLY;
    return mount_setattr(AT_FDCWD, directory, AT_RECURSIVE, &wanted, sizeof wanted) == 0 ||
           cannot("protect", directory);
}

bool leave_host_root() {
    if (umount2(HOST_ROOT, MNT_DETACH) != 0 || rmdir(HOST_ROOT) != 0)
        return cannot("leave", HOST_ROOT);
    return true;
}

} // namespace

bool publish_node(const char *source, const char *target) {
    if (access(target, F_OK) != 0)
        const unique_fd created(open(target, O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    return mount(source, target, nullptr, MS_BIND, nullptr) == 0 || cannot("show", target);
}

bool build_root(const std::string &stand_in) {
    const std::string source = HOST_ROOT + stand_in;
    return start_new_root() && show_host_entries() && build_dev() && mount_proc() &&
           mount_memory("/run", "mode=755") && mount_memory("/opt", "mode=755") &&
           mount_memory("/r0", "mode=755") && build_sbin(source) &&
           cover_restart_commands(source) && leave_host_root();
}

bool protect_machine() {
    for (const char *directory : {"/proc/sys", "/proc/irq", "/proc/bus", "/proc/fs"})
        if (access(directory, F_OK) == 0 &&
            (mount(directory, directory, nullptr, MS_BIND | MS_REC, nullptr) != 0 ||
             !make_read_only(directory)))
            return cannot("protect", directory);
    return access("/sys", F_OK) != 0 || make_read_only("/sys");
}

} // namespace simulator
