#include "ctl/commands/leftovers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ctl/text.h"
#include "runtime/unique_fd.h"
#include "storage/file_copy_turn.h"

namespace {

constexpr int NUMBERED_FILES = 16;
constexpr size_t FILE_BYTES = 512;
constexpr mode_t TEST_MODE = 0700; // of all files and folders of both tests
constexpr mode_t MODE_BITS = 0777;

std::string read_link(const std::string &path) {
    char target[4096];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length > 0 && target[0] == '/' ? std::string(target, static_cast<size_t>(length)) : "";
}

std::string path_in(const std::string &folder, const std::string &name) {
    std::string path = folder;
    return path.append(1, '/').append(name);
}

std::vector<std::string> names_in(const std::string &folder) {
    std::vector<std::string> names;
    DIR *directory = opendir(folder.c_str());
    while (const dirent *entry = directory != nullptr ? readdir(directory) : nullptr)
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    if (directory != nullptr)
        (void)closedir(directory);
    std::sort(names.begin(), names.end());
    return names;
}

bool is_regular(const std::string &path, struct stat &about) {
    return lstat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode);
}

bool is_folder(const std::string &path, struct stat &about) {
    return lstat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

// Reads a file of exactly 512 bytes; false for any other file.
bool read_block(const std::string &path, std::array<uint8_t, FILE_BYTES> &block) {
    struct stat about = {};
    if (!is_regular(path, about) || about.st_size != off_t{FILE_BYTES})
        return false;
    const unique_fd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    return file && read(file.get(), block.data(), block.size()) == ssize_t{FILE_BYTES};
}

// True if every 16-bit word is the number, in the byte order of the run.
bool is_numbered_file(const std::string &path, int number) {
    std::array<uint8_t, FILE_BYTES> block;
    if (!read_block(path, block))
        return false;
    const auto low = static_cast<uint8_t>(number);
    const bool big_endian = block[0] == 0 && block[1] == low;
    const bool little_endian = block[0] == low && block[1] == 0;
    for (size_t i = 2; i < FILE_BYTES; ++i)
        if (block[i] != block[i % 2])
            return false;
    return big_endian || little_endian;
}

bool is_copied_file(const std::string &path) {
    std::array<uint8_t, FILE_BYTES> block;
    return read_block(path, block) && block == make_copy_block();
}

// The destination of a copy is empty until its test is released.
bool is_empty_destination(const std::string &path) {
    struct stat about = {};
    return is_regular(path, about) && about.st_size == 0 &&
           (about.st_mode & MODE_BITS) == TEST_MODE;
}

void add_numbered(const std::string &folder, leftovers &found) {
    for (int number = 0; number < NUMBERED_FILES; ++number) {
        const std::string path = path_in(folder, text_of("file-%04X", number));
        if (is_numbered_file(path, number))
            found.files.push_back(path);
    }
}

// False if the folder existed before the run. Some file systems do not record that.
bool may_be_made_by(const stress_run &run, const std::string &folder) {
    struct statx about = {};
    if (statx(AT_FDCWD, folder.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &about) != 0)
        return true;
    return (about.stx_mask & STATX_BTIME) == 0 || about.stx_btime.tv_sec >= run.memory.created;
}

record_letter letter_of(const stress_run &run, pid_t pid) {
    for (const TestRecord &record : run.table().records)
        if (record.pid == pid && &record != run.table().records.data())
            return static_cast<record_letter>(record.test_letter);
    return record_letter::PANEL;
}

std::string folder_of(const process &test) {
    return read_link(text_of("/proc/%d/cwd", static_cast<int>(test.pid)));
}

// Without standard input, output and error, which belong to the caller.
std::vector<std::string> open_files(const process &test) {
    std::vector<std::string> paths;
    const std::string descriptors = text_of("/proc/%d/fd", static_cast<int>(test.pid));
    for (const std::string &name : names_in(descriptors))
        if (atoi(name.c_str()) > STDERR_FILENO)
            if (std::string path = read_link(path_in(descriptors, name)); !path.empty())
                paths.push_back(path);
    return paths;
}

bool holds(const std::vector<std::string> &list, const std::string &text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

// What the tests of the runs use, but for those of `except`.
leftovers in_use(const std::vector<stress_run> &runs, const stress_run *except) {
    leftovers used;
    for (const stress_run &run : runs)
        for (const process &test : run.test_processes) {
            if (except != nullptr && run.memory.id == except->memory.id)
                continue;
            used.folders.push_back(folder_of(test));
            for (const std::string &path : open_files(test))
                used.files.push_back(path);
        }
    return used;
}

void add_folder_of(const stress_run &run, const process &test, const leftovers &used,
                   leftovers &found) {
    const std::string folder = folder_of(test);
    if (holds(used.folders, folder))
        return;
    add_numbered(folder, found);
    if (may_be_made_by(run, folder))
        found.folders.push_back(folder);
}

void add_open_files(const process &test, const leftovers &used, leftovers &found) {
    for (const std::string &path : open_files(test))
        if (!holds(used.files, path) && (is_copied_file(path) || is_empty_destination(path)))
            found.files.push_back(path);
}

void add_copied(const std::string &folder, leftovers &found) {
    for (const std::string &name : names_in(folder))
        if (is_copied_file(path_in(folder, name)))
            found.files.push_back(path_in(folder, name));
}

void add_contents(const std::string &folder, const leftovers &used, leftovers &found) {
    leftovers here;
    if (!holds(used.folders, folder))
        add_numbered(folder, here);
    add_copied(folder, here);
    for (const std::string &path : here.files)
        if (!holds(used.files, path))
            found.files.push_back(path);
}

bool remove_file(const std::string &path, bool dry_run) {
    printf("%s file %s\n", dry_run ? "would remove" : "remove", printable(path).c_str());
    if (dry_run || unlink(path.c_str()) == 0 || errno == ENOENT)
        return true;
    complain("cannot remove %s: %s", printable(path).c_str(), strerror(errno));
    return false;
}

// True if the folder contains only what is removed.
bool would_be_empty(const std::string &folder, const leftovers &found) {
    const std::vector<std::string> names = names_in(folder);
    return std::all_of(names.begin(), names.end(), [&](const std::string &name) {
        return holds(found.files, path_in(folder, name));
    });
}

bool remove_folder(const std::string &folder, const leftovers &found, bool dry_run) {
    struct stat about = {};
    if (!is_folder(folder, about) || (about.st_mode & MODE_BITS) != TEST_MODE ||
        !would_be_empty(folder, found))
        return true;
    printf("%s folder %s\n", dry_run ? "would remove" : "remove", printable(folder).c_str());
    if (dry_run || rmdir(folder.c_str()) == 0)
        return true;
    complain("cannot remove %s: %s", printable(folder).c_str(), strerror(errno));
    return false;
}

} // namespace

leftovers leftovers_of(const stress_run &run, const std::vector<stress_run> &runs) {
    const leftovers used = in_use(runs, &run);
    leftovers found;
    for (const process &test : run.test_processes) {
        const record_letter letter = letter_of(run, test.pid);
        if (letter == record_letter::FILESYSTEM)
            add_folder_of(run, test, used, found);
        else if (letter == record_letter::FILE_COPY)
            add_open_files(test, used, found);
    }
    return found;
}

leftovers leftovers_in(const std::string &folder, const std::vector<stress_run> &runs) {
    const leftovers used = in_use(runs, nullptr);
    leftovers found;
    add_contents(folder, used, found);
    for (const std::string &name : names_in(folder)) {
        const std::string inner = path_in(folder, name);
        struct stat about = {};
        if (!is_folder(inner, about))
            continue;
        const size_t before = found.files.size();
        add_contents(inner, used, found);
        if (found.files.size() > before && !holds(used.folders, inner))
            found.folders.push_back(inner);
    }
    return found;
}

bool remove_leftovers(const leftovers &found, bool dry_run) {
    bool done = true;
    for (const std::string &path : found.files)
        done = remove_file(path, dry_run) && done;
    for (const std::string &folder : found.folders)
        done = remove_folder(folder, found, dry_run) && done;
    return done;
}
