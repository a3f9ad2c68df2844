#include "results/history/follow.h"

#include <sys/stat.h>

followed_log::followed_log(std::string name, log_history &into)
    : path(std::move(name)), history(into) {}

bool followed_log::has_new_file() {
    struct stat facts = {};
    if (stat(path.c_str(), &facts) != 0)
        return false; // between the two steps of a rotation
    const bool is_same = reader != nullptr && facts.st_ino == inode && facts.st_dev == device;
    if (!is_same && reader != nullptr && facts.st_size == 0)
        return false; // the writer has not moved to it yet
    const bool is_emptied = is_same && facts.st_size < size;
    size = facts.st_size;
    device = facts.st_dev;
    inode = facts.st_ino;
    return !is_same || is_emptied;
}

void followed_log::open_file() {
    reader.reset();
    source = open_source(path);
    reader = std::make_unique<log_reader>(*source, year_of(path), history);
}
